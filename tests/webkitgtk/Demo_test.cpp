// The demo's whole tour on the real engines, as the README shows it: WebKit renders the pages,
// GStreamer plays the videos in real time, the banner is saved as a PNG, and every tap and press
// of the user is a real click of the X server's pointer in a window. Built when the demo has both
// engines (the build defines where its executable is).
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

TEST(DemoWithRealEngines, PlaysTheWholeTourInAWindowClickedWithTheRealPointer) {
  const auto png = std::filesystem::temp_directory_path() /
                   ("zorva-demo-banner-" + std::to_string(getpid()) + ".png");
  test::Subprocess demo(ZORVA_DEMO_EXECUTABLE,
                        {"--window", "--pause", "0.2", "--json", "--snapshot", png.string()});
  ASSERT_EQ(demo.finish(), 0) << demo.out << demo.err;

  bool real = false, realTime = false, window = false;
  std::vector<std::string> passed;
  std::vector<double> progressTimes;
  std::map<std::string, std::vector<std::string>> clicked;
  for (const auto& line : demo.outLines()) {
    const Value e = Value::parse(line);
    real = real || e.value("engines", "") == "real";
    realTime = realTime || e.value("virtualClock", true) == false;
    window = window || e.value("window", false);
    if (e["kind"] == "summary" && e["passed"] == true) passed.push_back(e["scenario"]);
    if (e["scenario"] == "interstitial-video" && e["kind"] == "progress") {
      progressTimes.push_back(e["t"].get<double>());
    }
    if (e["kind"] == "pointer") {
      // Each click lands where its target is shown, on the screen.
      clicked[e["scenario"]].push_back(e["target"]);
      const auto x = e["screen"][0].get<int>(), y = e["screen"][1].get<int>();
      EXPECT_TRUE(x >= 0 && x < 1280 && y >= 0 && y < 1024) << line;
    }
  }
  EXPECT_TRUE(real && realTime && window);
  EXPECT_EQ(passed, Tour::scenarioNames());
  // A decoded video takes its real length: the 4 s MP4's progress spans about 4 s of the clock.
  ASSERT_GE(progressTimes.size(), 2u);
  EXPECT_GT(progressTimes.back() - progressTimes.front(), 3.5);
  const std::map<std::string, std::vector<std::string>> expected = {
      {"banner", {"the link https://example.com/zorva/banner", "the button Close"}},
      {"interstitial",
       {"the link https://example.com/zorva/interstitial", "the button Done", "the button X"}},
      {"interstitial-video", {"the button X"}},
      {"vast-wrapper", {"the button X"}},
      {"vast-nonlinear", {"the button X"}}};
  EXPECT_EQ(clicked, expected);

  EXPECT_EQ(test::pngSize(png.string()), std::pair(320, 50));
  std::filesystem::remove(png);
}

}  // namespace
}  // namespace zorva::demo

#endif  // ZORVA_DEMO_EXECUTABLE
