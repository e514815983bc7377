#include "zorva/engines/GStreamerMediaEngine.h"

#include <gst/base/gstbasesink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <atomic>
#include <mutex>

#include "zorva/engines/GLibMainLoopBridge.h"
#include "zorva/platform/MainQueue.h"

namespace zorva::platform {

namespace {

// playbin's GST_PLAY_FLAG_DOWNLOAD: network media goes through a download buffer, which is what
// answers the buffering query with a growing range.
constexpr guint kPlayFlagDownload = 0x80;
constexpr std::int32_t kNanosecondTimescale = 1'000'000'000;
constexpr const char* kDomain = "GStreamer";

using WeakEngine = std::weak_ptr<GStreamerMediaEngine>;

void deleteWeakEngine(gpointer data) { delete static_cast<WeakEngine*>(data); }

MediaTime nanoseconds(long long ns) { return MediaTime::make(ns, kNanosecondTimescale); }

// A discarding sink that still renders at the pace of the pipeline clock.
GstElement* makeSink(const char* name) {
  GstElement* sink = gst_element_factory_make("fakesink", name);
  if (!sink) return nullptr;
  gst_object_ref_sink(sink);
  g_object_set(sink, "sync", TRUE, nullptr);
  return sink;
}

std::atomic<bool> playsSound{false};

// The system's audio output when it has one, else the discarding sink: autoaudiosink settles on
// a real device when it reaches READY, and on a fake sink of its own when none answers.
GstElement* makeAudioSink() {
  if (!playsSound) return makeSink("zorva-audio-sink");
  GstElement* output = gst_element_factory_make("autoaudiosink", "zorva-audio-sink");
  if (output && gst_element_set_state(output, GST_STATE_READY) != GST_STATE_CHANGE_FAILURE) {
    bool device = false;
    GstIterator* children = gst_bin_iterate_sinks(GST_BIN(output));
    GValue child = G_VALUE_INIT;
    while (gst_iterator_next(children, &child) == GST_ITERATOR_OK) {
      GstElementFactory* factory = gst_element_get_factory(GST_ELEMENT(g_value_get_object(&child)));
      const char* name = factory ? gst_plugin_feature_get_name(factory) : "";
      device = device || std::string(name).rfind("fake", 0) != 0;
      g_value_reset(&child);
    }
    g_value_unset(&child);
    gst_iterator_free(children);
    if (device) return GST_ELEMENT(gst_object_ref_sink(output));
    gst_element_set_state(output, GST_STATE_NULL);
  }
  if (output) gst_object_unref(gst_object_ref_sink(output));
  return makeSink("zorva-audio-sink");
}

bool isNetworkScheme(const std::string& scheme) { return scheme == "http" || scheme == "https"; }

}  // namespace

/// What the streaming thread and the main thread share about the frames on a screen.
struct VideoFrames::Shared : std::enable_shared_from_this<VideoFrames::Shared> {
  ~Shared() {
    if (caps) gst_caps_unref(caps);
    if (converter) gst_video_converter_free(converter);
    if (back) gst_buffer_unref(back);
    if (front) gst_buffer_unref(front);
  }

  // Streaming thread only: the incoming caps (read again only when the pad's change), their format
  // and its converter to 32-bit RGB.
  GstCaps* caps = nullptr;
  GstVideoInfo incoming{};
  GstVideoConverter* converter = nullptr;

  mutable std::mutex mutex;
  // Under `mutex`: the frame drawn from (front) and its format; the frame being converted into
  // (back) is the streaming thread's alone.
  GstVideoInfo outgoing{};
  GstBuffer* front = nullptr;
  GstBuffer* back = nullptr;
  std::function<void()> frameArrived;

  std::atomic<std::uint64_t> received{0};
  std::atomic<bool> arrivalPosted{false};

  // Held while `show` runs, so that taking it away waits for a call in progress.
  std::mutex showMutex;
  std::function<bool(const VideoFrames::Incoming&)> show;

