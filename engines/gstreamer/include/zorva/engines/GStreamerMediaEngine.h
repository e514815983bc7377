#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "zorva/platform/EngineExport.h"
#include "zorva/platform/MediaEngine.h"

// GStreamer's types, kept out of the SDK's headers.
typedef struct _GstElement GstElement;
typedef struct _GstBus GstBus;
typedef struct _GstMessage GstMessage;
typedef struct _GstQuery GstQuery;

namespace zorva::platform {

/// A media engine that decodes with GStreamer's `playbin`, headless: its audio and video go to
/// sinks that discard them at the pace of the clock, so media plays in real time without a
/// display or a sound card.
///
/// Loading goes to PAUSED; once the media has prerolled with a known length it reports the
/// duration, then readiness. Buffered media is polled every 100 ms (the download buffer of a
/// network URL) and reported as [0, fraction × duration]; a local file counts as buffered whole.
/// A bus error fails the media, the end of stream ends it, and a position that stops moving for
/// `kStallThreshold` while the pipeline plays reports a stall (once per stall).
///
/// Bus messages and polls are served by GLib's default main context, which the GLib bridge runs
/// on the main thread: every report reaches the client there. The engine holds itself weakly in
/// every callback and tears the pipeline down when it goes, so nothing is reported afterwards.
/// Main thread only.
/// The frames of one engine's video, for a screen: written by GStreamer's streaming thread as
/// each frame is rendered (at its presentation time), read by the main thread that draws them.
class ZORVA_ENGINE_EXPORT VideoFrames {
  struct ZORVA_ENGINE_HIDDEN Shared;

 public:
  /// Runs `draw` with the latest frame as 32-bit pixels in native byte order, 0xXXRRGGBB (cairo's
  /// RGB24), while no newer frame may replace it. False, without calling it, before the first.
  bool withLatestFrame(const std::function<void(const unsigned char* pixels, int width, int height,
                                                int stride)>& draw) const;
  /// How many frames have arrived so far.
  std::uint64_t framesReceived() const;

  /// A frame just rendered, before its conversion, handed to a `show` on the streaming thread.
  class ZORVA_ENGINE_EXPORT Incoming {
   public:
    int width() const;
    int height() const;
    /// The number `framesReceived` will have once the frame is counted.
    std::uint64_t number() const { return number_; }
    /// Converts the frame to 32-bit pixels (as `withLatestFrame` gives them) at `pixels`, whose
    /// rows are `stride` bytes apart.
    void convertInto(unsigned char* pixels, int stride) const;

   private:
    friend struct Shared;
    Incoming(const Shared& shared, const void* frame, std::uint64_t number)
        : shared_(shared), frame_(frame), number_(number) {}
    const Shared& shared_;
    const void* frame_;
    std::uint64_t number_;
  };
  /// Lets `show` put each new frame on the screen itself as it arrives, on the streaming thread,
  /// converting it straight into its own memory. When it answers true the frame is counted but
  /// not kept (`withLatestFrame` keeps giving the one before), and the engine's `frameArrived`
  /// does not run for it; when false, the frame is kept and announced as usual. A later call
  /// replaces `show`; null takes it away, and once that call returns `show` is neither running
  /// nor called again.
  void showOnStreamingThread(std::function<bool(const Incoming& frame)> show);

