#include <zorva/platform/Application.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include <gtest/gtest.h>

namespace zorva::platform {
namespace {

class CountingController : public ViewController {
 public:
  static std::shared_ptr<CountingController> create() {
    return std::shared_ptr<CountingController>(new CountingController());
  }
  void viewDidLoad() override {
    ViewController::viewDidLoad();
    ++loads;
  }
  int loads = 0;
};

TEST(ViewController, ViewIsLoadedOnceOnFirstUse) {
  auto controller = CountingController::create();
  EXPECT_FALSE(controller->isViewLoaded());
  auto view = controller->view();
  EXPECT_EQ(controller->view(), view);
  EXPECT_EQ(controller->loads, 1);
}

TEST(ViewController, PresentationCompletesOnALaterTurnWithTheViewInTheWindow) {
  auto root = ViewController::create();
  auto window = DeviceProfile::phone().makeKeyWindow(root);
  auto modal = ViewController::create();
  bool done = false;
  root->presentViewController(modal, true, [&] { done = true; });
  EXPECT_EQ(root->presentedViewController(), modal);
  EXPECT_EQ(modal->presentingViewController(), root);
  EXPECT_EQ(modal->view()->window(), window);
  EXPECT_FALSE(done);
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(done);
}

// A presenter taking its controller down keeps it alive until the completion has run.
TEST(ViewController, ADismissedControllerIsKeptAliveUntilItsCompletionRuns) {
  auto root = ViewController::create();
  auto window = DeviceProfile::phone().makeKeyWindow(root);
  auto modal = ViewController::create();
  root->presentViewController(modal, false, nullptr);
  auto view = modal->view();
  std::weak_ptr<ViewController> watch = modal;
  modal.reset();
  bool aliveInCompletion = false;
  root->dismissViewControllerAnimated(false, [&] { aliveInCompletion = !watch.expired(); });
  EXPECT_EQ(root->presentedViewController(), nullptr);
  EXPECT_EQ(view->window(), nullptr);
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(aliveInCompletion);
  EXPECT_TRUE(watch.expired());
}

TEST(Window, MakingAWindowKeyClearsTheOthersAndTellsTheApplication) {
  auto first = DeviceProfile::phone().makeKeyWindow(ViewController::create());
  auto second = DeviceProfile::phone().makeKeyWindow(ViewController::create());
  EXPECT_FALSE(first->isKeyWindow());
  EXPECT_TRUE(second->isKeyWindow());
  EXPECT_EQ(Application::shared().keyWindow(), second);
}

}  // namespace
}  // namespace zorva::platform
