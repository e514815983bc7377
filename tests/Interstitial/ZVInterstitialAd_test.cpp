// The interstitial end to end: loaded off screen through the loopback server,
// shown in the modal controller, a click in the headless web engine reported as
// the app's click.
#include <gtest/gtest.h>

#include <zorva/ZVInterstitialAd.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/Window.h>

#include "Common/ZVLog.h"
#include "Interstitial/ZVInterstitialAdImpl.h"
#include "support/AdFormatTesting.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::MainQueue;
using test::Recorder;

std::shared_ptr<ZVInterstitialAdDelegate> recordingDelegate(Recorder& recorder) {
  auto delegate = std::make_shared<ZVInterstitialAdDelegate>();
  delegate->interstitialDidReceiveAd = [&recorder](ZVInterstitialAd&) { recorder.note("receive"); };
  delegate->interstitialDidFailToReceiveAdWithError = [&recorder](ZVInterstitialAd&, const Error&) {
    recorder.note("fail");
  };
  delegate->interstitialDidClickAd = [&recorder](ZVInterstitialAd&) { recorder.note("click"); };
  delegate->interstitialDidDismissAd = [&recorder](ZVInterstitialAd&) { recorder.note("dismiss"); };
  return delegate;
}

class InterstitialTest : public ::testing::Test {
 protected:
  void SetUp() override {
    handler_ = test::ObservingNetworkHandler::install();
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
    window_ = platform::DeviceProfile::phone().makeKeyWindow(root_);
  }

  std::shared_ptr<ZVInterstitialAd> makeAd() {
    auto ad = ZVInterstitialAd::create(test::requestFor(server_));
    ad->setDelegate(delegate_);
    return ad;
  }
  bool waitFor(const std::string& name, std::size_t count = 1) {
    return test::runMainQueueUntil([&] { return recorder_.count(name) >= count; });
  }

  std::shared_ptr<test::ObservingNetworkHandler> handler_;
  test::LoopbackServer server_;
  Recorder recorder_;
  std::shared_ptr<ZVInterstitialAdDelegate> delegate_ = recordingDelegate(recorder_);
  std::shared_ptr<platform::ViewController> root_ = platform::ViewController::create();
  std::shared_ptr<platform::Window> window_;
};

TEST_F(InterstitialTest, LoadsOffScreenAndShowsInTheModalController) {
  auto ad = makeAd();
  ad->loadAd();
  EXPECT_EQ(ad->state(), 1);
  ASSERT_TRUE(waitFor("receive"));
  EXPECT_EQ(ad->state(), 2);
  auto view = ZVInterstitialAd::Impl::of(*ad).player()->playerView();
  EXPECT_EQ(view->window(), nullptr);
  EXPECT_EQ(ad->modalController(), nullptr);

  const Value imp = Value::parse(server_.requests().at(0).body)["imp"][0];
  EXPECT_EQ(imp["instl"], 1);
  EXPECT_TRUE(imp.contains("banner"));

  ad->showFromViewController(root_);
  auto modal = std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController());
  ASSERT_NE(modal, nullptr);
  EXPECT_EQ(root_->presentedViewController(), modal);
  EXPECT_EQ(modal->contentView(), view);
  EXPECT_EQ(view->window(), window_);
}