  // One rendered frame, on the streaming thread: converted and kept, or put on the screen by
  // `show`; the main thread hears of a kept one (one notice waits at a time).
  void rendered(GstBuffer* buffer, GstPad* pad) {
    if (take(buffer, pad) || arrivalPosted.exchange(true)) return;
    MainQueue::shared().post([weak = weak_from_this()] {
      auto self = weak.lock();
      if (!self) return;
      self->arrivalPosted = false;
      std::function<void()> arrived;
      {
        std::lock_guard lock(self->mutex);
        arrived = self->frameArrived;
      }
      if (arrived) arrived();
    });
  }

  // True when `show` put the frame on the screen.
  bool take(GstBuffer* buffer, GstPad* pad) {
    GstCaps* current = gst_pad_get_current_caps(pad);
    if (!current) return false;
    if (current == caps) {
      gst_caps_unref(current);
    } else {
      if (caps) gst_caps_unref(caps);
      caps = current;
      GstVideoInfo info;
      if (!gst_video_info_from_caps(&info, caps)) {
        gst_caps_unref(caps);
        caps = nullptr;
        return false;
      }
      if (!converter || !gst_video_info_is_equal(&info, &incoming)) changeFormat(info);
    }
    if (!converter) return false;
    GstVideoFrame in;
    if (!gst_video_frame_map(&in, &incoming, buffer, GST_MAP_READ)) return false;
    const bool shown = showIncoming(in);
    if (!shown) keep(in);
    gst_video_frame_unmap(&in);
    return shown;
  }

  bool showIncoming(const GstVideoFrame& in) {
    std::lock_guard lock(showMutex);
    if (!show || !show(VideoFrames::Incoming(*this, &in, received.load() + 1))) return false;
    ++received;
    return true;
  }

  // A new incoming format: a converter for it, and frames of its size.
  void changeFormat(const GstVideoInfo& info) {
    if (converter) gst_video_converter_free(converter);
    incoming = info;
    GstVideoInfo rgb;
    gst_video_info_set_format(&rgb, GST_VIDEO_FORMAT_BGRx, GST_VIDEO_INFO_WIDTH(&info),
                              GST_VIDEO_INFO_HEIGHT(&info));
    // Only the format changes: the converter wants the rest alike.
    GST_VIDEO_INFO_FPS_N(&rgb) = GST_VIDEO_INFO_FPS_N(&info);
    GST_VIDEO_INFO_FPS_D(&rgb) = GST_VIDEO_INFO_FPS_D(&info);
    GST_VIDEO_INFO_PAR_N(&rgb) = GST_VIDEO_INFO_PAR_N(&info);
    GST_VIDEO_INFO_PAR_D(&rgb) = GST_VIDEO_INFO_PAR_D(&info);
    converter = gst_video_converter_new(&incoming, &rgb, nullptr);
    std::lock_guard lock(mutex);
    outgoing = rgb;
    if (back) gst_buffer_unref(back);
    if (front) gst_buffer_unref(front);
    back = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&rgb), nullptr);
    front = nullptr;
  }

  // Converts the frame into the back buffer and makes it the latest.
  void keep(const GstVideoFrame& in) {
    GstVideoFrame out;
    if (!gst_video_frame_map(&out, &outgoing, back, GST_MAP_WRITE)) return;
    gst_video_converter_frame(converter, &in, &out);
    gst_video_frame_unmap(&out);
    {
      std::lock_guard lock(mutex);
      std::swap(front, back);
      if (!back) back = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&outgoing), nullptr);
    }
    ++received;
  }
};

namespace {

// Where a video sink hands its rendered frames: nowhere while no screen shows the video. Set on
// the main thread, read on the streaming thread.
struct SinkFrames {
  std::mutex mutex;
  std::function<void(GstBuffer*, GstPad*)> rendered;
};

}  // namespace

