// The GTK app example as its user meets it: the program run against the loopback ad server in
// the suite's virtual X server, its window read back from the server's pixels. Built when the
// example is (the build defines where its executable is).
#ifdef ZORVA_GTK_APP_EXECUTABLE

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <thread>

#include "support/TestEnvironment.h"
#include "support/XScreen.h"
#include "tools/Subprocess.h"
#include "zorva-adserver/AdServer.h"

namespace zorva::test {
namespace {

// The built-in banner campaign's background, and the app's text.
constexpr Pixel kBannerGreen{0x1b, 0x5e, 0x20};
constexpr Pixel kText{0, 0, 0};
constexpr const char* kTitle = "Zorva GTK example";

class GtkAppTest : public testing::Test {
 protected:
  void SetUp() override {
    std::optional<platform::Error> error;
    server = tools::AdServer::start({.log = nullptr}, &error);
    ASSERT_TRUE(server) << error->localizedDescription();
  }

  // Starts the app and waits for its window. A quit on its own bounds a run that goes wrong.
  void start(std::vector<std::string> options) {
    options.insert(options.begin(), {server->servadUrl(), "--quit-after", "60"});
    app = std::make_unique<Subprocess>(ZORVA_GTK_APP_EXECUTABLE, options);
    ASSERT_TRUE(waitFor([](const TopLevel&, const Screenshot&) { return true; }));
  }

  // Polls the app's window on the screen (at most 10 s, scaled) until `seen` holds for it;
  // `window` and `shot` keep the last look.
  bool waitFor(const std::function<bool(const TopLevel&, const Screenshot&)>& seen) {
    for (int i = 0; i < 100 * timeScale(); ++i) {
      if (auto found = screen.findWindow(kTitle)) {
        window = *found;
        shot = screen.grab(window.x, window.y, window.width, window.height);
        if (seen(window, shot)) return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
  }

  // The banner drawn whole at the bottom of the window, centred, and nowhere else.
  bool bannerDocked() {
    return waitFor([](const TopLevel& w, const Screenshot& s) {
      const int left = w.x + (w.width - 320) / 2, top = w.y + w.height - kFrame - 50;
      const int inside = s.count(kBannerGreen, left, top, 320, 50);  // around its text
      // Its corners green: the whole of it in place.
      return inside > 320 * 50 * 3 / 4 && s.at(left, top).near(kBannerGreen) &&
             s.at(left + 319, top + 49).near(kBannerGreen) &&
             s.count(kBannerGreen, w.x, w.y, w.width, w.height) == inside;
    });
  }

  // SIGTERM is the app's quit, like closing its window: it tears down and exits 0.
  void quit() {
    app->signal(SIGTERM);
    EXPECT_EQ(app->finish(), 0) << app->out << app->err;
  }

  // What a window without a window manager has around its content (GTK's own frame).
  static constexpr int kFrame = 5;

  std::unique_ptr<tools::AdServer> server;
  XScreen screen;
  std::unique_ptr<Subprocess> app;
  TopLevel window;
  Screenshot shot;
};

// The video interstitial's button, pressed at start-up: the ad covers the window below the header
// bar (the banner's place too) and plays there; the header bar stays the app's. Once Escape has
// taken it away, the banner is docked at the bottom below the app's content, and stays there when
// the window grows.
TEST_F(GtkAppTest, PlaysTheVideoInterstitialBelowItsHeaderBarAndDocksTheBannerAtTheBottom) {
  start({"--video"});
  // The ad server's clip is a test pattern: its magenta bar shows below the header bar.
  ASSERT_TRUE(waitFor([](const TopLevel& w, const Screenshot& s) {
    return s.count(Pixel{255, 0, 255}, w.x, w.y + 60, w.width, w.height - 60 - kFrame, 40) > 2000;
  }));
  EXPECT_EQ(shot.count(kBannerGreen, window.x, window.y, window.width, window.height), 0);
  EXPECT_EQ(shot.count(Pixel{255, 0, 255}, window.x, window.y, window.width, 20, 40), 0);

  screen.key(window.id, XK_Escape);
  ASSERT_TRUE(bannerDocked());
  // Above it, the app's own text.
  EXPECT_GT(shot.count(kText, window.x, window.y, window.width, window.height - kFrame - 50, 64),
            500);

  // Larger: the constraints keep it centred at the bottom; its picture moves with it.
  screen.resize(window, 700, 560);
  EXPECT_TRUE(bannerDocked() && window.width == 700 && window.height == 560);
  quit();
}

}  // namespace
}  // namespace zorva::test

#endif  // ZORVA_GTK_APP_EXECUTABLE
