#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "zorva/platform/Error.h"
#include "zorva/platform/MediaTime.h"
#include "zorva/platform/URL.h"

namespace zorva::platform {

/// What a media engine reports about the media it loads. The player item turns these into its
/// status, duration, loaded ranges and notifications. Every report is made on the main thread: an
/// engine that decodes on threads of its own posts its reports to the main queue.
class MediaEngineClient {
 public:
  virtual ~MediaEngineClient() = default;

  /// The media's length is known, or changed (indefinite for a live stream).
  virtual void mediaEngineDidLoadDuration(const MediaTime& duration) = 0;
  /// The media can be played.
  virtual void mediaEngineDidBecomeReady() = 0;
  /// The spans of media now buffered, replacing the earlier ones.
  virtual void mediaEngineDidLoadTimeRanges(const std::vector<TimeRange>& ranges) = 0;
  /// Playback reached the end of the media; the engine stops there.
  virtual void mediaEngineDidPlayToEnd() = 0;
  /// Playback ran out of buffered media.
  virtual void mediaEngineDidStall() = 0;
  /// The media cannot be loaded or played any further.
  virtual void mediaEngineDidFail(const Error& error) = 0;
};

/// Decodes and renders the media of one player item: URL in; readiness, duration, buffered
/// ranges, position, end, stalls and failures out; told to play and pause. The headless engine is
/// the default; a host installs another (a GStreamer engine) at start-up with `setFactory`.
/// Main thread only.
class MediaEngine {
 public:
  using Factory = std::function<std::shared_ptr<MediaEngine>(std::weak_ptr<MediaEngineClient>)>;

  virtual ~MediaEngine() = default;

  /// Starts loading `url`; reports follow on later main-queue turns.
  virtual void load(const URL& url) = 0;
  virtual void play() = 0;
  virtual void pause() = 0;
  /// The playback position. Read on every tick of a periodic time observer (hundreds of times a
  /// second): it must be cheap and must not allocate.
  virtual MediaTime currentTime() const = 0;

  /// Installs the factory of every later item's engine (empty: the headless engine).
  static void setFactory(Factory factory);
  /// An engine from the installed factory, or a headless one when there is none or it made none.
  static std::shared_ptr<MediaEngine> make(std::weak_ptr<MediaEngineClient> client);
};

}  // namespace zorva::platform
