#include <zorva/platform/Application.h>
#include <zorva/platform/Button.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/LayoutConstraint.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/ProgressView.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>
#include <zorva/platform/View.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace zorva::platform {
namespace {

// Records every window change it is told about.
class WatchingView : public View {
 public:
  static std::shared_ptr<WatchingView> create() {
    return std::shared_ptr<WatchingView>(new WatchingView());
  }
  void didMoveToWindow() override { moves.push_back(window() != nullptr); }
  std::vector<bool> moves;

 private:
  WatchingView() : View(Rect()) {}
};

// A linear video plays whenever it hears of a window change, so a move inside the same window
// must not count as one.
TEST(View, AMovedTreeHearsOfWindowChangesLayersAndConstraintsKeepTheirPlaceTouchesTravelUp) {
  auto window = Window::create(Rect(0, 0, 320, 480));
  auto parent = View::create();
  auto child = WatchingView::create();
  parent->addSubview(child);
  window->addSubview(parent);
  auto sibling = View::create();
  window->addSubview(sibling);
  sibling->addSubview(parent);
  parent->removeFromSuperview();
  EXPECT_EQ(child->moves, (std::vector<bool>{true, false}));

  // The linear player's video layer goes in at index 0 so its progress bar stays visible.
  auto view = View::create(Rect(0, 0, 100, 100));
  auto before = View::create();
  auto after = View::create();
  view->addSubview(before);
  auto video = Layer::create();
  view->layer()->insertSublayer(video, 0);
  view->addSubview(after);
  EXPECT_EQ(view->layer()->sublayers(),
            (std::vector<std::shared_ptr<Layer>>{video, before->layer(), after->layer()}));

  // The view utilities' tests rely on this to notice a view left translating its frame.
  auto pinned = View::create(Rect(5, 5, 10, 10));
  view->addSubview(pinned);
  LayoutConstraint::activateConstraints(
      {LayoutConstraint::constraintWithItem(pinned, LayoutAttribute::Leading, LayoutRelation::Equal,
                                            view, LayoutAttribute::Leading, 1, 0)});
  view->layoutIfNeeded();
  EXPECT_EQ(pinned->frame(), Rect(5, 5, 10, 10));

  // The linear player's test that a tap goes no further than the player means something only if
  // touches do travel up by default. A progress bar stays within zero and one.
  auto holder = View::create();
  auto button = Button::buttonWithType(ButtonType::Custom);
  auto inner = View::create();
  holder->addSubview(button);
  button->addSubview(inner);
  int taps = 0;
  button->addTarget([&](Button& sender) { taps += &sender == button.get(); },
                    kControlEventTouchUpInside);
  inner->touchesEnded();
  EXPECT_EQ(taps, 1);

  auto bar = ProgressView::create();
  bar->setProgress(1.5f);
  EXPECT_EQ(bar->progress(), 1.0f);
  bar->setProgress(std::nanf(""));  // 0 / 0 from a media of no duration
  EXPECT_EQ(bar->progress(), 0.0f);
}

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

// A view is loaded once, on first use. Presenting completes on a later turn with the view in the
// key window; a presenter taking its controller down keeps it alive until the completion has run.
// What the link resolver's tests do not show of the two presentable controllers: a sheet's load
// finished by the host, and the addresses the browser takes.
TEST(ViewController, PresentedControllersAreKeptUntilTheirCompletionsHaveRunAndSheetsEndOnce) {
  auto root = ViewController::create();
  auto other = DeviceProfile::phone().makeKeyWindow(ViewController::create());
  auto window = DeviceProfile::phone().makeKeyWindow(root);
  EXPECT_FALSE(other->isKeyWindow());
  EXPECT_EQ(Application::shared().keyWindow(), window);
  auto modal = CountingController::create();
  EXPECT_FALSE(modal->isViewLoaded());
  bool presented = false;
  root->presentViewController(modal, true, [&] { presented = true; });
  EXPECT_EQ(root->presentedViewController(), modal);
  EXPECT_EQ(modal->presentingViewController(), root);
  auto view = modal->view();
  EXPECT_EQ(modal->view(), view);
  EXPECT_EQ(modal->loads, 1);
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

  // A host finishing a store sheet's load (the demo does) ends only its latest.
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
