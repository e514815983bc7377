// Video on a real screen: a clip of known colours decoded by GStreamer and drawn by the host,
// read back from the X server while it plays.
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <zorva/ZVInBannerVideo.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "TestClip.h"
#include "support/AdFormatTesting.h"
#include "support/ObservingNetworkHandler.h"
#include "support/VastDocuments.h"
#include "zorva/engines/GStreamerMediaEngine.h"

// Last: it brings in Xlib, whose macros clash with the SDK's names.
#include "OnScreen.h"

namespace zorva::gtk {
namespace {

using platform::Rect;
using test::Pixel;

constexpr Pixel kRed{255, 0, 0}, kBlue{0, 0, 255}, kDarkGray{85, 85, 85};
// The linear player's bar: its fill and its track.
constexpr Pixel kBarFill{245, 214, 107}, kBarTrack{40, 46, 99};

// Which frame of the clip a pixel shows, as (colour, shade): frames alternate shades, so two
// consecutive frames never look alike. Nothing when it shows no frame of the clip.
std::optional<std::pair<char, bool>> frameLook(const Pixel& p) {
  const bool red = p.red > 150 && p.green < 60 && p.blue < 60;
  const bool blue = p.blue > 150 && p.red < 60 && p.green < 60;
  if (!red && !blue) return std::nullopt;
  return std::pair{red ? 'r' : 'b', (red ? p.red : p.blue) > 230};
}

class GtkVideoTest : public OnScreenTest {
 protected:
  void SetUp() override {
    OnScreenTest::SetUp();
    std::string whyNot;
    ASSERT_TRUE(platform::GStreamerMediaEngine::install(&whyNot)) << whyNot;
    const std::string path = testing::TempDir() + "zorva-clip.avi";
    ASSERT_TRUE(test::TestClip::write(path));
    std::stringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    std::remove(path.c_str());
    server.respond("/clip.avi", {.body = bytes.str(), .contentType = "video/x-msvideo"});
    const std::string vast = test::linearVast("video/mp4", "https://advertiser.example/landing",
                                              server.url("/clip.avi"));
    server.respond(test::kServadPath, {.body = test::bidWithMarkup(vast)});
    handler = test::ObservingNetworkHandler::install();
    // No content of the app's own: where no video is, no frame of the clip can show.
    attach(400, 600, Content::Empty);
  }

  // What the screen shows while the clip plays, watched at (x, y) until its end is tracked: one
  // screenshot once a red frame is up and one once a blue frame is, and the number of distinct
  // frames seen.
  struct Watch {
    std::optional<test::Screenshot> red, blue;
    int framesSeen = 0;
  };
  Watch watchPlayback(int x, int y) {
    Watch watch;
    std::optional<std::pair<char, bool>> last;
    waitUntil([&] {
      const auto look = frameLook(pixelAt(x, y));
      if (look && look != last) {
        ++watch.framesSeen;
        // Half a second in: the bar has filled a little.
        if (look->first == 'r' && !watch.red && watch.framesSeen > 12) watch.red = shot();
        if (look->first == 'b' && !watch.blue && watch.framesSeen > 30) watch.blue = shot();
      }
      if (look) last = look;
      const auto lists = handler->handedOverUrls();
      return std::any_of(lists.begin(), lists.end(), [](const auto& list) {
        return !list.empty() && list.front() == "http://track/complete";
      });
    });
    return watch;
  }

