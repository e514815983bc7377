#include <zorva/platform/Application.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

// Presenting completes on a later turn with the view in the window; a presenter taking its
// controller down keeps it alive until the completion has run.
TEST(ViewController, PresentedControllersAreKeptUntilTheirCompletionsHaveRun) {
  auto root = ViewController::create();
  auto window = DeviceProfile::phone().makeKeyWindow(root);
  auto modal = ViewController::create();
  bool presented = false;
  root->presentViewController(modal, true, [&] { presented = true; });
  EXPECT_EQ(root->presentedViewController(), modal);
  EXPECT_EQ(modal->presentingViewController(), root);
  auto view = modal->view();
  EXPECT_EQ(view->window(), window);
  EXPECT_FALSE(presented);
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(presented);

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

// What the link resolver's tests do not show of the two presentable controllers: a host finishing
// a sheet's load (the demo does) and the addresses the browser takes.
TEST(StoreProductViewController, KeepsTheLatestLoadAndTheBrowserOpensOnlyWebAddresses) {
  auto sheet = StoreProductViewController::create();
  std::vector<std::string> completions;
  sheet->loadProductWithParameters({{"id", 1}}, [&](bool, auto) { completions.push_back("1"); });
  sheet->loadProductWithParameters({{"id", 2}}, [&](bool, auto) { completions.push_back("2"); });
  EXPECT_EQ(sheet->productParameters(), Value({{"id", 2}}));
  EXPECT_TRUE(sheet->finishLoading(true));
  EXPECT_FALSE(sheet->finishLoading(true));
  EXPECT_EQ(completions, std::vector<std::string>{"2"});
  // The browser opens only web addresses, whatever their case.
  EXPECT_EQ(SafariViewController::create(*URL::URLWithString("itms-apps://apps.example/id1")),
            nullptr);
  EXPECT_TRUE(SafariViewController::create(*URL::URLWithString("HTTP://Example.com/")));
}

}  // namespace
}  // namespace zorva::platform