 private:
  friend class GStreamerMediaEngine;
  explicit VideoFrames(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}
  std::shared_ptr<Shared> shared_;
};

class ZORVA_ENGINE_EXPORT GStreamerMediaEngine
    : public MediaEngine,
      public std::enable_shared_from_this<GStreamerMediaEngine> {
 public:
  /// How long the position may stand still while playing before a stall is reported.
  static constexpr std::chrono::milliseconds kStallThreshold{1500};
  /// How often buffering and progress are looked at.
  static constexpr std::chrono::milliseconds kPollInterval{100};

  /// Host start-up: initialises GStreamer, installs the GLib main-loop bridge and makes every
  /// later player item decode with this engine. False (with the reason in `*whyNot` when given)
  /// when GStreamer cannot start or has no `playbin`; nothing is installed then.
  static bool install(std::string* whyNot = nullptr);
  static std::shared_ptr<GStreamerMediaEngine> create(std::weak_ptr<MediaEngineClient> client);

  /// Off (the default): sound goes to a sink that discards it at the pace of the clock. On (an
  /// on-screen host turns it on): media loaded from then on plays its sound through the
  /// system's audio output (`autoaudiosink`) when there is one, and discards it as before when
  /// there is none. Thread-safe.
  static void setPlaysSound(bool plays);
  ~GStreamerMediaEngine() override;
  GStreamerMediaEngine(const GStreamerMediaEngine&) = delete;
  GStreamerMediaEngine& operator=(const GStreamerMediaEngine&) = delete;

  /// Builds the pipeline for `url` and prerolls it. Once per engine; a later call does nothing.
  void load(const URL& url) override;
  void play() override;
  void pause() override;
  /// The sink's position, never behind the last one read nor past the duration; the duration
  /// after the end. Asks the sink with one query made at load, so a read allocates nothing.
  MediaTime currentTime() const override;

  /// Puts the video on a screen: from now on every frame the video sink renders is converted
  /// once to 32-bit RGB and kept as the latest frame, and `frameArrived` runs on the main
  /// thread after each (at most one call waits at a time). Until a host asks, frames are
  /// discarded without conversion. The same frames for every call; a later call replaces
  /// `frameArrived`.
  std::shared_ptr<VideoFrames> showVideo(std::function<void()> frameArrived);
  /// Takes the video off the screen: frames are discarded unconverted again and `frameArrived`
  /// is no longer called.
  void hideVideo();

  /// The pipeline (`playbin`), null before `load`. For diagnostics and tests.
  GstElement* pipeline() const { return pipeline_; }

 private:
  explicit GStreamerMediaEngine(std::weak_ptr<MediaEngineClient> client);
  std::shared_ptr<MediaEngineClient> client() const { return client_.lock(); }

  static int busCallback(GstBus* bus, GstMessage* message, void* data);
  static int pollCallback(void* data);
  void handleMessage(GstMessage* message);
  // Reports a new duration; the first one known once prerolled makes the media ready.
  void updateDuration();
  void poll();
  void pollBuffering();
  void watchProgress();
  void fail(const Error& error);
  void stopPolling();
  // Hands the video sink's rendered frames to `frames_`.
  void showFrames();
  // Nanoseconds of the sink's position, or -1 when the sink does not answer.
  long long queryPosition() const;

  std::weak_ptr<MediaEngineClient> client_;
  std::shared_ptr<VideoFrames::Shared> frames_;
  GstElement* pipeline_ = nullptr;
  GstElement* videoSink_ = nullptr;
  GstElement* audioSink_ = nullptr;
  // The sink that renders the media's clock-driven stream, chosen once prerolled.
  GstElement* positionSink_ = nullptr;
  GstQuery* positionQuery_ = nullptr;
  unsigned busWatch_ = 0;
  unsigned pollSource_ = 0;
  bool network_ = false;
  long long durationNs_ = -1;
  // The end of the buffered span last reported.
  long long bufferedNs_ = -1;
  // Read by `currentTime` (const) to keep the position from going back.
  mutable long long lastPositionNs_ = 0;
  bool prerolled_ = false;
  bool ready_ = false;
  bool fullyBuffered_ = false;
  bool wantsToPlay_ = false;
  bool pipelinePlaying_ = false;
  bool ended_ = false;
  bool failed_ = false;
  bool stalled_ = false;
  long long progressPositionNs_ = -1;
  std::chrono::steady_clock::time_point progressAt_{};
};

}  // namespace zorva::platform
