#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "Vast/ZVVastAdItem.h"
#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// One MediaFile element of a linear creative. Every value is the document's string, unparsed: a
/// view into the document's strings, which every pointer to the file keeps alive.
class ZVMediaFile : public ZVVastAdItem, public ZVXMLMapper {
 public:
  /// The media file of a MediaFile element's dictionary, holding its own strings; nullptr when the
  /// node is not a dictionary. A document's lists are made with `read` instead.
  static std::shared_ptr<ZVMediaFile> create(const XMLNode& dictionary);
  /// Reads a MediaFile element's dictionary.
  void read(const XMLNode& dictionary, ZVXMLStrings& strings);

  /// A URL parsed from `mediaUrl`.
  std::optional<platform::URL> url() const override;

  std::optional<std::string_view> mediaFileId;  // attribute "id"
  std::optional<std::string_view> delivery;
  std::optional<std::string_view> width;
  std::optional<std::string_view> height;
  /// The MIME type, compared with a player's list of playable types.
  std::optional<std::string_view> type;
  std::optional<std::string_view> bitrate;
  std::optional<std::string_view> scalable;
  /// The element's text.
  std::optional<std::string_view> mediaUrl;
};

}  // namespace zorva
