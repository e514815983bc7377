#include <zorva/platform/Button.h>
#include <zorva/platform/LayoutConstraint.h>
#include <zorva/platform/ProgressView.h>
#include <zorva/platform/View.h>
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
TEST(View, AMovedTreeHearsOfWindowChangesAndLayersAndConstraintsKeepTheirPlace) {
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
}

// The linear player's test that a tap goes no further than the player means something only if
// touches do travel up by default. A progress bar stays within zero and one.
TEST(View, TouchesTravelUpToTheFirstViewThatHandlesThemAndProgressStaysWithinBounds) {
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

}  // namespace
}  // namespace zorva::platform
