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
    sawView = viewIfLoaded() != nullptr;
  }
  int loads = 0;
  bool sawView = false;
};

TEST(ViewController, ViewIsLoadedOnceOnFirstUse) {
  auto controller = CountingController::create();
  EXPECT_FALSE(controller->isViewLoaded());
  auto view = controller->view();
  EXPECT_EQ(controller->view(), view);
  EXPECT_EQ(controller->loads, 1);
  EXPECT_TRUE(controller->sawView);
  EXPECT_EQ(view->frame(), DeviceProfile::phone().screenBounds());
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

TEST(ViewController, APresenterPresentsOneControllerAtATime) {
  auto root = ViewController::create();
  auto first = ViewController::create();
  auto second = ViewController::create();
  int completions = 0;
  root->presentViewController(first, false, [&] { ++completions; });
  root->presentViewController(second, false, [&] { ++completions; });
  first->presentViewController(first, false, [&] { ++completions; });
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(root->presentedViewController(), first);
  EXPECT_EQ(second->presentingViewController(), nullptr);
  EXPECT_EQ(completions, 1);
}

TEST(ViewController, DismissingTakesDownTheWholeChainAboveAndKeepsItAliveUntilCompletion) {
  auto root = ViewController::create();
  auto window = DeviceProfile::phone().makeKeyWindow(root);
  auto a = ViewController::create();
  auto b = ViewController::create();
  root->presentViewController(a, false, nullptr);
  a->presentViewController(b, false, nullptr);
  std::weak_ptr<ViewController> weakA = a, weakB = b;
  auto bView = b->view();
  a.reset();
  b.reset();

  bool done = false;
  bool aliveInCompletion = false;
  weakB.lock()->dismissViewControllerAnimated(false, [&] {
    done = true;
    aliveInCompletion = !weakA.expired();
  });
  // Dismissing the top-most controller asks its presenter, so only b goes.
  EXPECT_EQ(root->presentedViewController(), weakA.lock());
  EXPECT_EQ(bView->window(), nullptr);
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(done);

  done = false;
  root->dismissViewControllerAnimated(false, [&] {
    done = true;
    aliveInCompletion = !weakA.expired();
  });
  EXPECT_EQ(root->presentedViewController(), nullptr);
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(done);
  EXPECT_TRUE(aliveInCompletion);
  EXPECT_TRUE(weakA.expired());
}

TEST(ViewController, DismissingWithNothingPresentedDoesNothing) {
  auto lonely = ViewController::create();
  bool done = false;
  lonely->dismissViewControllerAnimated(false, [&] { done = true; });
  MainQueue::shared().runUntilIdle();
  EXPECT_FALSE(done);
}

TEST(Window, MakingAWindowKeyClearsTheOthersAndTellsTheApplication) {
  auto first = DeviceProfile::phone().makeKeyWindow(ViewController::create());
  auto second = DeviceProfile::phone().makeKeyWindow(ViewController::create());
  auto& application = Application::shared();
  EXPECT_EQ(application.windows().size(), 2u);
  EXPECT_FALSE(first->isKeyWindow());
  EXPECT_TRUE(second->isKeyWindow());
  EXPECT_EQ(application.keyWindow(), second);
  application.removeWindow(second);
  EXPECT_EQ(application.keyWindow(), nullptr);
}

}  // namespace
}  // namespace zorva::platform
