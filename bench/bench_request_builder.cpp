// One whole bid-request build: impression, app, user, device and serialisation, with the user
// agent already cached and the location given by the app (the steady state of a running app);
// and the same build with the request's host settings on (test mode, regulations, a desktop
// profile), beside it as a ratio.
#include <benchmark/benchmark.h>

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include "Common/ZVRTBRequestBuilder.h"
#include "Common/ZVUtility.h"
#include "support/Ratio.h"

namespace {

void build(benchmark::State& state, bool hostSettings) {
  auto& queue = zorva::platform::MainQueue::shared();
  queue.bindToCurrentThread();
  const auto profile = hostSettings ? zorva::platform::DeviceProfile::desktop()
                                    : zorva::platform::DeviceProfile::phone();
  profile.apply();
  auto window = profile.makeKeyWindow(zorva::platform::ViewController::create());
  zorva::Value items = zorva::Value::array();
  for (int i = 0; i < 50; ++i) {
    items.push_back({{"SKAdNetworkIdentifier", "network" + std::to_string(i) + ".skadnetwork"}});
  }
  zorva::platform::Bundle::mainBundle().setInfoDictionary(
      {{"CFBundleDisplayName", "Bench"}, {"SKAdNetworkItems", items}});
  auto settings = zorva::ZorvaSDK::shared();
  settings->setLocation(zorva::platform::Location(48.85, 2.35));
  settings->setStoreURL(zorva::platform::URL::URLWithString("https://apps.apple.com/app/x/id1"));
  if (hostSettings) settings->setGdprConsent("CPXxRfAPXxRfA");
  settings->setTestMode(hostSettings);
  settings->setSendRegulations(hostSettings);
  settings->setUsPrivacy("1YNN");
  settings->setGpp("DBABMA~CPXxRfAPXxRfA");
  settings->setGppSid({2, 6});

  // Fill the user-agent cache once, as the first load of a process does.
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

void BM_BuildBidRequest(benchmark::State& state) { build(state, false); }
void BM_BuildBidRequestHostSettings(benchmark::State& state) { build(state, true); }
BENCHMARK(BM_BuildBidRequest);
BENCHMARK(BM_BuildBidRequestHostSettings);

[[maybe_unused]] const bool kRatio =
    zorva::bench::reportRatio("BM_BuildBidRequestHostSettings", "BM_BuildBidRequest");

}  // namespace
