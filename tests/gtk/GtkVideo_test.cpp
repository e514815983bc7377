// Video on a real screen: a clip of known colours decoded by GStreamer and drawn by the host,
// read back from the X server while it plays.
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <zorva/ZVInBannerVideo.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/WebView.h>
#include <zorva/platform/Window.h>

#include <gst/gst.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>

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

// A 160 x 90 (16:9) clip of 7 s at 25 frames a second, JPEG in AVI: red for its first second,
// blue after, so the screen's pixels tell which part plays. False when GStreamer lacks an element.
bool writeClip(const std::string& path) {
  const std::string raw = " ! video/x-raw,format=RGBx,width=160,height=90,framerate=25/1 ! c. ";
  g_autoptr(GstElement) pipeline = gst_parse_launch(
      ("concat name=c ! videoconvert ! jpegenc quality=95 ! avimux ! filesink location=\"" + path +
       "\" videotestsrc pattern=red num-buffers=25" + raw +
       "videotestsrc pattern=blue num-buffers=150" + raw)
          .c_str(),
      nullptr);
  if (!pipeline) return false;
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  g_autoptr(GstBus) bus = gst_element_get_bus(pipeline);
  g_autoptr(GstMessage) end = gst_bus_timed_pop_filtered(
      bus, 10 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  gst_element_set_state(pipeline, GST_STATE_NULL);
  return end && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS;
}

bool showsClip(const Pixel& p) { return p.near(kRed, 60) || p.near(kBlue, 60); }

using GtkVideoTest = OnScreenTest;

// An in-banner video plays in its frame and stops when it is released mid-play; an interstitial
// video plays fitted under its bar and its X, to its end. When each progress event is handed over
// is checked on the same engine by the GStreamer suite's playback test.
TEST_F(GtkVideoTest, VideosPlayInTheirFrameOrFittedUnderTheBarAndTheXAndStopWhenReleased) {
  std::string whyNot;
  ASSERT_TRUE(platform::GStreamerMediaEngine::install(&whyNot)) << whyNot;
  const std::string path = testing::TempDir() + "zorva-clip.avi";
  ASSERT_TRUE(writeClip(path));
  std::stringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  std::remove(path.c_str());
  server.respond("/clip.avi", {.body = bytes.str(), .contentType = "video/x-msvideo"});
  const std::string vast =
      test::linearVast("video/mp4", "https://advertiser.example/landing", server.url("/clip.avi"));
  server.respond(test::kServadPath, {.body = test::bidWithMarkup(vast)});
  auto handler = test::ObservingNetworkHandler::install();
  // No content of the app's own: where no video is, no frame of the clip can show.
  attach(400, 600, Content::Empty);

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
  EXPECT_TRUE(waitForPixel(120, 279, kBarFill, 12, std::chrono::seconds(3))) << "the bar moves on";
  // A page laid over part of the playing video shows there, and the video again once it goes;
  // faded, the video lets what is under it show through.
  auto page = platform::WebView::create(Rect(40, 100, 100, 60), {});
  page->loadHTMLString("<body style='margin:0;background:#0f0'></body>", std::nullopt);
  host->rootViewController()->view()->addSubview(page);
  ASSERT_TRUE(waitForPixel(90, 130, Pixel{0, 255, 0}, 12));
  EXPECT_TRUE(pixelAt(300, 250).near(kBlue, 60));
  page->removeFromSuperview();
  ASSERT_TRUE(waitForPixel(90, 130, kBlue, 60));
  const Pixel app = pixelAt(20, 190);
  video->setAlpha(0.5);
  // The player's black backing at half over the app, then the video at half over both.
  ASSERT_TRUE(waitForPixel(200, 190, Pixel{app.red / 4, app.green / 4, app.blue / 4 + 127}, 12));
  video->setAlpha(1);

  // Gone mid-play: the pipeline stops, the frame on screen goes with the view, nothing more.
  video->removeFromSuperview();
  video.reset();
  const auto handedBefore = handler->handedOverUrls().size();
  ASSERT_TRUE(waitUntil([&] { return !showsClip(pixelAt(200, 190)); }, std::chrono::seconds(5)));
  test::runMainQueueUntil([] { return false; }, std::chrono::milliseconds(1500));
  EXPECT_EQ(handler->handedOverUrls().size(), handedBefore);
  EXPECT_FALSE(showsClip(pixelAt(200, 190)));

  auto interstitial = ZVInterstitialAd::create(test::requestFor(server));
  interstitial->setSwitchToVideo(true);
  interstitial->loadAd();
  ASSERT_TRUE(waitUntil([&] { return interstitial->state() == 2; }));
  interstitial->showFromViewController(host->rootViewController());
  // The red part once the bar has begun to fill, then the blue part, then the clip's end.
  ASSERT_TRUE(waitUntil(
      [&] { return pixelAt(200, 300).near(kRed, 60) && pixelAt(2, 599).near(kBarFill, 12); }));
  const auto red = shot();
  ASSERT_TRUE(waitForPixel(200, 300, kBlue, 60));
  const auto blue = shot();
  // 160 x 90 fitted into 400 x 600: 400 x 225 from y = 187.5, the modal's white above and below.
  for (const auto& [picture, colour] : {std::pair{red, kRed}, std::pair{blue, kBlue}}) {
    EXPECT_GT(picture.count(colour, 0, 190, 400, 220, 60), 400 * 220 * 9 / 10);
    EXPECT_EQ(picture.count(colour, 0, 0, 400, 185, 60), 0) << "a bar above the video";
    EXPECT_EQ(picture.count(colour, 0, 415, 400, 180, 60), 0) << "and below it";
    EXPECT_GT(picture.count(kDarkGray, 358, 10, 32, 32), 32 * 32 / 2) << "the X on top";
  }
  EXPECT_TRUE(waitUntil([&] {
    const auto lists = handler->handedOverUrls();
    return std::any_of(lists.begin(), lists.end(), [](const auto& list) {
      return !list.empty() && list.front() == "http://track/complete";
    });
  }));
}

}  // namespace
}  // namespace zorva::gtk
