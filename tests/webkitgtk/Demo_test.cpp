// The demo's whole tour on the real engines, as the README shows it: WebKit renders the pages,
// GStreamer plays the videos in real time, and the banner is saved as a PNG; and the same tour
// in a window, clicked with the X server's pointer. Built when the
// demo has both engines (the build defines where its executable is).
#ifdef ZORVA_DEMO_EXECUTABLE

#include <gtest/gtest.h>
#include <zorva/platform/Value.h>

#include <filesystem>
#include <map>

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

  bool real = false, realTime = false;
  std::vector<std::string> passed;
  std::vector<double> progressTimes;
  for (const auto& line : demo.outLines()) {
    const Value e = Value::parse(line);
    real = real || e.value("engines", "") == "real";
    realTime = realTime || e.value("virtualClock", true) == false;
    if (e["kind"] == "summary" && e["passed"] == true) passed.push_back(e["scenario"]);
    if (e["scenario"] == "interstitial-video" && e["kind"] == "progress") {
      progressTimes.push_back(e["t"].get<double>());
    }
  }
  EXPECT_TRUE(real && realTime);
  EXPECT_EQ(passed, Tour::scenarioNames());
  // A decoded video takes its real length: the 4 s MP4's progress spans about 4 s of the clock.
  ASSERT_GE(progressTimes.size(), 2u);
  EXPECT_GT(progressTimes.back() - progressTimes.front(), 3.5);

  EXPECT_EQ(test::pngSize(png.string()), std::pair(320, 50));
  std::filesystem::remove(png);
}

// The tour in a window on the suite's X server: each tap and press of the user is a real click
// of the pointer, at the place its target is shown, and the ads take it as a person's.
TEST(DemoWithRealEngines, RunsTheTourInAWindowClickedWithTheRealPointer) {
  test::Subprocess demo(ZORVA_DEMO_EXECUTABLE, {"--window", "--pause", "0.2", "--json"});
  ASSERT_EQ(demo.finish(), 0) << demo.out << demo.err;

  bool window = false;
  std::vector<std::string> passed;
  std::map<std::string, std::vector<std::string>> clicked;
  for (const auto& line : demo.outLines()) {
    const Value e = Value::parse(line);
    window = window || e.value("window", false);
    if (e["kind"] == "summary" && e["passed"] == true) passed.push_back(e["scenario"]);
    if (e["kind"] == "pointer") {
      clicked[e["scenario"]].push_back(e["target"]);
      const auto x = e["screen"][0].get<int>(), y = e["screen"][1].get<int>();
      EXPECT_TRUE(x >= 0 && x < 1280 && y >= 0 && y < 1024) << line;
    }
  }
  EXPECT_TRUE(window);
  EXPECT_EQ(passed, Tour::scenarioNames());
  const std::map<std::string, std::vector<std::string>> expected = {
      {"banner", {"the link https://example.com/zorva/banner", "the button Close"}},
      {"interstitial",
       {"the link https://example.com/zorva/interstitial", "the button Done", "the button X"}},
      {"interstitial-video", {"the button X"}},
      {"vast-wrapper", {"the button X"}},
      {"vast-nonlinear", {"the button X"}}};
  EXPECT_EQ(clicked, expected);
}

}  // namespace
}  // namespace zorva::demo

#endif  // ZORVA_DEMO_EXECUTABLE
