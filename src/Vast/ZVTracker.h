#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// One Tracking element: the URL to fetch when the named event happens. Its strings are views
/// into the document's strings, which every pointer to the tracker keeps alive.
class ZVTracker : public ZVXMLMapper {
 public:
  /// The tracker of a Tracking element's dictionary, holding its own strings; nullptr when the node
  /// is not a dictionary. A document's lists are made with `read` instead.
  static std::shared_ptr<ZVTracker> create(const XMLNode& dictionary);
  /// Reads a Tracking element's dictionary.
  void read(const XMLNode& dictionary, ZVXMLStrings& strings);

  /// The "event" attribute ("start", "firstQuartile", "midpoint", "thirdQuartile", "complete"...).
  std::optional<std::string_view> event;
  /// The element's text.
  std::optional<std::string_view> url;
};

}  // namespace zorva
