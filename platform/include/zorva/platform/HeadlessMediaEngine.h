#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "zorva/platform/MainQueue.h"
#include "zorva/platform/MediaEngine.h"

namespace zorva::platform {

class PlayerItem;

/// The media engine of a machine without a decoder. It decodes nothing; hosts and tests drive
/// what a decoder would report: the duration, readiness, buffered ranges, the play position, a
/// failure, a stall, the end.
///
/// Automatic mode (the default, see `setAutomaticByDefault`): on the main-queue turn after
/// `load`, the media gets `automaticDuration`, becomes ready and is buffered whole; while it
/// plays, the position follows the main queue's clock (so a virtual clock plays a 15-second ad in
/// one `advanceBy`) and the end is reported when the position reaches the duration. Out of
/// automatic mode nothing happens by itself: the position moves only through `setCurrentTime`
/// and `advancePlayTime`. Main thread only.
class HeadlessMediaEngine : public MediaEngine,
                            public std::enable_shared_from_this<HeadlessMediaEngine> {
 public:
  static std::shared_ptr<HeadlessMediaEngine> create(std::weak_ptr<MediaEngineClient> client);
  ~HeadlessMediaEngine() override;

  void load(const URL& url) override;
  void play() override;
  void pause() override;
  MediaTime currentTime() const override;

  // --- driving (hosts and tests) ---

  /// Whether engines made from now on start in automatic mode. Thread-safe.
  static void setAutomaticByDefault(bool automatic);
  static bool automaticByDefault();
  /// The length automatic engines give their media, in seconds (15 unless set). Thread-safe.
  static void setAutomaticDuration(double seconds);
  static double automaticDuration();
  bool isAutomatic() const { return automatic_; }

  /// The engine of `item` when it is a headless one.
  static std::shared_ptr<HeadlessMediaEngine> of(const PlayerItem& item);

  /// What `load` was given.
  const std::optional<URL>& url() const { return url_; }
  /// True between `play` and `pause` or the end.
  bool isPlaying() const { return playing_; }
  /// The duration set so far (invalid until one is set).
  const MediaTime& duration() const { return duration_; }

  /// Reports the media's duration.
  void setDuration(double seconds);
  /// Reports the media ready to play (once).
  void becomeReady();
  /// Reports what is buffered.
  void setLoadedTimeRanges(std::vector<TimeRange> ranges);
  /// Moves the position to `seconds` (clamped to 0...duration once one is known).
  void setCurrentTime(double seconds);
  /// Moves the position on by `seconds` of play, stopping at the duration without ending.
  void advancePlayTime(double seconds);
  /// Fails the media with `error`; it stops playing.
  void fail(const Error& error);
  /// Reports a stall. Playback goes on: the stand-in never runs dry by itself.
  void stall();
  /// Moves the position to the duration, stops, and reports the end.
  void reachEnd();

 private:
  explicit HeadlessMediaEngine(std::weak_ptr<MediaEngineClient> client);
  std::shared_ptr<MediaEngineClient> client() const { return client_.lock(); }
  Duration position() const;
  void setPosition(Duration position);
  void scheduleEnd();
  void cancelEnd();

  std::weak_ptr<MediaEngineClient> client_;
  bool automatic_;
  std::optional<URL> url_;
  MediaTime duration_ = MediaTime::invalid();
  bool ready_ = false;
  bool playing_ = false;
  bool failed_ = false;
  // The position is `anchor_`, plus the clock's progress since `anchorTime_` while an automatic
  // engine plays: reading it costs two subtractions and no allocation.
  Duration anchor_ = Duration::zero();
  TimePoint anchorTime_{};
  std::shared_ptr<Timer> endTimer_;
};

}  // namespace zorva::platform
