#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zorva/platform/Asset.h"
#include "zorva/platform/Error.h"
#include "zorva/platform/KeyValueObserver.h"
#include "zorva/platform/MediaEngine.h"
#include "zorva/platform/MediaTime.h"
#include "zorva/platform/URL.h"

namespace zorva::platform {

class Player;

enum class PlayerItemStatus : long { Unknown = 0, ReadyToPlay = 1, Failed = 2 };

/// Posted by an item (the sender) that played to its end.
inline constexpr const char* kPlayerItemDidPlayToEndTimeNotification =
    "AVPlayerItemDidPlayToEndTimeNotification";
/// Posted by an item (the sender) whose playback ran out of buffered media.
inline constexpr const char* kPlayerItemPlaybackStalledNotification =
    "AVPlayerItemPlaybackStalledNotification";
/// A user-info key of the failed-to-play-to-end report. It names no notification: nothing is ever
/// posted under this name.
inline constexpr const char* kPlayerItemFailedToPlayToEndTimeErrorKey =
    "AVPlayerItemFailedToPlayToEndTimeErrorKey";

/// The state of one piece of media as a player plays it (`AVPlayerItem`): status, buffered
/// ranges, position. It owns the media engine that loads its URL; loading starts when the item
/// is made.
///
/// Observable key paths: "status" and "loadedTimeRanges" (see `KeyValueObserver`). The status
/// moves from unknown to ready, and to failed (with `error`) from either; it never goes back.
/// Notifications, posted on the default centre with the item as sender: the end of play and a
/// stall. Main thread only.
class PlayerItem : public std::enable_shared_from_this<PlayerItem>, private MediaEngineClient {
 public:
  static constexpr const char* kStatusKeyPath = "status";
  static constexpr const char* kLoadedTimeRangesKeyPath = "loadedTimeRanges";

  /// `playerItemWithURL`: an item, with a new engine loading `url`.
  static std::shared_ptr<PlayerItem> create(const URL& url);

  const std::shared_ptr<Asset>& asset() const { return asset_; }
  PlayerItemStatus status() const { return status_; }
  /// Why the item failed, once it has.
  const std::optional<Error>& error() const { return error_; }
  const std::vector<TimeRange>& loadedTimeRanges() const { return loadedTimeRanges_; }
  /// The asset's duration.
  const MediaTime& duration() const { return asset_->duration(); }
  MediaTime currentTime() const { return engine_->currentTime(); }
  /// True once the item played to its end.
  bool didPlayToEnd() const { return didPlayToEnd_; }
  const std::shared_ptr<MediaEngine>& engine() const { return engine_; }

  /// Reports changes of `keyPath` to `observer` until removed or until the observer is gone. A
  /// second registration of the same pair reports twice, as the platform does.
  void addObserver(std::weak_ptr<KeyValueObserver> observer, std::string keyPath);
  /// Removes one registration of `observer` for `keyPath`; none is fine.
  void removeObserver(const KeyValueObserver* observer, std::string_view keyPath);

 private:
  friend class Player;
  struct Observation {
    const KeyValueObserver* key;
    std::weak_ptr<KeyValueObserver> observer;
    std::string keyPath;
  };

  explicit PlayerItem(const URL& url) : asset_(Asset::create(url)) {}

  void mediaEngineDidLoadDuration(const MediaTime& duration) override;
  void mediaEngineDidBecomeReady() override;
  void mediaEngineDidLoadTimeRanges(const std::vector<TimeRange>& ranges) override;
  void mediaEngineDidPlayToEnd() override;
  void mediaEngineDidStall() override;
  void mediaEngineDidFail(const Error& error) override;

  void didChangeValueForKey(const std::string& keyPath);

  std::shared_ptr<Asset> asset_;
  std::shared_ptr<MediaEngine> engine_;
  std::weak_ptr<Player> player_;
  PlayerItemStatus status_ = PlayerItemStatus::Unknown;
  std::optional<Error> error_;
  std::vector<TimeRange> loadedTimeRanges_;
  bool didPlayToEnd_ = false;
  std::vector<Observation> observations_;
};

}  // namespace zorva::platform
