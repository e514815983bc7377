// The in-banner video end to end: a video impression through the loopback
// server, the VAST player on the headless media engine, played on the virtual
// clock.
#include <gtest/gtest.h>

#include <zorva/ZVInBannerVideo.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/Window.h>

#include "Banner/ZVInBannerVideoImpl.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/AdFormatTesting.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::MainQueue;
using platform::seconds;
using test::Recorder;

class InBannerVideoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::useVirtualClock();
    handler_ = test::ObservingNetworkHandler::install();
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::linearVast(), 300, 250)});
  }

  std::shared_ptr<ZVInBannerVideo> makeVideo() {
    auto video = ZVInBannerVideo::create(test::requestFor(server_), ZVAdSize{300, 250});
    video->setDelegate(delegate_);
    // On screen, so that the video plays once playAd puts it in the view.
    root_->view()->addSubview(video);
    return video;
  }
  bool waitFor(const std::string& name, std::size_t count = 1) {
    return test::runMainQueueUntil([&] { return recorder_.count(name) >= count; });
  }

  std::shared_ptr<test::ObservingNetworkHandler> handler_;
  test::LoopbackServer server_;
  Recorder recorder_;
  std::shared_ptr<ZVInBannerVideoDelegate> delegate_ =
      test::recordingBannerDelegate<ZVInBannerVideoDelegate>(recorder_);
  std::shared_ptr<platform::ViewController> root_ = platform::ViewController::create();
  std::shared_ptr<platform::Window> window_ = platform::DeviceProfile::phone().makeKeyWindow(root_);
};

// The request asks for a video impression though the loader is configured for display; receipt
// shows nothing until playAd; the end is reported and further loads are refused.
TEST_F(InBannerVideoTest, AVideoAdIsAskedForShownOnPlayAdAndReportedAtItsEnd) {
  auto video = makeVideo();
  video->setFrame(platform::Rect(0, 0, 320, 180));  // not the ad's own size
  video->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  EXPECT_TRUE(recorder_.heard()[0].onMainThread);
  EXPECT_TRUE(video->subviews().empty());
  const Value imp = Value::parse(server_.requests().at(0).body)["imp"][0];
  EXPECT_EQ(imp["video"]["w"], 300);
  EXPECT_EQ(imp["video"]["h"], 250);
  EXPECT_EQ(imp["instl"], 0);
  EXPECT_FALSE(ZVInBannerVideo::Impl::of(*video).adLoader()->config()->isVideo);

  video->playAd();
  auto view = ZVInBannerVideo::Impl::of(*video).player()->playerView();
  EXPECT_EQ(video->subviews(), std::vector<std::shared_ptr<platform::View>>{view});
  video->layoutIfNeeded();
  EXPECT_EQ(view->frame(), platform::Rect(0, 0, 320, 180));

  // A tap on the video is told around the browser it opens.
  auto vast = std::dynamic_pointer_cast<ZVVastPlayer>(view);
  ASSERT_TRUE(vast);
  ASSERT_TRUE(test::runMainQueueUntil([&] { return vast->vastAdPlayer() != nullptr; }));
  std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(vast->vastAdPlayer())->touchesEnded();
  auto browser =
      std::dynamic_pointer_cast<platform::SafariViewController>(root_->presentedViewController());
  ASSERT_TRUE(browser);
  browser->finish();

  // VAST players never report a start, so the video stays "loading" until its end.
  MainQueue::shared().advanceBy(seconds(2));
  EXPECT_EQ(video->state(), 1);
  MainQueue::shared().advanceBy(seconds(20));
  ASSERT_TRUE(waitFor("finish"));
  EXPECT_EQ(video->state(), 3);
  EXPECT_EQ(recorder_.names(),
            (std::vector<std::string>{"receive", "present", "dismiss", "finish"}));

  video->loadAd();  // refused: a load would make it loading again
  EXPECT_EQ(video->state(), 3);
}

TEST_F(InBannerVideoTest, AVideoReleasedDuringPlaybackHearsNothingMore) {
  auto video = makeVideo();
  video->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  video->playAd();
  MainQueue::shared().advanceBy(seconds(2));
  std::weak_ptr<ZVInBannerVideo> watch = video;
  video->removeFromSuperview();
  video.reset();
  EXPECT_TRUE(watch.expired());
  MainQueue::shared().advanceBy(seconds(20));
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"receive"});
}

TEST_F(InBannerVideoTest, AVideoReleasedDuringItsLoadHearsNothing) {
  server_.respond(test::kServadPath, {.body = "not json", .delay = std::chrono::milliseconds(100)});
  auto video = makeVideo();
  video->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return !server_.requests().empty(); }));
  video->removeFromSuperview();
  video.reset();
  ASSERT_TRUE(handler_->waitForCompletedFetches(1, std::chrono::seconds(10)));
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(recorder_.heard().empty());
}

}  // namespace
}  // namespace zorva
