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

TEST(View, EveryViewOfAMovedTreeHearsWhenItsWindowChanges) {
  auto window = Window::create(Rect(0, 0, 320, 480));
  auto parent = WatchingView::create();
  auto child = WatchingView::create();
  parent->addSubview(child);
  EXPECT_TRUE(child->moves.empty());  // no window yet on either side

  window->addSubview(parent);
  EXPECT_EQ(parent->moves, std::vector<bool>{true});
  EXPECT_EQ(child->moves, std::vector<bool>{true});
  EXPECT_EQ(child->window(), window);

  // Moving inside the same window is no window change.
  auto sibling = View::create();
  window->addSubview(sibling);
  sibling->addSubview(parent);
  EXPECT_EQ(child->moves.size(), 1u);

  parent->removeFromSuperview();
  EXPECT_EQ(child->moves, (std::vector<bool>{true, false}));
  EXPECT_EQ(child->window(), nullptr);
}

TEST(View, SubviewLayersFollowSubviewOrderAboveHandInsertedLayers) {
  auto view = View::create(Rect(0, 0, 100, 100));
  auto a = View::create();
  auto b = View::create();
  view->addSubview(a);
  auto video = Layer::create();
  view->layer()->insertSublayer(video, 0);
  view->addSubview(b);
  view->insertSubview(b, 0);  // b moves below a
  ASSERT_EQ(view->layer()->sublayers().size(), 3u);
  EXPECT_EQ(view->layer()->sublayers()[0], video);
  EXPECT_EQ(view->layer()->sublayers()[1], b->layer());
  EXPECT_EQ(view->layer()->sublayers()[2], a->layer());
  EXPECT_EQ(view->subviews(), (std::vector<std::shared_ptr<View>>{b, a}));
}

TEST(View, AViewCannotBecomeItsOwnAncestor) {
  auto parent = View::create();
  auto child = View::create();
  parent->addSubview(child);
  child->addSubview(parent);
  EXPECT_EQ(parent->superview(), nullptr);
  EXPECT_TRUE(child->subviews().empty());
}

TEST(View, AViewStillTranslatingItsFrameIgnoresConstraints) {
  auto parent = View::create(Rect(0, 0, 300, 200));
  auto child = View::create(Rect(5, 5, 10, 10));
  parent->addSubview(child);
  auto pin =
      LayoutConstraint::constraintWithItem(child, LayoutAttribute::Leading, LayoutRelation::Equal,
                                           parent, LayoutAttribute::Leading, 1, 0);
  LayoutConstraint::activateConstraints({pin});
  parent->layoutIfNeeded();
  EXPECT_EQ(child->frame(), Rect(5, 5, 10, 10));
  EXPECT_EQ(child->constraints().size(), 1u);

  LayoutConstraint::deactivateConstraints({pin});
  EXPECT_FALSE(pin->isActive());
  EXPECT_TRUE(child->constraints().empty());
}

TEST(View, TouchesTravelUpToTheFirstViewThatHandlesThem) {
  auto holder = View::create();
  auto button = Button::buttonWithType(ButtonType::Custom);
  auto inner = View::create();
  holder->addSubview(button);
  button->addSubview(inner);
  int taps = 0;
  button->addTarget([&](Button& sender) { taps += &sender == button.get(); },
                    kControlEventTouchUpInside);
  button->addTarget([&](Button&) { taps += 100; }, kControlEventTouchDown);
  inner->touchesEnded();
  EXPECT_EQ(taps, 1);
  EXPECT_EQ(button->allControlEvents(), kControlEventTouchUpInside | kControlEventTouchDown);
}

TEST(ProgressView, ProgressStaysWithinZeroAndOne) {
  auto bar = ProgressView::create();
  bar->setProgress(1.5f);
  EXPECT_EQ(bar->progress(), 1.0f);
  bar->setProgress(-0.1f);
  EXPECT_EQ(bar->progress(), 0.0f);
  bar->setProgress(std::nanf(""));  // 0 / 0 from a media of no duration
  EXPECT_EQ(bar->progress(), 0.0f);
}

}  // namespace
}  // namespace zorva::platform
