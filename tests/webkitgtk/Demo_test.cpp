// The demo's whole tour on the real engines, as the README shows it: WebKit renders the pages,
// GStreamer plays the videos in real time, and the banner is saved as a PNG. Built when the
// demo has both engines (the build defines where its executable is).
#ifdef ZORVA_DEMO_EXECUTABLE

#include <gtest/gtest.h>
#include <zorva/platform/Value.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "support/PngSize.h"
#include "tools/Subprocess.h"
#include "zorva-demo/Tour.h"

namespace zorva::demo {
namespace {

using platform::Value;

TEST(DemoWithRealEngines, PlaysTheWholeTourRenderedAndDecodedAndSavesTheBanner) {
  const auto png = std::filesystem::temp_directory_path() /
                   ("zorva-demo-banner-" + std::to_string(getpid()) + ".png");
  test::Subprocess demo(ZORVA_DEMO_EXECUTABLE,
                        {"--engines", "real", "--json", "--snapshot", png.string()});
  ASSERT_EQ(demo.finish(), 0) << demo.out << demo.err;

  std::vector<Value> events;
  for (const auto& line : demo.outLines()) events.push_back(Value::parse(line));
  auto has = [&](const std::function<bool(const Value&)>& match) {
    return std::any_of(events.begin(), events.end(), match);
  };
  EXPECT_TRUE(has([](const Value& e) { return e.value("engines", "") == "real"; }));
  EXPECT_TRUE(has([](const Value& e) { return e.value("virtualClock", true) == false; }));
  std::vector<std::string> passed;
  for (const auto& e : events) {
    if (e["kind"] == "summary" && e["passed"] == true) passed.push_back(e["scenario"]);
  }
  EXPECT_EQ(passed, Tour::scenarioNames());
  // A decoded video takes its real length: the 4 s MP4's progress spans about 4 s of the clock.
  std::vector<double> progressTimes;
  for (const auto& e : events) {
    if (e["scenario"] == "interstitial-video" && e["kind"] == "progress") {
      progressTimes.push_back(e["t"].get<double>());
    }
  }
  ASSERT_GE(progressTimes.size(), 2u);
  EXPECT_GT(progressTimes.back() - progressTimes.front(), 3.5);

  EXPECT_EQ(test::pngSize(png.string()), std::pair(320, 50));
  std::filesystem::remove(png);
}

}  // namespace
}  // namespace zorva::demo

#endif  // ZORVA_DEMO_EXECUTABLE
