#pragma once

#include <optional>

#include <zorva/platform/URL.h>

namespace zorva {

/// A playable item of a creative: a media file of a linear creative, the static resource of a
/// non-linear one.
class ZVVastAdItem {
 public:
  virtual ~ZVVastAdItem() = default;
  /// The URL made from the item's text; nothing when there is no text or it is not a valid URL.
  virtual std::optional<platform::URL> url() const = 0;
};

}  // namespace zorva
