#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Vast/ZVVastAdItem.h"
#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// One MediaFile element of a linear creative. Every value is the document's string, unparsed.
class ZVMediaFile : public ZVVastAdItem, public ZVXMLMapper {
 public:
  /// Reads a MediaFile element's dictionary.
  void read(const XMLNode& dictionary);

  /// A URL parsed from `mediaUrl`.
  std::optional<platform::URL> url() const override;

  std::optional<std::string> mediaFileId;  // attribute "id"
  std::optional<std::string> delivery;
  std::optional<std::string> width;
  std::optional<std::string> height;
  /// The MIME type, compared with a player's list of playable types.
  std::optional<std::string> type;
  std::optional<std::string> bitrate;
  std::optional<std::string> scalable;
  /// The element's text.
  std::optional<std::string> mediaUrl;
};

}  // namespace zorva
