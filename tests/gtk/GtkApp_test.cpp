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

/// The smallest rectangle (screen coordinates) holding every pixel of a colour.
struct Box {
  int left = 0, top = 0, right = -1, bottom = -1;  // right and bottom exclusive
  int width() const { return right - left; }
  int height() const { return bottom - top; }
};

Box boxOf(const Screenshot& shot, const Pixel& colour) {
  Box box{shot.x + shot.width, shot.y + shot.height, shot.x, shot.y};
  for (int y = shot.y; y < shot.y + shot.height; ++y) {
    for (int x = shot.x; x < shot.x + shot.width; ++x) {
      if (!shot.at(x, y).near(colour)) continue;
      box = {std::min(box.left, x), std::min(box.top, y), std::max(box.right, x + 1),
             std::max(box.bottom, y + 1)};
    }
  }
  return box;
}

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

  // Reads the app's lines until `line`; false when it falls silent first.
  bool hear(const std::string& line) {
    for (std::string got = app->readLine(); !got.empty(); got = app->readLine()) {
      heard += got + "\n";
      if (got == line) return true;
    }
    return false;
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

  // The banner's box once it is drawn whole at the bottom of the window, centred.
  bool bannerDocked() {
    return waitFor([this](const TopLevel& w, const Screenshot& s) {
      banner = boxOf(s, kBannerGreen);
      const int centre = w.x + w.width / 2;
      return banner.width() == 320 && banner.height() == 50 &&
             std::abs((banner.left + banner.right) / 2 - centre) <= 1 &&
             w.y + w.height - banner.bottom <= kFrame;
    });
  }

  // SIGTERM is the app's quit, like closing its window: it tears down and exits 0.
  void quit() {
    app->signal(SIGTERM);
    EXPECT_EQ(app->finish(), 0) << heard << app->out << app->err;
  }

  // What a window without a window manager has around its content (GTK's own frame).
  static constexpr int kFrame = 5;

  std::unique_ptr<tools::AdServer> server;
  XScreen screen;
  std::unique_ptr<Subprocess> app;
  std::string heard;
  TopLevel window;
  Screenshot shot;
  Box banner;
};

// The video interstitial's button, pressed at start-up: the ad covers the window below the header
// bar (the banner's place too) and plays there; the header bar stays the app's. Once Escape has
// taken it away, the banner is docked at the bottom below the app's content, and stays there when
// the window grows.
TEST_F(GtkAppTest, PlaysTheVideoInterstitialBelowItsHeaderBarAndDocksTheBannerAtTheBottom) {
  start({"--video"});
  ASSERT_TRUE(hear("interstitial: shown")) << heard << app->err;
  // The ad server's clip is a test pattern: its magenta bar shows below the header bar.
  EXPECT_TRUE(waitFor([](const TopLevel& w, const Screenshot& s) {
    return s.count(Pixel{255, 0, 255}, w.x, w.y + 60, w.width, w.height - 60 - kFrame, 40) > 2000;
  })) << heard;
  EXPECT_EQ(shot.count(kBannerGreen, window.x, window.y, window.width, window.height), 0);
  EXPECT_EQ(shot.count(Pixel{255, 0, 255}, window.x, window.y, window.width, 20, 40), 0);

  screen.key(window.id, XK_Escape);
  ASSERT_TRUE(bannerDocked()) << heard;
  // Above it, the app's own text, and nothing of the banner's.
  const int above = banner.top - window.y;
  EXPECT_GT(shot.count(kText, window.x, window.y, window.width, above, 64), 500);
  EXPECT_EQ(shot.count(kBannerGreen, window.x, window.y, window.width, above), 0);

  // Larger: the constraints keep it centred at the bottom; its picture moves with it.
  screen.resize(window, 700, 560);
  EXPECT_TRUE(bannerDocked() && window.width == 700 && window.height == 560);
  quit();
}

}  // namespace
}  // namespace zorva::test

#endif  // ZORVA_GTK_APP_EXECUTABLE
