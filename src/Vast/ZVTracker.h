#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// One Tracking element: the URL to fetch when the named event happens.
class ZVTracker : public ZVXMLMapper {
 public:
  /// Reads a Tracking element's dictionary.
  void read(const XMLNode& dictionary);

  /// The "event" attribute ("start", "firstQuartile", "midpoint", "thirdQuartile", "complete"...).
  std::optional<std::string> event;
  /// The element's text.
  std::optional<std::string> url;
};

}  // namespace zorva
