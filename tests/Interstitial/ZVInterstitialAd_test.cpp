// The interstitial end to end: loaded off screen through the loopback server, shown in the modal
// controller under its close button, a click in the headless web engine reported as the app's
// click. Then the modal controller alone: how the close button reaches its delegate, and how it
// forces an orientation on old and new systems.
#include <gtest/gtest.h>

#include <zorva/platform/HeadlessWebEngine.h>

#include "Interstitial/ZVInterstitialAdImpl.h"
#include "Interstitial/ZVModalViewController.h"
#include "support/AdWorld.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::InterfaceOrientation;
using platform::MainQueue;
using platform::Rect;
using InterstitialTest = test::AdWorldTest;

std::shared_ptr<platform::Button> closeButtonOf(const ZVModalViewController& controller) {
  for (const auto& view : controller.viewIfLoaded()->subviews()) {
    if (auto button = std::dynamic_pointer_cast<platform::Button>(view)) return button;
  }
  return nullptr;
}

TEST_F(InterstitialTest, LoadsOffScreenShowsInTheModalControllerAndReportsAClick) {
  auto ad = makeInterstitial();
  ad->loadAd();
  EXPECT_EQ(ad->state(), 1);
  ASSERT_TRUE(waitFor("receive"));
  EXPECT_EQ(ad->state(), 2);
  auto view = ZVInterstitialAd::Impl::of(*ad).player()->playerView();
  EXPECT_EQ(view->window(), nullptr);
  EXPECT_EQ(ad->modalController(), nullptr);

  EXPECT_EQ(Value::parse(server_.requests().at(0).body)["imp"][0]["instl"], 1);

  ad->showFromViewController(root_);
  auto modal = std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController());
  ASSERT_NE(modal, nullptr);
  EXPECT_EQ(root_->presentedViewController(), modal);
  EXPECT_EQ(view->window(), window_);
  // The content fills the screen under the close button, which sits in the top right corner.
  auto button = closeButtonOf(*modal);
  ASSERT_EQ(modal->viewIfLoaded()->subviews(),
            (std::vector<std::shared_ptr<platform::View>>{view, button}));
  modal->viewIfLoaded()->layoutIfNeeded();
  EXPECT_EQ(view->frame(), Rect(0, 0, 375, 812));
  EXPECT_EQ(button->frame(), Rect(375 - 10 - 32, 10, 32, 32));
  EXPECT_EQ(modal->supportedOrientations(), 30u);

  MainQueue::shared().runUntilIdle();
  auto web = test::findWebView(view);
  auto engine = web ? platform::HeadlessWebEngine::of(*web) : nullptr;
  ASSERT_NE(engine, nullptr);
  engine->clickLink(
      platform::URLRequest(platform::URL::URLWithString("https://example.com/landing")));
  ASSERT_TRUE(waitFor("click"));
  EXPECT_TRUE(recorder_.heard().back().onMainThread);
}

TEST_F(InterstitialTest,
       AVideoInterstitialAsksForVideoShowsTheVastPlayerAndHearsNothingOnceReleased) {
  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::linearVast())});
  auto ad = makeInterstitial();
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
  // Released while shown, the presentation's completion still holds it; afterwards it goes,
  // having heard nothing more.
  std::weak_ptr<ZVInterstitialAd> watch = ad;
  ad.reset();
  EXPECT_FALSE(watch.expired());
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"receive"});
}

