#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "zorva/platform/MediaTime.h"
#include "zorva/platform/PlayerItem.h"

namespace zorva::platform {

/// Plays one player item (`AVPlayer`) and reports the play time to periodic observers.
///
/// A periodic observer's block runs on the main queue: when playback starts, every `interval`
/// of clock time while it plays, and when it stops (pause, end, failure), each time with the
/// item's position. A tick reads the position and calls the block: nothing is allocated on the
/// way. The end of the item stops playback (the rate drops to 0) after a last report at the
/// final position; `play` on an item that has played to its end does nothing, as nothing seeks
/// back. Main thread only.
class Player : public std::enable_shared_from_this<Player> {
 public:
  using TimeObserverBlock = std::function<void(const MediaTime& time)>;
  /// The opaque token of a periodic observer.
  class TimeObserver;

  /// `playerWithPlayerItem`.
  static std::shared_ptr<Player> create(std::shared_ptr<PlayerItem> item);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  const std::shared_ptr<PlayerItem>& currentItem() const { return item_; }
  void play();
  void pause();
  /// 1 while playing, 0 otherwise.
  float rate() const { return rate_; }
  MediaTime currentTime() const;

  /// Recorded for the engine's buffering policy; the headless engine never runs dry.
  bool automaticallyWaitsToMinimizeStalling() const { return waitsToMinimizeStalling_; }
  void setAutomaticallyWaitsToMinimizeStalling(bool flag) { waitsToMinimizeStalling_ = flag; }

  /// Starts reporting the time to `block` every `interval` of play (on the main queue). The
  /// player keeps the observer until `removeTimeObserver`.
  std::shared_ptr<TimeObserver> addPeriodicTimeObserverForInterval(const MediaTime& interval,
                                                                   TimeObserverBlock block);
  void removeTimeObserver(const std::shared_ptr<TimeObserver>& observer);

 private:
  friend class PlayerItem;
  explicit Player(std::shared_ptr<PlayerItem> item) : item_(std::move(item)) {}

  void startTicking(const std::shared_ptr<TimeObserver>& observer);
  void stopTicking();
  void postTimeReport();
  void reportTime();
  // The item ended or failed: playback stops.
  void itemDidStop();

  std::shared_ptr<PlayerItem> item_;
  float rate_ = 0;
  bool waitsToMinimizeStalling_ = false;
  std::vector<std::shared_ptr<TimeObserver>> timeObservers_;
};

}  // namespace zorva::platform
