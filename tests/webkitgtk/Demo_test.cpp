// The demo's whole tour on the real engines, as the README shows it: WebKit renders the pages,
// GStreamer plays the videos in real time, and the banner is saved as a PNG; and the same tour
// in a window, clicked with the X server's pointer. Built when the
// demo has both engines (the build defines where its executable is).
#ifdef ZORVA_DEMO_EXECUTABLE

#include <gtest/gtest.h>
#include <zorva/engines/WebKitWebEngine.h>
#include <zorva/platform/Button.h>
#include <zorva/platform/StoreProductViewController.h>
#include <zorva/platform/Value.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "support/PngSize.h"
#include "support/TestEnvironment.h"
#include "tools/Subprocess.h"
#include "zorva-demo/DemoWindow.h"
#include "zorva-demo/SimulatedUser.h"
#include "zorva-demo/Timeline.h"
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

// The window's pointer on its own: a button deep in the tree and the host's own Close button of
// a store sheet, each clicked where the screen shows it and taken as the user's tap.
TEST(DemoWindow, ClicksTheTreesButtonsAndTheHostsPanelsWhereTheyAreShown) {
  std::string whyNot;
  ASSERT_TRUE(platform::WebKitWebEngine::install(&whyNot)) << whyNot;
  auto root = platform::ViewController::create();
  auto window = platform::Window::create(platform::Rect(0, 0, 375, 600));
  window->setRootViewController(root);
  window->makeKeyAndVisible();
  // Away from every corner, in a view that is moved itself.
  auto box = platform::View::create(platform::Rect(40, 300, 300, 200));
  auto button = platform::Button::buttonWithType(platform::ButtonType::System);
  button->setFrame(platform::Rect(150, 120, 80, 40));
  button->setTitle("Go", platform::kControlStateNormal);
  int taps = 0;
  button->addTarget([&](platform::Button&) { ++taps; }, platform::kControlEventTouchUpInside);
  box->addSubview(button);
  root->view()->addSubview(box);

  std::ostringstream out;
  Timeline timeline(out, Timeline::Format::Text, false);
  auto pointer = DemoWindow::open(window, timeline, &whyNot);
  ASSERT_TRUE(pointer) << whyNot;
  EXPECT_TRUE(SimulatedUser::pressButton(root->view(), "Go", pointer.get()));
  EXPECT_TRUE(test::runMainQueueUntil([&] { return taps == 1; }));
  EXPECT_NE(out.str().find("window point (230, 440): the button Go"), std::string::npos)
      << out.str();

  struct Closing : platform::StoreProductViewControllerDelegate {
    void productViewControllerDidFinish(
        const std::shared_ptr<platform::StoreProductViewController>&) override {
      closed = true;
    }
    bool closed = false;
  };
  auto closing = std::make_shared<Closing>();
  auto sheet = platform::StoreProductViewController::create();
  sheet->setDelegate(closing);
  sheet->loadProductWithParameters({{"id", 1234567890}}, nullptr);
  root->presentViewController(sheet, false, nullptr);
  EXPECT_TRUE(SimulatedUser::closeSheetOnTop(root, pointer.get()));
  EXPECT_TRUE(test::runMainQueueUntil([&] { return closing->closed; }));
  EXPECT_NE(out.str().find("the button Close"), std::string::npos) << out.str();
}

}  // namespace
}  // namespace zorva::demo

#endif  // ZORVA_DEMO_EXECUTABLE
