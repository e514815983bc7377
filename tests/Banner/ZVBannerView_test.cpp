// The banner end to end: the real loader, request builder and display player,
// libcurl, the loopback server and the headless web engine; refresh and retry
// on the virtual clock.
#include <gtest/gtest.h>

#include <zorva/ZVBannerView.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/Window.h>

#include <future>

#include "Banner/ZVBannerViewImpl.h"
#include "support/AdFormatTesting.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::MainQueue;
using platform::seconds;
using test::Recorder;

class BannerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    clock_ = test::useVirtualClock();
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
  }

  std::shared_ptr<ZVBannerView> makeBanner(unsigned long refresh = 0,
                                           std::shared_ptr<ZVAdRequest> request = nullptr) {
    auto banner =
        ZVBannerView::create(request ? request : test::requestFor(server_), ZVAdSize{320, 50});
    banner->setRefreshInterval(refresh);
    banner->setDelegate(delegate_);
    return banner;
  }
  bool waitFor(const std::string& name, std::size_t count = 1) {
    return test::runMainQueueUntil([&] { return recorder_.count(name) >= count; });
  }

  std::shared_ptr<platform::VirtualClock> clock_;
  test::LoopbackServer server_;
  Recorder recorder_;
  std::shared_ptr<ZVBannerViewDelegate> delegate_ =
      test::recordingBannerDelegate<ZVBannerViewDelegate>(recorder_);
};

// A click in the loaded ad is told around the browser it opens.
TEST_F(BannerTest, ALoadedAdsViewIsPinnedInsideTheBannerBeforeTheAppHearsAndTellsClicks) {
  auto root = platform::ViewController::create();
  auto window = platform::DeviceProfile::phone().makeKeyWindow(root);
  auto banner = makeBanner();
  banner->setFrame(platform::Rect(0, 0, 360, 60));  // not the ad's own size
  delegate_->bannerViewDidReceiveAd = [&](ZVBannerView& b) {
    recorder_.note("receive");
    EXPECT_EQ(b.subviews().size(), 1u);
  };
  banner->loadAd();
  EXPECT_EQ(banner->state(), 1);
  banner->loadAd();  // refused while loading
  ASSERT_TRUE(waitFor("receive"));
  EXPECT_TRUE(recorder_.heard()[0].onMainThread);
  auto view = ZVBannerView::Impl::of(*banner).player()->playerView();
  ASSERT_EQ(banner->subviews(), std::vector<std::shared_ptr<platform::View>>{view});
  banner->layoutIfNeeded();
  EXPECT_EQ(view->frame(), platform::Rect(0, 0, 360, 60));
  // A display ad never reports a start, nor, without a refresh interval, an end: the banner stays
  // loading with no timer pending.
  EXPECT_EQ(banner->state(), 1);
  EXPECT_EQ(MainQueue::shared().nextFireDate(), std::nullopt);

  // The banner asked once, for its slot, not its frame.
  ASSERT_EQ(server_.requests().size(), 1u);
  EXPECT_EQ(Value::parse(server_.requests()[0].body)["imp"][0]["banner"].dump(),
            R"({"w":320,"h":50})");

  auto page = std::dynamic_pointer_cast<platform::WebView>(view);
  ASSERT_TRUE(page);
  platform::HeadlessWebEngine::of(*page)->clickLink(
      platform::URLRequest(platform::URL::URLWithString("https://advertiser.example/")));
  auto browser =
      std::dynamic_pointer_cast<platform::SafariViewController>(root->presentedViewController());
  ASSERT_TRUE(browser);
  browser->finish();
  EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"receive", "present", "dismiss"}));
}

TEST_F(BannerTest, WithRefreshEachSessionEndsAfterTheIntervalAndTheNextLoadStartsAtOnce) {
  auto banner = makeBanner(30);
  banner->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  auto firstView = ZVBannerView::Impl::of(*banner).player()->playerView();

  MainQueue::shared().advanceBy(seconds(29.9));
  EXPECT_EQ(banner->state(), 1);
  MainQueue::shared().advanceBy(seconds(0.1));
  EXPECT_EQ(banner->state(), 3);
  ASSERT_TRUE(waitFor("receive", 2));

  // The new ad's view goes on top; the old one stays underneath.
  auto secondView = ZVBannerView::Impl::of(*banner).player()->playerView();
  EXPECT_EQ(banner->subviews(),
            (std::vector<std::shared_ptr<platform::View>>{firstView, secondView}));
  // The finished state refuses the app's loads (which would make it loading); the refresh
  // continues on its own.
  banner->loadAd();
  EXPECT_EQ(banner->state(), 3);
}