extern "C" {

// The video sink: renders at the pace of the pipeline clock and discards, as a synchronised
// fakesink does, and hands each rendered frame to the screen showing the video with a plain call
// (fakesink's "handoff" signal would collect and marshal its arguments for every frame).
struct ZorvaFrameSink {
  GstBaseSink parent;
  SinkFrames* sinkFrames;
};

struct ZorvaFrameSinkClass {
  GstBaseSinkClass parent;
};

G_DEFINE_TYPE(ZorvaFrameSink, zorva_frame_sink, GST_TYPE_BASE_SINK)

static GstStaticPadTemplate frameSinkPad =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

static void zorva_frame_sink_init(ZorvaFrameSink* sink) {
  sink->sinkFrames = new SinkFrames();
  gst_base_sink_set_sync(GST_BASE_SINK(sink), TRUE);
}

static void frameSinkFinalize(GObject* object) {
  delete reinterpret_cast<ZorvaFrameSink*>(object)->sinkFrames;
  G_OBJECT_CLASS(zorva_frame_sink_parent_class)->finalize(object);
}

static GstFlowReturn frameSinkRender(GstBaseSink* base, GstBuffer* buffer) {
  SinkFrames* sinkFrames = reinterpret_cast<ZorvaFrameSink*>(base)->sinkFrames;
  std::function<void(GstBuffer*, GstPad*)> rendered;
  {
    std::lock_guard lock(sinkFrames->mutex);
    rendered = sinkFrames->rendered;
  }
  if (rendered) rendered(buffer, GST_BASE_SINK_PAD(base));
  return GST_FLOW_OK;
}

static void zorva_frame_sink_class_init(ZorvaFrameSinkClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = frameSinkFinalize;
  GST_BASE_SINK_CLASS(klass)->render = frameSinkRender;
  GstElementClass* element = GST_ELEMENT_CLASS(klass);
  gst_element_class_add_static_pad_template(element, &frameSinkPad);
  gst_element_class_set_static_metadata(element, "Zorva frame sink", "Sink/Video",
                                        "Discards frames at the clock's pace, or hands them to a "
                                        "screen",
                                        "Zorva SDK");
}

}  // extern "C"

namespace {

void setRendered(GstElement* sink, std::function<void(GstBuffer*, GstPad*)> rendered) {
  SinkFrames* sinkFrames = reinterpret_cast<ZorvaFrameSink*>(sink)->sinkFrames;
  std::lock_guard lock(sinkFrames->mutex);
  sinkFrames->rendered = std::move(rendered);
}

}  // namespace

bool VideoFrames::withLatestFrame(
    const std::function<void(const unsigned char*, int, int, int)>& draw) const {
  std::lock_guard lock(shared_->mutex);
  if (!shared_->front) return false;
  GstVideoFrame frame;
  if (!gst_video_frame_map(&frame, &shared_->outgoing, shared_->front, GST_MAP_READ)) return false;
  draw(static_cast<const unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)),
       GST_VIDEO_FRAME_WIDTH(&frame), GST_VIDEO_FRAME_HEIGHT(&frame),
       GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0));
  gst_video_frame_unmap(&frame);
  return true;
}

std::uint64_t VideoFrames::framesReceived() const { return shared_->received.load(); }

int VideoFrames::Incoming::width() const { return GST_VIDEO_INFO_WIDTH(&shared_.outgoing); }
int VideoFrames::Incoming::height() const { return GST_VIDEO_INFO_HEIGHT(&shared_.outgoing); }

void VideoFrames::Incoming::convertInto(unsigned char* pixels, int stride) const {
  GstVideoInfo info = shared_.outgoing;
  GST_VIDEO_INFO_PLANE_STRIDE(&info, 0) = stride;
  info.size = static_cast<gsize>(stride) * GST_VIDEO_INFO_HEIGHT(&info);
  GstBuffer* wrapped = gst_buffer_new_wrapped_full(GstMemoryFlags(0), pixels, info.size, 0,
                                                   info.size, nullptr, nullptr);
  GstVideoFrame out;
  if (gst_video_frame_map(&out, &info, wrapped, GST_MAP_WRITE)) {
    gst_video_converter_frame(shared_.converter, static_cast<const GstVideoFrame*>(frame_), &out);
    gst_video_frame_unmap(&out);
  }
  gst_buffer_unref(wrapped);
}

void VideoFrames::showOnStreamingThread(std::function<bool(const Incoming&)> show) {
  std::lock_guard lock(shared_->showMutex);
  shared_->show = std::move(show);
}

