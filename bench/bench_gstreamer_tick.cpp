// The position read that a 1/400 s periodic observer makes on every tick, on the GStreamer
// engine during real playback of the ad server's MP4: its cost beside the headless engine's and
// the allocations it makes (counted below malloc, where GStreamer and GLib allocate); and the
// tick interval a 2.5 ms observer achieves through the GLib bridge over a whole playback.
#include <benchmark/benchmark.h>
#include <gst/gst.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/LoopbackServer.h"
#include "support/Ratio.h"
#include "support/TestEnvironment.h"
#include "zorva-adserver/Media.h"
#include "zorva/engines/GStreamerMediaEngine.h"

// Every heap allocation of the process goes through these, GLib's and GStreamer's included;
// only those the counting thread makes while it counts are counted.
namespace {
__thread bool counting = false;
__thread std::size_t countedAllocations = 0;

// GLib before 2.76 carves small blocks from its own slabs unless told to use malloc: told
// before main, so the first slice allocation already sees it.
const bool kSliceUsesMalloc = [] { return setenv("G_SLICE", "always-malloc", 1) == 0; }();
}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
  if (counting) ++countedAllocations;
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  if (counting) ++countedAllocations;
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) {
  if (counting) ++countedAllocations;
  return __libc_realloc(pointer, size);
}
int posix_memalign(void** result, std::size_t alignment, std::size_t size) {
  if (counting) ++countedAllocations;
  void* p = __libc_memalign(alignment, size);
  if (!p) return ENOMEM;
  *result = p;
  return 0;
}
}

