#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Vast/ZVTracker.h"
#include "Vast/ZVVastAdItem.h"

namespace zorva {

/// The one creative an ad keeps: a linear (`ZVVastLinear`) or a non-linear (`ZVVastNonLinear`)
/// one. Creatives are immutable once made, so any thread may read them.
class ZVVastCreative {
 public:
  virtual ~ZVVastCreative() = default;

  /// The creative's items in document order; nothing when the creative has no item list.
  virtual std::optional<std::vector<std::shared_ptr<ZVVastAdItem>>> adItems() const = 0;
  virtual const std::vector<std::shared_ptr<ZVTracker>>& trackers() const = 0;
  virtual const std::optional<std::string_view>& clickThrough() const = 0;
  /// Click-tracking URLs (VideoClicks/ClickTracking, NonLinearClickTracking). Read only while
  /// `ZorvaSDK::trackingTransport` is on when the document is read; empty otherwise.
  virtual const std::vector<std::string>& clickTrackers() const = 0;
  /// What a creative player shows when the creative is markup rather than a media file.
  virtual std::optional<std::string> creativeContent() const = 0;
  /// Whether the creative has something of one of `mimes` to play.
  virtual bool itemExistsForMime(const std::vector<std::string>& mimes) const = 0;
};

}  // namespace zorva