// A transport failure is told on the network thread, which also schedules the retry. A second
// failure replaces the retry tracker, but the first retry still comes.
TEST_F(BannerTest, WithRefreshEveryFailureIsToldAndRetriedAfterTheIntervalWithoutLoadAd) {
  auto banner = makeBanner(30, test::unreachableRequest());
  banner->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  EXPECT_FALSE(recorder_.heard()[0].onMainThread);
  EXPECT_EQ(banner->state(), 1);
  EXPECT_EQ(MainQueue::shared().nextFireDate(), clock_->now() + seconds(30));
  MainQueue::shared().advanceBy(seconds(10));
  ZVBannerView::Impl::of(*banner).playerDidFailWithError(Error("WebKitErrorDomain", 102));
  MainQueue::shared().advanceBy(seconds(20));
  ASSERT_TRUE(waitFor("fail", 3));  // the first retry, due at 30 s
  EXPECT_FALSE(recorder_.heard()[2].onMainThread);
  MainQueue::shared().advanceBy(seconds(10));
  ASSERT_TRUE(waitFor("fail", 4));  // the second, due at 40 s
}

TEST_F(BannerTest, WithoutRefreshAFailureMakesTheBannerLoadableAgain) {
  server_.respond(test::kServadPath, {.body = "not json"});
  auto banner = makeBanner(0);
  banner->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  EXPECT_TRUE(recorder_.heard()[0].onMainThread);
  EXPECT_EQ(banner->state(), 0);
  EXPECT_EQ(MainQueue::shared().nextFireDate(), std::nullopt);

  banner->loadAd();
  ASSERT_TRUE(waitFor("fail", 2));
  EXPECT_EQ(server_.requests().size(), 2u);
}

TEST_F(BannerTest, ADelegateWithoutCallbacksHearsNothingAndNothingBreaks) {
  auto silent = std::make_shared<ZVBannerViewDelegate>();
  auto banner = makeBanner(30);
  banner->setDelegate(silent);
  banner->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return banner->subviews().size() == 1; }));
  auto& impl = ZVBannerView::Impl::of(*banner);
  impl.playerWillPresentModal();
  impl.playerDidDismissModal();
  impl.didFailToReceivedAd(Error("test", 1, {}));
}

// Neither a shown ad's session timer nor a failure's retry timer keeps its banner alive, and
// neither does anything once the banner is gone.
TEST_F(BannerTest, AReleasedBannerNeitherRefreshesNorRetries) {
  auto shown = makeBanner(30);
  shown->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  server_.respond(test::kServadPath, {.body = "not json"});
  auto failed = makeBanner(30);
  failed->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  std::weak_ptr<ZVBannerView> watchShown = shown, watchFailed = failed;
  shown.reset();
  failed.reset();
  EXPECT_TRUE(watchShown.expired());
  EXPECT_TRUE(watchFailed.expired());
  MainQueue::shared().advanceBy(seconds(60));
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"receive", "fail"}));
}

// The app lets go of the banner while its transport failure is being told on
// the network thread: the banner, and the views in it, must still be destroyed
// on the main thread.
TEST_F(BannerTest, ABannerReleasedDuringANetworkThreadFailureDiesOnTheMainThread) {
  auto banner = makeBanner(0, test::unreachableRequest());
  auto probe = std::make_shared<test::DestructionProbe::Record>();
  banner->addSubview(test::DestructionProbe::create(probe));
  auto inCallback = std::make_shared<std::atomic<bool>>(false);
  std::promise<void> released;
  delegate_->bannerViewDidFailToReceiveAdWithError =
      [inCallback, appLetGo = released.get_future().share()](ZVBannerView&, const Error&) {
        *inCallback = true;
        appLetGo.wait_for(std::chrono::seconds(10));
      };
  banner->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return inCallback->load(); }));
  banner.reset();
  released.set_value();
  EXPECT_FALSE(probe->destroyed);
  ASSERT_TRUE(test::runMainQueueUntil([&] { return probe->destroyed.load(); }));
  EXPECT_TRUE(probe->onMainThread);
}

}  // namespace
}  // namespace zorva