namespace {

using namespace zorva;
using namespace std::chrono_literals;
using platform::MainQueue;

// Reads the position `state.range` times per iteration, counting allocations.
template <typename Read>
void measureReads(benchmark::State& state, const Read& read) {
  std::size_t allocations = 0;
  std::size_t reads = 0;
  for (auto _ : state) {
    counting = true;
    const std::size_t before = countedAllocations;
    benchmark::DoNotOptimize(read());
    allocations += countedAllocations - before;
    counting = false;
    ++reads;
  }
  state.counters["allocations_per_read"] =
      reads ? static_cast<double>(allocations) / static_cast<double>(reads) : 0.0;
}

void BM_HeadlessCurrentTime(benchmark::State& state) {
  test::resetProcessState();
  auto engine = platform::HeadlessMediaEngine::create({});
  engine->load(*platform::URL::URLWithString("http://media/ad.mp4"));
  MainQueue::shared().runUntilIdle();
  engine->play();
  measureReads(state, [&] { return engine->currentTime(); });
}
BENCHMARK(BM_HeadlessCurrentTime);

// The loopback server with the MP4, and an engine playing it.
struct Playback {
  test::LoopbackServer server;
  std::shared_ptr<platform::GStreamerMediaEngine> engine;
  bool ready = false;
};

class ReadyClient : public platform::MediaEngineClient {
 public:
  void mediaEngineDidLoadDuration(const platform::MediaTime&) override {}
  void mediaEngineDidBecomeReady() override { ready = true; }
  void mediaEngineDidLoadTimeRanges(const std::vector<platform::TimeRange>&) override {}
  void mediaEngineDidPlayToEnd() override { ended = true; }
  void mediaEngineDidStall() override {}
  void mediaEngineDidFail(const platform::Error&) override { failed = true; }
  bool ready = false;
  bool ended = false;
  bool failed = false;
};

bool installEngine(benchmark::State& state) {
  test::resetProcessState();
  std::string whyNot;
  if (platform::GStreamerMediaEngine::install(&whyNot)) return true;
  state.SkipWithError(("no GStreamer: " + whyNot).c_str());
  return false;
}

// Plays the MP4 and measures `read(engine)` in steady playback.
template <typename Read>
void measureDuringPlayback(benchmark::State& state, const Read& read) {
  if (!installEngine(state)) return;
  test::LoopbackServer server;
  server.respond("/ad.mp4",
                 {.body = std::string(tools::media::zorvaMp4()), .contentType = "video/mp4"});
  auto client = std::make_shared<ReadyClient>();
  auto engine = platform::GStreamerMediaEngine::create(client);
  engine->load(*platform::URL::URLWithString(server.url("/ad.mp4")));
  if (!test::runMainQueueUntil([&] { return client->ready || client->failed; }) || client->failed) {
    state.SkipWithError("the media did not become ready");
    return;
  }
  engine->play();
  // Into steady playback: the first frames are out and the sink reports a moving position.
  test::runMainQueueUntil([&] { return engine->currentTime().seconds() > 0.2; }, 2s);
  const double from = engine->currentTime().seconds();
  measureReads(state, [&] { return read(*engine); });
  const double to = engine->currentTime().seconds();
  if (!(to > from) || to >= 4.0) state.SkipWithError("not measured during playback");
}

void BM_GStreamerCurrentTime(benchmark::State& state) {
  measureDuringPlayback(
      state, [](const platform::GStreamerMediaEngine& engine) { return engine.currentTime(); });
}
// Short runs: the media lasts four seconds.
BENCHMARK(BM_GStreamerCurrentTime)->MinTime(0.3);

// What a read would cost with GStreamer's convenience call: a new query each time, asked of the
// whole pipeline.
void BM_GStreamerPipelinePositionQuery(benchmark::State& state) {
  measureDuringPlayback(state, [](const platform::GStreamerMediaEngine& engine) {
    gint64 position = -1;
    gst_element_query_position(engine.pipeline(), GST_FORMAT_TIME, &position);
    return position;
  });
}
BENCHMARK(BM_GStreamerPipelinePositionQuery)->MinTime(0.3);

// A 1/400 s observer on a player of the MP4, over its whole playback, through the GLib bridge.
void BM_GStreamerObserverTicks(benchmark::State& state) {
  if (!installEngine(state)) return;
  test::LoopbackServer server;
  server.respond("/ad.mp4",
                 {.body = std::string(tools::media::zorvaMp4()), .contentType = "video/mp4"});
  std::vector<std::chrono::steady_clock::time_point> ticks;
  ticks.reserve(4096);
  double meanMicros = 0;
  double worstMicros = 0;
  for (auto _ : state) {
    ticks.clear();
    auto item = platform::PlayerItem::create(*platform::URL::URLWithString(server.url("/ad.mp4")));
    auto player = platform::Player::create(item);
    auto observer = player->addPeriodicTimeObserverForInterval(
        platform::MediaTime::make(1, 400), [&ticks](const platform::MediaTime&) {
          ticks.push_back(std::chrono::steady_clock::now());
        });
    if (!test::runMainQueueUntil(
            [&] { return item->status() != platform::PlayerItemStatus::Unknown; })) {
      state.SkipWithError("the media did not become ready");
      return;
    }
    player->play();
    test::runMainQueueUntil([&] { return item->didPlayToEnd(); }, 10s);
    player->removeTimeObserver(observer);
    if (ticks.size() < 2) {
      state.SkipWithError("no ticks");
      return;
    }
    std::vector<double> intervals;
    for (std::size_t i = 1; i < ticks.size(); ++i) {
      intervals.push_back(
          std::chrono::duration<double, std::micro>(ticks[i] - ticks[i - 1]).count());
    }
    meanMicros = std::chrono::duration<double, std::micro>(ticks.back() - ticks.front()).count() /
                 static_cast<double>(ticks.size() - 1);
    worstMicros = *std::max_element(intervals.begin(), intervals.end());
  }
  state.counters["ticks"] = static_cast<double>(ticks.size());
  state.counters["mean_interval_us"] = meanMicros;
  state.counters["worst_interval_us"] = worstMicros;
}
BENCHMARK(BM_GStreamerObserverTicks)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

const bool kRatios =
    kSliceUsesMalloc && bench::reportRatio("BM_GStreamerCurrentTime", "BM_HeadlessCurrentTime") &&
    bench::reportRatio("BM_GStreamerPipelinePositionQuery", "BM_GStreamerCurrentTime");

}  // namespace
