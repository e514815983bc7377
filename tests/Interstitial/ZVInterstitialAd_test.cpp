// The interstitial end to end: loaded off screen through the loopback server,
// shown in the modal controller, a click in the headless web engine reported as
// the app's click.
#include <gtest/gtest.h>

#include <zorva/ZVInterstitialAd.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/Window.h>

#include "Interstitial/ZVInterstitialAdImpl.h"
#include "support/AdFormatTesting.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::MainQueue;
using test::Recorder;

class InterstitialTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
    window_ = platform::DeviceProfile::phone().makeKeyWindow(root_);
  }

  std::shared_ptr<ZVInterstitialAd> makeAd(std::shared_ptr<ZVAdRequest> request = nullptr) {
    auto ad = ZVInterstitialAd::create(request ? request : test::requestFor(server_));
    ad->setDelegate(delegate_);
    return ad;
  }
  bool waitFor(const std::string& name, std::size_t count = 1) {
    return test::runMainQueueUntil([&] { return recorder_.count(name) >= count; });
  }

  test::LoopbackServer server_;
  Recorder recorder_;
  std::shared_ptr<ZVInterstitialAdDelegate> delegate_ =
      test::recordingInterstitialDelegate(recorder_);
  std::shared_ptr<platform::ViewController> root_ = platform::ViewController::create();
  std::shared_ptr<platform::Window> window_;
};

TEST_F(InterstitialTest, LoadsOffScreenShowsInTheModalControllerAndReportsAClick) {
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
  EXPECT_EQ(imp["banner"].dump(), R"({"pos":7,"w":320,"h":480})");  // the portrait screen

  ad->showFromViewController(root_);
  auto modal = std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController());
  ASSERT_NE(modal, nullptr);
  EXPECT_EQ(root_->presentedViewController(), modal);
  EXPECT_EQ(modal->contentView(), view);
  EXPECT_EQ(view->window(), window_);

  MainQueue::shared().runUntilIdle();
  auto web = test::findWebView(view);
  auto engine = web ? platform::HeadlessWebEngine::of(*web) : nullptr;
  ASSERT_NE(engine, nullptr);
  engine->clickLink(
      platform::URLRequest(platform::URL::URLWithString("https://example.com/landing")));
  ASSERT_TRUE(waitFor("click"));
  EXPECT_TRUE(recorder_.heard().back().onMainThread);
}

TEST_F(InterstitialTest, AVideoInterstitialAsksForVideoAndShowsTheVastPlayer) {
  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::linearVast())});
  auto ad = makeAd();
  ad->setSwitchToVideo(true);
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  const Value video = Value::parse(server_.requests().at(0).body)["imp"][0]["video"];
  EXPECT_EQ(std::pair(video["w"], video["h"]), std::pair(Value(320), Value(480)));
  auto view = ZVInterstitialAd::Impl::of(*ad).player()->playerView();
  EXPECT_EQ(view->window(), nullptr);
  EXPECT_EQ(test::findWebView(view), nullptr);

  ad->showFromViewController(root_);
  EXPECT_EQ(view->window(), window_);
  EXPECT_EQ(ad->state(), 2);
}

TEST_F(InterstitialTest, ShowingBeforeALoadPresentsAnEmptyModal) {
  auto ad = makeAd();
  // Without a presenter the modal controller is still made and kept; nothing is presented.
  ad->showFromViewController(nullptr);
  ASSERT_TRUE(ad->modalController());
  EXPECT_EQ(root_->presentedViewController(), nullptr);
  ad->showFromViewController(root_);
  auto modal = std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController());
  ASSERT_NE(modal, nullptr);
  EXPECT_EQ(modal->contentView(), nullptr);
  EXPECT_EQ(modal->viewIfLoaded()->subviews().size(), 1u);
  EXPECT_EQ(root_->presentedViewController(), modal);
}

// Showing is told, on a later turn, only to an app that listens, and only then is the ad marked
// shown; the modal's dismissal is told (closing it is not: see the app conventions).
TEST_F(InterstitialTest, ShowingIsToldOnlyToAnAppThatListensAndDismissalIsTold) {
  auto ad = makeAd();
  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  ad->showFromViewController(root_);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(ad->state(), 2);
  ad->loadAd();  // refused: a load would make it loading again
  EXPECT_EQ(ad->state(), 2);

  for (const auto& sub : ad->modalController()->viewIfLoaded()->subviews()) {
    if (auto button = std::dynamic_pointer_cast<platform::Button>(sub)) button->touchesEnded();
  }
  MainQueue::shared().runUntilIdle();
  delegate_->interstitialWillPresentAd = [&](ZVInterstitialAd& shown) {
    recorder_.note("present");
    EXPECT_EQ(shown.state(), 2);
  };
  ad->showFromViewController(root_);
  EXPECT_EQ(recorder_.count("present"), 0u);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(recorder_.count("present"), 1u);
  EXPECT_EQ(ad->state(), 3);

  ZVInterstitialAd::Impl::of(*ad).modalDidDissmiss();
  EXPECT_EQ(recorder_.count("dismiss"), 1u);
  EXPECT_EQ(ad->state(), 0);
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
