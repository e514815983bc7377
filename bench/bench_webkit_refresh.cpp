// What a banner refreshing every second costs with WebKit: each refresh stacks a new ad's web
// view over the earlier ones, and those views stay. Over 120 refreshes (two minutes at 1 s, on
// the virtual clock; each ad is rendered by WebKit in real time) the benchmark reports the most
// web processes alive at once, their PSS at the end, and what each stacked view added to the web
// processes and to the app's own process after the first 10 refreshes.
// Needs a display: `xvfb-run -a build/default/bench/bench_webkit_refresh`.
#include <benchmark/benchmark.h>
#include <zorva/ZVBannerView.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/Window.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/AdFormatTesting.h"
#include "support/TestEnvironment.h"
#include "zorva/engines/WebKitWebEngine.h"

namespace {

// PSS (each process's share of the pages it shares) of a process ("self" for this one), in kB.
long pssKB(const std::string& pid) {
  std::ifstream rollup("/proc/" + pid + "/smaps_rollup");
  for (std::string key; rollup >> key; rollup.ignore(1 << 10, '\n')) {
    if (long kB = 0; key == "Pss:" && rollup >> kB) return kB;
  }
  return 0;
}

struct WebMemory {
  int processes = 0;
  long pssKB = 0;
};

// The WebKit web processes this process started that are alive (the kernel keeps 15 characters
// of a name).
WebMemory webMemory() {
  WebMemory memory;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream children(thread.path() / "children");
    for (std::string pid, name; children >> pid;) {
      if (std::ifstream("/proc/" + pid + "/comm") >> name && name == "WebKitWebProces") {
        ++memory.processes;
        memory.pssKB += pssKB(pid);
      }
    }
  }
  return memory;
}

void BM_BannerRefreshEverySecondFor2Minutes(benchmark::State& state) {
  std::string whyNot;
  if (!zorva::platform::WebKitWebEngine::install(&whyNot)) {
    state.SkipWithError(whyNot.c_str());
    return;
  }
  constexpr int kRefreshes = 120, kWarmUp = 10;
  zorva::test::LoopbackServer server;
  server.respond(zorva::test::kServadPath,
                 {.body = zorva::test::bidWithMarkup(
                      "<div style='background:#2a7;height:50px'><b>Refreshed banner</b></div>")});
  for (auto _ : state) {
    zorva::test::useVirtualClock();
    auto window = zorva::platform::DeviceProfile::phone().makeKeyWindow(
        zorva::platform::ViewController::create());
    auto banner =
        zorva::ZVBannerView::create(zorva::test::requestFor(server), zorva::ZVAdSize{320, 50});
    banner->setFrame(zorva::platform::Rect(0, 0, 320, 50));
    window->rootViewController()->view()->addSubview(banner);
    banner->setRefreshInterval(1);
    zorva::test::Recorder recorder;
    auto listener = zorva::test::recordingBannerDelegate<zorva::ZVBannerViewDelegate>(recorder);
    banner->setDelegate(listener);
    auto received = [&](std::size_t n) {
      return zorva::test::runMainQueueUntil([&] { return recorder.count("receive") >= n; });
    };
    banner->loadAd();
    if (!received(1)) {
      state.SkipWithError("the first ad never arrived");
      return;
    }
    // Memory is sampled once the pages have settled (layout, first paint, freed start-up
    // buffers): the growth is taken from the 10th refresh, when the process is warm, to the last.
    auto settle = [] {
      zorva::test::runMainQueueUntil([] { return false; }, std::chrono::seconds(1));
    };
    int most = webMemory().processes;
    WebMemory warm;
    long appWarm = 0;
    for (int n = 1; n <= kRefreshes; ++n) {
      zorva::platform::MainQueue::shared().advanceBy(zorva::platform::seconds(1));
      if (!received(static_cast<std::size_t>(n) + 1)) {
        state.SkipWithError("a refreshed ad never arrived");
        return;
      }
      most = std::max(most, webMemory().processes);
      if (n == kWarmUp) {
        settle();
        warm = webMemory();
        appWarm = pssKB("self");
      }
    }
    settle();
    const auto last = webMemory();
    const long appLast = pssKB("self");
    state.counters["web_processes_most"] = most;
    state.counters["web_processes_end"] = last.processes;
    state.counters["web_pss_end_MB"] = static_cast<double>(last.pssKB) / 1024;
    state.counters["web_pss_per_refresh_MB"] =
        static_cast<double>(last.pssKB - warm.pssKB) / 1024 / (kRefreshes - kWarmUp);
    state.counters["app_pss_per_refresh_MB"] =
        static_cast<double>(appLast - appWarm) / 1024 / (kRefreshes - kWarmUp);
    state.counters["stacked_views"] = static_cast<double>(banner->subviews().size());
  }
}
BENCHMARK(BM_BannerRefreshEverySecondFor2Minutes)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