bool GStreamerMediaEngine::install(std::string* whyNot) {
  GError* error = nullptr;
  if (!gst_init_check(nullptr, nullptr, &error)) {
    if (whyNot) *whyNot = error ? error->message : "GStreamer could not be initialised";
    g_clear_error(&error);
    return false;
  }
  for (const char* factoryName : {"playbin", "fakesink"}) {
    GstElementFactory* factory = gst_element_factory_find(factoryName);
    if (!factory) {
      if (whyNot) *whyNot = std::string("GStreamer has no ") + factoryName + " element";
      return false;
    }
    gst_object_unref(factory);
  }
  GLibMainLoopBridge::install();
  MediaEngine::setFactory(
      [](std::weak_ptr<MediaEngineClient> client) -> std::shared_ptr<MediaEngine> {
        return GStreamerMediaEngine::create(std::move(client));
      });
  return true;
}

void GStreamerMediaEngine::setPlaysSound(bool plays) { playsSound = plays; }

std::shared_ptr<GStreamerMediaEngine> GStreamerMediaEngine::create(
    std::weak_ptr<MediaEngineClient> client) {
  return std::shared_ptr<GStreamerMediaEngine>(new GStreamerMediaEngine(std::move(client)));
}

GStreamerMediaEngine::GStreamerMediaEngine(std::weak_ptr<MediaEngineClient> client)
    : client_(std::move(client)) {}

GStreamerMediaEngine::~GStreamerMediaEngine() {
  stopPolling();
  if (pipeline_) {
    if (busWatch_ != 0) {
      GstBus* bus = gst_element_get_bus(pipeline_);
      gst_bus_remove_watch(bus);
      gst_object_unref(bus);
    }
    // Joins the streaming threads: nothing of the pipeline runs once this returns.
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
  }
  if (positionQuery_) gst_query_unref(positionQuery_);
  if (videoSink_) gst_object_unref(videoSink_);
  if (audioSink_) gst_object_unref(audioSink_);
}