  std::shared_ptr<test::ObservingNetworkHandler> handler;
};

// When each progress event is handed over is checked on the same engine by
// GStreamerVastPlaybackTest.TheAdPlaysToTheEndFiringEachProgressEventInOrder.
TEST_F(GtkVideoTest, AnInterstitialVideoPlaysOnScreenFittedUnderItsBarAndTheX) {
  auto interstitial = ZVInterstitialAd::create(test::requestFor(server));
  interstitial->setSwitchToVideo(true);
  test::Recorder recorder;
  auto listener = test::recordingInterstitialDelegate(recorder);
  interstitial->setDelegate(listener);
  interstitial->loadAd();
  ASSERT_TRUE(waitUntil([&] { return recorder.count("receive") == 1; }));
  interstitial->showFromViewController(host->rootViewController());
  const Watch watch = watchPlayback(200, 300);

  // 160 x 90 fitted into 400 x 600: 400 x 225 from y = 187.5, the modal's white above and below.
  ASSERT_TRUE(watch.red && watch.blue);
  watch.red->writePng("gtk-video-red.png");
  watch.blue->writePng("gtk-video-blue.png");
  for (const auto* picture : {&*watch.red, &*watch.blue}) {
    const Pixel colour = picture == &*watch.red ? kRed : kBlue;
    EXPECT_GT(picture->count(colour, 0, 190, 400, 220, 60), 400 * 220 * 9 / 10);
    EXPECT_EQ(picture->count(colour, 0, 0, 400, 185, 60), 0) << "a bar above the video";
    EXPECT_EQ(picture->count(colour, 0, 415, 400, 180, 60), 0) << "and below it";
    EXPECT_GT(picture->count(kDarkGray, 358, 10, 32, 32), 32 * 32 / 2) << "the X on top";
  }
  // The bar along the bottom edge: filled early on the left, its track on the right.
  EXPECT_TRUE(watch.red->at(2, 599).near(kBarFill, 12));
  EXPECT_TRUE(watch.red->at(397, 599).near(kBarTrack, 12));

  // Nearly every frame of the 100 reached the screen (a pixel sampled every few milliseconds
  // misses a frame only when the machine stalls the test for 40 ms).
  EXPECT_GE(watch.framesSeen, 90) << "frames seen: " << watch.framesSeen;
  std::printf("frames seen on screen: %d of %d\n", watch.framesSeen, test::TestClip::kFrames);
}

TEST_F(GtkVideoTest, AnInBannerVideoPlaysInItsFrameAndReleasingItMidPlayStopsTheVideo) {
  auto video = ZVInBannerVideo::create(test::requestFor(server), ZVAdSize{320, 180});
  video->setFrame(Rect(40, 100, 320, 180));
  test::Recorder recorder;
  auto listener = test::recordingBannerDelegate<ZVInBannerVideoDelegate>(recorder);
  video->setDelegate(listener);
  host->rootViewController()->view()->addSubview(video);
  video->loadAd();
  ASSERT_TRUE(waitUntil([&] { return recorder.count("receive") == 1; }));
  video->playAd();
  // 16:9 in 320 x 180 fills the frame exactly; outside it the app's window shows.
  ASSERT_TRUE(waitForPixel(200, 190, kRed, 60, std::chrono::seconds(10)));
  // The bar over the video's foot, filling from the left.
  ASSERT_TRUE(waitForPixel(41, 279, kBarFill, 12, std::chrono::seconds(2)));
  auto early = shot();
  EXPECT_GT(early.count(kRed, 40, 100, 320, 176, 60), 320 * 176 * 9 / 10);
  EXPECT_EQ(early.count(kRed, 0, 0, 400, 98, 60), 0);
  EXPECT_TRUE(early.at(358, 279).near(kBarTrack, 12));
  ASSERT_TRUE(waitForPixel(200, 190, kBlue, 60, std::chrono::seconds(10)));
  EXPECT_GT(shot().count(kBlue, 40, 100, 320, 176, 60), 320 * 176 * 9 / 10);

  // Gone mid-play: the pipeline stops, the frame on screen goes with the view, nothing more.
  video->removeFromSuperview();
  video.reset();
  const auto handedBefore = handler->handedOverUrls().size();
  ASSERT_TRUE(waitUntil([&] { return !frameLook(pixelAt(200, 190)); }, std::chrono::seconds(5)));
  test::runMainQueueUntil([] { return false; }, std::chrono::milliseconds(1500));
  EXPECT_EQ(handler->handedOverUrls().size(), handedBefore);
  EXPECT_FALSE(frameLook(pixelAt(200, 190)));
}

}  // namespace
}  // namespace zorva::gtk
