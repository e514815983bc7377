#pragma once

#include <memory>

#include "Players/ZVAdPlayerDelegate.h"
#include "Players/ZVAdPlaying.h"
#include "Players/ZVPlayerConfig.h"

namespace zorva {

/// Where a received ad meets its player: the VAST player when the configuration expects video,
/// otherwise the display player, with a session tracker when `sessionTime` is not 0. Only the
/// flag decides; the creative is never looked at. Used once per received ad, on the main thread.
class ZVPlayerBuilder {
 public:
  static std::shared_ptr<ZVPlayerBuilder> create() { return std::make_shared<ZVPlayerBuilder>(); }

  const std::shared_ptr<ZVPlayerConfig>& config() const { return config_; }
  void setConfig(std::shared_ptr<ZVPlayerConfig> config) { config_ = std::move(config); }

  /// A new player for `config`, with `delegate` (held weakly) as its delegate. Without a
  /// configuration, a fresh (zeroed) one is used: a display player without ad or tracker.
  std::shared_ptr<ZVAdPlaying> build(std::weak_ptr<ZVAdPlayerDelegate> delegate) const;

 private:
  std::shared_ptr<ZVPlayerConfig> config_;
};

}  // namespace zorva