// Before a load, the modal is shown empty, and without a presenter made and kept but not shown.
// Showing is told, on a later turn, only to an app that listens, and only then is the ad marked
// shown; the modal's dismissal is told (closing it is not: see the app conventions).
TEST_F(InterstitialTest, ShowingIsToldOnlyToAnAppThatListensAndDismissalIsTold) {
  auto ad = makeInterstitial();
  const auto close = [&] {
    closeButtonOf(*std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController()))
        ->touchesEnded();
    MainQueue::shared().runUntilIdle();
  };
  ad->showFromViewController(nullptr);
  ASSERT_TRUE(ad->modalController());
  EXPECT_EQ(root_->presentedViewController(), nullptr);
  ad->showFromViewController(root_);
  auto empty = std::dynamic_pointer_cast<ZVModalViewController>(ad->modalController());
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(root_->presentedViewController(), empty);
  EXPECT_EQ(empty->viewIfLoaded()->subviews(),
            std::vector<std::shared_ptr<platform::View>>{closeButtonOf(*empty)});
  close();

  ad->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  ad->showFromViewController(root_);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(ad->state(), 2);
  ad->loadAd();  // refused: a load would make it loading again
  EXPECT_EQ(ad->state(), 2);

  close();
  interstitialDelegate_->interstitialWillPresentAd = [&](ZVInterstitialAd& shown) {
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

class CountingModalDelegate : public ZVModalViewControllerDelegate {
 public:
  void modalDidDissmiss() override { ++dismissals; }
  int dismissals = 0;
};

class PresentedModal : public ::testing::Test {
 protected:
  void present(const std::string& systemVersion = "17.0") {
    auto profile = platform::DeviceProfile::phone();
    profile.systemVersion = systemVersion;
    profile.apply();
    window = profile.makeKeyWindow(root);
    modal = ZVModalViewController::create(platform::View::create(),
                                          platform::kInterfaceOrientationMaskAll,
                                          InterfaceOrientation::Portrait);
    root->presentViewController(modal, false, nullptr);
    MainQueue::shared().runUntilIdle();
  }

  std::shared_ptr<platform::ViewController> root = platform::ViewController::create();
  std::shared_ptr<platform::Window> window;
  std::shared_ptr<ZVModalViewController> modal;
};

// A delegate gone before the dismissal ends hears nothing and is not kept alive for it.
TEST_F(PresentedModal, CloseDismissesFirstAndTellsTheDelegateOnALaterTurn) {
  present();
  auto delegate = std::make_shared<CountingModalDelegate>();
  modal->setDelegate(delegate);
  closeButtonOf(*modal)->touchesEnded();
  EXPECT_EQ(root->presentedViewController(), nullptr);
  EXPECT_EQ(delegate->dismissals, 0);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(delegate->dismissals, 1);

  root->presentViewController(modal, false, nullptr);
  MainQueue::shared().runUntilIdle();
  closeButtonOf(*modal)->touchesEnded();
  std::weak_ptr<CountingModalDelegate> watch = delegate;
  delegate.reset();
  EXPECT_TRUE(watch.expired());
  MainQueue::shared().runUntilIdle();
}

// From 13.0 the controller is dismissed and presented again; before, it presents and dismisses
// a blank controller of its own. Either way it ends presented as before, in the new orientation.
class ForcedOrientation : public PresentedModal, public testing::WithParamInterface<bool> {};

TEST_P(ForcedOrientation, EndsWithTheSameControllerPresented) {
  const bool from13 = GetParam();
  present(from13 ? "13.0" : "12.4");
  int completions = 0;
  modal->forceOrientation(InterfaceOrientation::LandscapeLeft, [&] {
    ++completions;
    EXPECT_EQ(root->presentedViewController(), modal);
  });
  EXPECT_EQ(root->presentedViewController() == nullptr, from13);
  EXPECT_EQ(modal->presentedViewController() != nullptr, !from13);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(completions, 1);
  EXPECT_EQ(root->presentedViewController(), modal);
  EXPECT_EQ(modal->presentingViewController(), root);
  EXPECT_EQ(modal->presentedViewController(), nullptr);
  EXPECT_EQ(modal->preferredInterfaceOrientationForPresentation(),
            InterfaceOrientation::LandscapeLeft);
}

INSTANTIATE_TEST_SUITE_P(Systems, ForcedOrientation, testing::Bool(),
                         [](const auto& info) { return info.param ? "From13" : "Before13"; });

}  // namespace
}  // namespace zorva
