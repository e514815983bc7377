#pragma once

#include <memory>

#include "zorva/platform/MediaTime.h"
#include "zorva/platform/URL.h"

namespace zorva::platform {

/// The media behind a player item (`AVURLAsset`): its URL and, once the engine knows it, its
/// duration. Main thread only.
class Asset {
 public:
  static std::shared_ptr<Asset> create(const URL& url);

  const URL& url() const { return url_; }
  /// Invalid (NaN seconds) until the media's duration is known.
  const MediaTime& duration() const { return duration_; }

 private:
  friend class PlayerItem;
  explicit Asset(URL url) : url_(std::move(url)) {}

  URL url_;
  MediaTime duration_ = MediaTime::invalid();
};

}  // namespace zorva::platform
