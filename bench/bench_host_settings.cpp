// What the host settings cost a bid-request build: the same steady-state build (user agent
// cached, location given) with every request setting off, and with test mode, regulations and a
// desktop profile on.
#include <benchmark/benchmark.h>

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>

#include "Common/ZVRTBRequestBuilder.h"
#include "Common/ZVUtility.h"
#include "support/Ratio.h"

namespace {

void build(benchmark::State& state, bool hostSettings) {
  auto& queue = zorva::platform::MainQueue::shared();
  queue.bindToCurrentThread();
  auto settings = zorva::ZorvaSDK::shared();
  (hostSettings ? zorva::platform::DeviceProfile::desktop()
                : zorva::platform::DeviceProfile::phone())
      .apply();
  settings->setLocation(zorva::platform::Location(48.85, 2.35));
  settings->setGdprConsent("CPXxRfAPXxRfA");
  settings->setTestMode(hostSettings);
  settings->setSendRegulations(hostSettings);
  settings->setUsPrivacy("1YNN");
  settings->setGpp("DBABMA~CPXxRfAPXxRfA");
  settings->setGppSid({2, 6});

  bool cached = false;
  zorva::ZVUtility::userAgent([&](std::optional<std::string>) { cached = true; });
  queue.runUntil([&] { return cached; }, std::chrono::seconds(5));

  auto request = std::make_shared<zorva::ZVAdRequest>();
  request->publisherId = "pub";
  request->adunitId = "unit";
  auto builder = zorva::ZVRTBRequestBuilder::create(request);
  builder->setRequestedAdSize({320, 50});
  std::size_t bytes = 0;
  for (auto _ : state) {
    builder->build(
        [&](std::optional<zorva::platform::URLRequest> built, std::optional<zorva::Error>) {
          if (built && built->HTTPBody) bytes = built->HTTPBody->size();
        });
  }
  state.counters["body_bytes"] = static_cast<double>(bytes);
}

void BM_BuildSettingsOff(benchmark::State& state) { build(state, false); }
void BM_BuildSettingsOn(benchmark::State& state) { build(state, true); }
BENCHMARK(BM_BuildSettingsOff);
BENCHMARK(BM_BuildSettingsOn);

[[maybe_unused]] const bool kRatio =
    zorva::bench::reportRatio("BM_BuildSettingsOn", "BM_BuildSettingsOff");

}  // namespace
