// The full-screen controller: what it shows, how it answers the platform about rotation, how
// the close button reaches its delegate, and how it forces an orientation on old and new systems.
#include <gtest/gtest.h>

#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Window.h>

#include "Interstitial/ZVModalViewController.h"

namespace zorva {
namespace {

using platform::InterfaceOrientation;
using platform::MainQueue;
using platform::Rect;

class CountingModalDelegate : public ZVModalViewControllerDelegate {
 public:
  void modalDidDissmiss() override { ++dismissals; }
  int dismissals = 0;
};

std::shared_ptr<platform::Button> closeButtonOf(const ZVModalViewController& controller) {
  for (const auto& view : controller.viewIfLoaded()->subviews()) {
    if (auto button = std::dynamic_pointer_cast<platform::Button>(view)) return button;
  }
  return nullptr;
}

TEST(ZVModalViewController, PinsTheContentUnderTheCloseButton) {
  auto content = platform::View::create(Rect(0, 0, 20, 20));
  auto controller = ZVModalViewController::create(content, platform::kInterfaceOrientationMaskAll,
                                                  InterfaceOrientation::LandscapeLeft);
  ASSERT_TRUE(controller->isViewLoaded());
  auto root = controller->viewIfLoaded();
  ASSERT_EQ(root->subviews().size(), 2u);
  EXPECT_EQ(root->subviews()[0], content);
  auto button = closeButtonOf(*controller);
  ASSERT_EQ(root->subviews()[1], button);
  root->layoutIfNeeded();
  EXPECT_EQ(content->frame(), Rect(0, 0, 375, 812));
  EXPECT_EQ(button->frame(), Rect(375 - 10 - 32, 10, 32, 32));
  EXPECT_EQ(button->titleForState(platform::kControlStateNormal), "X");
  EXPECT_EQ(button->layer()->cornerRadius(), 15);
  EXPECT_EQ(button->backgroundColor(), platform::Color::darkGrayColor());
  EXPECT_EQ(controller->supportedOrientations(), 30u);

  // Without content the screen is white, with the close button alone.
  auto empty = ZVModalViewController::create(nullptr, platform::kInterfaceOrientationMaskAll,
                                             InterfaceOrientation::Portrait);
  EXPECT_EQ(empty->viewIfLoaded()->subviews().size(), 1u);
  EXPECT_EQ(empty->viewIfLoaded()->backgroundColor(), platform::Color::whiteColor());
  EXPECT_TRUE(empty->viewIfLoaded()->isOpaque());
}

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