TEST_F(InterstitialTest, WithoutWillPresentTheStateStaysLoadedAfterShowing) {
  auto ad = makeAd();
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  ad->showFromViewController(root_);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(ad->state(), 2);
  ZVLog::setLevel(2);
  test::LogCapture log;
  ad->loadAd();
  EXPECT_EQ(log.entriesContaining("-[ZVInterstitialAd loadAd]").size(), 1u);
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST_F(InterstitialTest, WillPresentArrivesOnALaterTurnAndMarksTheAdShown) {
  int presented = 0;
  delegate_->interstitialWillPresentAd = [&](ZVInterstitialAd& ad) {
    ++presented;
    EXPECT_EQ(ad.state(), 2);
  };
  auto ad = makeAd();
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  ad->showFromViewController(root_);
  EXPECT_EQ(presented, 0);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(presented, 1);
  EXPECT_EQ(ad->state(), 3);
}

TEST_F(InterstitialTest, AClickInTheAdIsReportedAsTheAppsClick) {
  auto ad = makeAd();
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  ad->showFromViewController(root_);
  MainQueue::shared().runUntilIdle();
  auto web = test::findWebView(ZVInterstitialAd::Impl::of(*ad).player()->playerView());
  ASSERT_NE(web, nullptr);
  auto engine = platform::HeadlessWebEngine::of(*web);
  ASSERT_NE(engine, nullptr);
  platform::URLRequest tap;
  tap.url = platform::URL::URLWithString("https://example.com/landing");
  engine->clickLink(tap);
  ASSERT_TRUE(waitFor("click"));
  EXPECT_TRUE(recorder_.heard().back().onMainThread);
}

TEST_F(InterstitialTest, AVideoInterstitialAsksForVideoAndShowsTheVastPlayer) {
  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::linearVast())});
  auto ad = makeAd();
  ad->setSwitchToVideo(true);
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  const Value imp = Value::parse(server_.requests().at(0).body)["imp"][0];
  EXPECT_TRUE(imp.contains("video"));
  EXPECT_EQ(imp["instl"], 1);
  auto& impl = ZVInterstitialAd::Impl::of(*ad);
  EXPECT_TRUE(impl.adLoader()->config()->isVideo);
  auto view = impl.player()->playerView();
  EXPECT_EQ(view->window(), nullptr);
  EXPECT_EQ(test::findWebView(view), nullptr);

  ad->showFromViewController(root_);
  EXPECT_EQ(view->window(), window_);
  EXPECT_EQ(ad->state(), 2);
}

TEST_F(InterstitialTest, AFailedLoadMakesItLoadableAgain) {
  server_.respond(test::kServadPath, {.body = "not json"});
  auto ad = makeAd();
  test::LogCapture log;
  ad->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  EXPECT_EQ(ad->state(), 0);
  EXPECT_EQ(log.entriesContaining("-[ZVInterstitialAd notifyError:]").size(), 1u);
  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  EXPECT_EQ(server_.requests().size(), 2u);
  EXPECT_EQ(ad->state(), 2);
}

TEST_F(InterstitialTest, ATransportFailureArrivesOnTheNetworkThread) {
  auto ad = ZVInterstitialAd::create(test::unreachableRequest());
  ad->setDelegate(delegate_);
  ad->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  EXPECT_FALSE(recorder_.heard()[0].onMainThread);
  EXPECT_EQ(ad->state(), 0);
}

TEST_F(InterstitialTest, ShowingBeforeALoadPresentsAnEmptyModal) {
  auto ad = makeAd();
  ad->showFromViewController(root_);
  auto modal = std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController());
  ASSERT_NE(modal, nullptr);
  EXPECT_EQ(modal->contentView(), nullptr);
  EXPECT_EQ(modal->viewIfLoaded()->subviews().size(), 1u);
  EXPECT_EQ(root_->presentedViewController(), modal);
}

TEST_F(InterstitialTest, ClosingTheModalIsNotReportedButModalDidDissmissIs) {
  auto ad = makeAd();
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  ad->showFromViewController(root_);
  MainQueue::shared().runUntilIdle();
  auto modal = std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController());
  for (const auto& sub : modal->viewIfLoaded()->subviews()) {
    if (auto button = std::dynamic_pointer_cast<platform::Button>(sub)) button->touchesEnded();
  }
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(root_->presentedViewController(), nullptr);
  EXPECT_EQ(recorder_.count("dismiss"), 0u);
  EXPECT_EQ(ad->state(), 2);

  ZVInterstitialAd::Impl::of(*ad).modalDidDissmiss();
  EXPECT_EQ(recorder_.count("dismiss"), 1u);
  EXPECT_EQ(ad->state(), 0);
}

TEST_F(InterstitialTest, AReleasedInterstitialHearsNothingFromItsLoad) {
  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup),
                                      .delay = std::chrono::milliseconds(100)});
  auto ad = makeAd();
  ad->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return !server_.requests().empty(); }));
  ad.reset();
  ASSERT_TRUE(handler_->waitForCompletedFetches(1, std::chrono::seconds(10)));
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(recorder_.heard().empty());
}

TEST_F(InterstitialTest, AnInterstitialReleasedWhileShownHearsNothingMore) {
  auto ad = makeAd();
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  ad->showFromViewController(root_);
  std::weak_ptr<ZVInterstitialAd> watch = ad;
  ad.reset();
  // The presentation's completion still holds it; afterwards it goes.
  EXPECT_FALSE(watch.expired());
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"receive"});
}

}  // namespace
}  // namespace zorva