void GStreamerMediaEngine::load(const URL& url) {
  if (pipeline_ || failed_) return;
  pipeline_ = gst_element_factory_make("playbin", nullptr);
  videoSink_ = GST_ELEMENT(gst_object_ref_sink(
      g_object_new(zorva_frame_sink_get_type(), "name", "zorva-video-sink", nullptr)));
  audioSink_ = makeAudioSink();
  if (videoSink_ && frames_) showFrames();
  if (!pipeline_ || !videoSink_ || !audioSink_) {
    if (pipeline_) gst_object_unref(gst_object_ref_sink(pipeline_));
    pipeline_ = nullptr;
    // Reports come on a later turn, as they do for every other failure.
    MainQueue::shared().post([weakSelf = weak_from_this()] {
      if (auto self = weakSelf.lock()) {
        self->fail(Error::withDescription(kDomain, 0, "GStreamer has no playbin or fakesink"));
      }
    });
    return;
  }
  gst_object_ref_sink(pipeline_);
  g_object_set(pipeline_, "uri", url.absoluteString().c_str(), "video-sink", videoSink_,
               "audio-sink", audioSink_, nullptr);
  network_ = isNetworkScheme(url.scheme());
  if (network_) {
    guint flags = 0;
    g_object_get(pipeline_, "flags", &flags, nullptr);
    g_object_set(pipeline_, "flags", flags | kPlayFlagDownload, nullptr);
  }
  positionQuery_ = gst_query_new_position(GST_FORMAT_TIME);

  GstBus* bus = gst_element_get_bus(pipeline_);
  busWatch_ = gst_bus_add_watch_full(bus, G_PRIORITY_DEFAULT, &busCallback,
                                     new WeakEngine(weak_from_this()), deleteWeakEngine);
  gst_object_unref(bus);
  pollSource_ = g_timeout_add_full(G_PRIORITY_DEFAULT, kPollInterval.count(), &pollCallback,
                                   new WeakEngine(weak_from_this()), deleteWeakEngine);

  if (gst_element_set_state(pipeline_, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
    // The bus normally carries the reason; this covers a refusal that posts none.
    MainQueue::shared().post([weakSelf = weak_from_this()] {
      if (auto self = weakSelf.lock()) {
        self->fail(Error::withDescription(kDomain, GST_STATE_CHANGE_FAILURE,
                                          "The media could not be opened"));
      }
    });
  }
}

std::shared_ptr<VideoFrames> GStreamerMediaEngine::showVideo(std::function<void()> frameArrived) {
  if (!frames_) frames_ = std::make_shared<VideoFrames::Shared>();
  {
    std::lock_guard lock(frames_->mutex);
    frames_->frameArrived = std::move(frameArrived);
  }
  if (videoSink_) showFrames();
  return std::shared_ptr<VideoFrames>(new VideoFrames(frames_));
}

void GStreamerMediaEngine::hideVideo() {
  if (!frames_) return;
  if (videoSink_) setRendered(videoSink_, nullptr);
  std::lock_guard lock(frames_->mutex);
  frames_->frameArrived = nullptr;
}

void GStreamerMediaEngine::showFrames() {
  setRendered(videoSink_, [frames = frames_](GstBuffer* buffer, GstPad* pad) {
    frames->rendered(buffer, pad);
  });
}

void GStreamerMediaEngine::play() {
  wantsToPlay_ = true;
  if (pipeline_ && !failed_ && !ended_) gst_element_set_state(pipeline_, GST_STATE_PLAYING);
}

void GStreamerMediaEngine::pause() {
  wantsToPlay_ = false;
  if (pipeline_ && !failed_ && !ended_) gst_element_set_state(pipeline_, GST_STATE_PAUSED);
}

MediaTime GStreamerMediaEngine::currentTime() const {
  if (ended_ && durationNs_ >= 0) return nanoseconds(durationNs_);
  const long long position = queryPosition();
  if (position >= 0) {
    lastPositionNs_ = std::max(lastPositionNs_, position);
    if (durationNs_ >= 0) lastPositionNs_ = std::min(lastPositionNs_, durationNs_);
  }
  return nanoseconds(lastPositionNs_);
}

long long GStreamerMediaEngine::queryPosition() const {
  if (!positionSink_ || failed_) return -1;
  // The query is ours alone (one reference), so the sink may fill it again on every read.
  if (!gst_element_query(positionSink_, positionQuery_)) return -1;
  gint64 position = -1;
  gst_query_parse_position(positionQuery_, nullptr, &position);
  return position;
}

int GStreamerMediaEngine::busCallback(GstBus*, GstMessage* message, void* data) {
  if (auto self = static_cast<WeakEngine*>(data)->lock()) self->handleMessage(message);
  return G_SOURCE_CONTINUE;
}

int GStreamerMediaEngine::pollCallback(void* data) {
  if (auto self = static_cast<WeakEngine*>(data)->lock()) self->poll();
  return G_SOURCE_CONTINUE;
}

void GStreamerMediaEngine::handleMessage(GstMessage* message) {
  if (failed_) return;
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR: {
      GError* error = nullptr;
      gst_message_parse_error(message, &error, nullptr);
      fail(Error::withDescription(error ? g_quark_to_string(error->domain) : kDomain,
                                  error ? error->code : 0,
                                  error ? error->message : "The media cannot be played"));
      g_clear_error(&error);
      break;
    }
    case GST_MESSAGE_EOS:
      if (ended_) break;
      ended_ = true;
      wantsToPlay_ = false;
      if (durationNs_ >= 0) lastPositionNs_ = durationNs_;
      if (auto c = client()) c->mediaEngineDidPlayToEnd();
      break;
    case GST_MESSAGE_STATE_CHANGED:
      if (GST_MESSAGE_SRC(message) == GST_OBJECT(pipeline_)) {
        GstState state = GST_STATE_VOID_PENDING;
        gst_message_parse_state_changed(message, nullptr, &state, nullptr);
        pipelinePlaying_ = state == GST_STATE_PLAYING;
      }
      break;
    case GST_MESSAGE_ASYNC_DONE:
      prerolled_ = true;
      updateDuration();
      break;
    case GST_MESSAGE_DURATION_CHANGED:
      // A demuxer may know the length before the sinks have a frame: not ready yet.
      if (prerolled_) updateDuration();
      break;
    default:
      break;
  }
}

