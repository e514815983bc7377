// The 1/400 s progress path: a bare repeating main-queue timer (the limit of any tick), the
// linear player's tick into a delegate that does nothing, and the whole path into the VAST
// player once its five points are spent. Each run is 10 000 reports; the main thread's
// allocations are counted by a replaced global operator new and must stay at zero.
#include <optional>

#include <benchmark/benchmark.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/MainQueue.h>

#include <cstdlib>
#include <new>

#include "Common/ZorvaAd.h"
#include "Players/ZVPlayerConfig.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/Ratio.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace {

// Only the benchmark's (main) thread is counted: the URL session's worker allocates on its own.
thread_local std::size_t mainThreadAllocations = 0;

}  // namespace

// The replacement pair is malloc/free; GCC cannot see that the delete below belongs to it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  ++mainThreadAllocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

using namespace zorva;
using platform::MainQueue;

constexpr int kReports = 10'000;
constexpr auto kTick = std::chrono::microseconds(2500);

class NullVastDelegate : public ZVVastAdplayerDelegate {
 public:
  void playerDidLoad() override {}
  void playerDidStartPlaying() override {}
  void playerDidEndPlaying() override {}
  void playerDidIteractedWithTargetUrl(const std::optional<std::string>&) override {}
  void playerDidProgress(double seconds) override { benchmark::DoNotOptimize(seconds); }
  void playerDidFailedWithError(const Error&) override {}
};

class NullAdDelegate : public ZVAdPlayerDelegate {
 public:
  void playerDidLoad() override {}
  void playerDidStartPlaying() override {}
  void playerDidEndPlaying() override {}
  void playerDidFailWithError(const Error&) override {}
};

// Runs 10 000 ticks per iteration and reports the time and allocations per report.
void measureReports(benchmark::State& state) {
  auto& queue = MainQueue::shared();
  queue.advanceBy(kTick * 100);  // warm-up: lazily made shared instances, first firings
  std::size_t allocations = 0;
  for (auto _ : state) {
    const std::size_t before = mainThreadAllocations;
    queue.advanceBy(kTick * kReports);
    allocations += mainThreadAllocations - before;
  }
  state.counters["per_report"] = benchmark::Counter(
      kReports, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["allocations"] = static_cast<double>(allocations);
  if (allocations != 0) state.SkipWithError("the progress path allocated");
}

void BM_RepeatingTimerTick(benchmark::State& state) {
  test::resetProcessState();
  test::useVirtualClock();
  std::function<void()> empty = [] {};
  auto timer = MainQueue::shared().scheduleRepeatingTimer(kTick, [&empty] { empty(); });
  measureReports(state);
  timer->invalidate();
}
BENCHMARK(BM_RepeatingTimerTick);

// A loaded linear player over a hand-driven engine, playing at a fixed position.
std::shared_ptr<ZVVastLinearAdPlayer> loadedLinearPlayer(
    const std::shared_ptr<ZVVastAdplayerDelegate>& delegate) {
  platform::HeadlessMediaEngine::setAutomaticByDefault(false);
  auto player = ZVVastLinearAdPlayer::create();
  player->setDelegate(delegate);
  player->load(test::firstAd(test::linearVast()));
  auto engine = platform::HeadlessMediaEngine::of(*player->playerItem());
  engine->setDuration(20);
  engine->becomeReady();
  engine->setLoadedTimeRanges({platform::TimeRange::fromSeconds(0, 20)});
  engine->setCurrentTime(20);
  player->play();
  return player;
}

void BM_LinearPlayerProgress(benchmark::State& state) {
  test::resetProcessState();
  test::useVirtualClock();
  auto delegate = std::make_shared<NullVastDelegate>();
  auto player = loadedLinearPlayer(delegate);
  measureReports(state);
}
BENCHMARK(BM_LinearPlayerProgress);

void BM_VastPlayerProgress(benchmark::State& state) {
  test::resetProcessState();
  test::useVirtualClock();
  platform::HeadlessMediaEngine::setAutomaticByDefault(false);
  ZVPlayerConfig config;
  config.isExpectingVideoAd = true;
  config.ad = std::make_shared<ZorvaAd>();
  config.ad->creative = test::linearVast();
  auto delegate = std::make_shared<NullAdDelegate>();
  auto vastPlayer = ZVVastPlayer::create(config);
  vastPlayer->setDelegate(delegate);
  vastPlayer->play();
  MainQueue::shared().runUntilIdle();
  auto linear = std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(vastPlayer->vastAdPlayer());
  if (!linear) {
    state.SkipWithError("no linear player");
    return;
  }
  auto engine = platform::HeadlessMediaEngine::of(*linear->playerItem());
  engine->setDuration(20);
  engine->becomeReady();
  engine->setLoadedTimeRanges({platform::TimeRange::fromSeconds(0, 20)});
  engine->setCurrentTime(20);
  linear->play();
  // The five points fire during the warm-up; what is measured is the report that finds none.
  measureReports(state);
  if (!vastPlayer->trackingPoints().empty()) state.SkipWithError("points left unfired");
}
BENCHMARK(BM_VastPlayerProgress);

const bool kRatios = bench::reportRatio("BM_LinearPlayerProgress", "BM_RepeatingTimerTick") &&
                     bench::reportRatio("BM_VastPlayerProgress", "BM_RepeatingTimerTick");

}  // namespace