void GStreamerMediaEngine::updateDuration() {
  gint64 duration = -1;
  if (!gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &duration) || duration < 0) return;
  if (ready_ && duration == durationNs_) return;
  durationNs_ = duration;
  // The client may drop this engine from inside a report: keep it until the reports are done.
  auto self = shared_from_this();
  if (auto c = client()) c->mediaEngineDidLoadDuration(nanoseconds(durationNs_));
  if (ready_) return;
  ready_ = true;
  // Prefer the video sink: playbin leaves the sink of a missing stream out of the pipeline.
  positionSink_ = GST_OBJECT_PARENT(videoSink_)   ? videoSink_
                  : GST_OBJECT_PARENT(audioSink_) ? audioSink_
                                                  : pipeline_;
  if (auto c = client()) c->mediaEngineDidBecomeReady();
  if (failed_) return;
  if (network_) {
    pollBuffering();
  } else {
    fullyBuffered_ = true;
    if (auto c = client())
      c->mediaEngineDidLoadTimeRanges({TimeRange{MediaTime::zero(), nanoseconds(durationNs_)}});
  }
}

void GStreamerMediaEngine::poll() {
  if (failed_) return;
  auto self = shared_from_this();
  if (ready_ && !fullyBuffered_) pollBuffering();
  watchProgress();
}

void GStreamerMediaEngine::pollBuffering() {
  GstQuery* query = gst_query_new_buffering(GST_FORMAT_PERCENT);
  double fraction = 1.0;
  if (gst_element_query(pipeline_, query)) {
    GstFormat format = GST_FORMAT_UNDEFINED;
    gint64 start = -1;
    gint64 stop = -1;
    gst_query_parse_buffering_range(query, &format, &start, &stop, nullptr);
    if (format == GST_FORMAT_PERCENT && stop >= 0) {
      fraction = std::clamp(static_cast<double>(stop) / GST_FORMAT_PERCENT_MAX, 0.0, 1.0);
    }
  }
  gst_query_unref(query);
  // An unanswered query means nothing is downloading in the background: the source serves the
  // media as it plays, so all of it counts as available.
  fullyBuffered_ = fraction >= 1.0;
  const auto buffered = static_cast<long long>(fraction * static_cast<double>(durationNs_));
  if (buffered == bufferedNs_) return;
  bufferedNs_ = buffered;
  if (auto c = client()) {
    c->mediaEngineDidLoadTimeRanges({TimeRange{MediaTime::zero(), nanoseconds(buffered)}});
  }
}

void GStreamerMediaEngine::watchProgress() {
  if (!(wantsToPlay_ && pipelinePlaying_ && ready_) || ended_ || failed_) {
    // Measuring starts afresh when playing resumes, so a start is never a stall.
    progressPositionNs_ = -1;
    return;
  }
  const long long position = queryPosition();
  const auto now = std::chrono::steady_clock::now();
  if (progressPositionNs_ < 0 || position > progressPositionNs_) {
    progressPositionNs_ = position;
    progressAt_ = now;
    stalled_ = false;
    return;
  }
  if (stalled_ || now - progressAt_ < kStallThreshold) return;
  stalled_ = true;
  if (auto c = client()) c->mediaEngineDidStall();
}

void GStreamerMediaEngine::fail(const Error& error) {
  if (failed_) return;
  failed_ = true;
  wantsToPlay_ = false;
  stopPolling();
  // Stops the download and the streaming threads; the client may drop this engine when told.
  if (pipeline_) gst_element_set_state(pipeline_, GST_STATE_NULL);
  if (auto c = client()) c->mediaEngineDidFail(error);
}

void GStreamerMediaEngine::stopPolling() {
  if (pollSource_ != 0) g_source_remove(pollSource_);
  pollSource_ = 0;
}

}  // namespace zorva::platform
