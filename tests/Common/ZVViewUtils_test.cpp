#include "Common/ZVViewUtils.h"

#include <zorva/platform/Application.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

namespace zorva {
namespace {

using platform::LayoutAttribute;
using platform::LayoutRelation;

void useSystem(const char* version) {
  auto profile = platform::DeviceProfile::phone();
  profile.systemVersion = version;
  profile.apply();
}

TEST(ZVkeyWindow, BeforeSystem13ItIsTheApplicationsKeyWindow) {
  useSystem("12.4");
  auto& application = platform::Application::shared();
  auto flagged = platform::DeviceProfile::phone().makeKeyWindow(platform::ViewController::create());
  auto declared = platform::Window::create(platform::Rect(0, 0, 375, 812));
  application.setKeyWindow(declared);  // the application's own answer, apart from the flags
  EXPECT_EQ(ZVkeyWindow(), declared);
  useSystem("13.0");
  EXPECT_EQ(ZVkeyWindow(), flagged);
}

TEST(ZVkeyWindow, FromSystem13ItIsTheFirstFlaggedWindowInOrder) {
  auto& application = platform::Application::shared();
  auto a = platform::Window::create(platform::Rect());
  auto b = platform::Window::create(platform::Rect());
  application.addWindow(a);
  application.addWindow(b);
  EXPECT_EQ(ZVkeyWindow(), nullptr);
  EXPECT_EQ(ZVAppRootViewController(), nullptr);
  b->makeKeyWindow();
  EXPECT_EQ(ZVkeyWindow(), b);
  EXPECT_EQ(ZVAppRootViewController(), nullptr);  // a key window without a root
  auto root = platform::ViewController::create();
  b->setRootViewController(root);
  EXPECT_EQ(ZVAppRootViewController(), root);
}

TEST(ZVViewUtils, AlignToParentPinsTheFourEdgesInOrder) {
  auto parent = platform::View::create(platform::Rect(0, 0, 300, 250));
  auto child = platform::View::create(platform::Rect(7, 7, 7, 7));
  parent->addSubview(child);
  auto constraints = ZVViewUtils::alignToParent(child);
  ASSERT_EQ(constraints.size(), 4u);
  const LayoutAttribute order[] = {LayoutAttribute::Top, LayoutAttribute::Bottom,
                                   LayoutAttribute::Leading, LayoutAttribute::Trailing};
  for (std::size_t i = 0; i < 4; ++i) {
    const auto& c = constraints[i];
    EXPECT_EQ(c->firstItem(), child);
    EXPECT_EQ(c->firstAttribute(), order[i]);
    EXPECT_EQ(c->relation(), LayoutRelation::Equal);
    EXPECT_EQ(c->secondItem(), parent);
    EXPECT_EQ(c->secondAttribute(), order[i]);
    EXPECT_EQ(c->multiplier(), 1.0);
    EXPECT_EQ(c->constant(), 0.0);
    EXPECT_TRUE(c->isActive());
  }
  // The caller decides about the autoresizing mask. (The frames these constraints give are checked
  // where the ad views and the modal controller use them.)
  EXPECT_TRUE(child->translatesAutoresizingMaskIntoConstraints());
}

TEST(ZVViewUtils, TheCloseButtonBoxSits10PointsInFromTheTopRightCorner) {
  auto parent = platform::View::create(platform::Rect(0, 0, 375, 812));
  auto button = platform::View::create();
  parent->addSubview(button);
  auto constraints = ZVViewUtils::alignTopRigthCorner(button);
  ASSERT_EQ(constraints.size(), 4u);
  EXPECT_EQ(constraints[0]->firstAttribute(), LayoutAttribute::Width);
  EXPECT_EQ(constraints[0]->secondItem(), nullptr);
  EXPECT_EQ(constraints[0]->constant(), 32);
  EXPECT_EQ(constraints[1]->firstAttribute(), LayoutAttribute::Height);
  EXPECT_EQ(constraints[1]->constant(), 32);
  EXPECT_EQ(constraints[2]->firstAttribute(), LayoutAttribute::Top);
  EXPECT_EQ(constraints[2]->secondItem(), parent);
  EXPECT_EQ(constraints[2]->constant(), 10);
  EXPECT_EQ(constraints[3]->firstAttribute(), LayoutAttribute::Trailing);
  EXPECT_EQ(constraints[3]->secondAttribute(), LayoutAttribute::Trailing);
  EXPECT_EQ(constraints[3]->constant(), -10);
  for (const auto& c : constraints) EXPECT_TRUE(c->isActive());
}

TEST(ZVViewUtils, AViewWithoutSuperviewGetsNoConstraints) {
  auto orphan = platform::View::create();
  EXPECT_TRUE(ZVViewUtils::alignToParent(orphan).empty());
  EXPECT_TRUE(ZVViewUtils::alignTopRigthCorner(orphan).empty());
  EXPECT_TRUE(ZVViewUtils::alignToParent(nullptr).empty());
}

TEST(ZVViewUtils, TheAdWebViewPlaysMediaWithoutATapOnEachSystemsOwnSetting) {
  auto webView = ZVViewUtils::webViewWithFrame(platform::Rect(0, 0, 320, 50));
  EXPECT_TRUE(webView->configuration().allowsInlineMediaPlayback);
  EXPECT_EQ(webView->configuration().mediaTypesRequiringUserActionForPlayback,
            platform::kAudiovisualMediaTypeNone);
  EXPECT_FALSE(webView->scrollView()->isScrollEnabled());
  EXPECT_EQ(webView->scrollView()->contentInsetAdjustmentBehavior(),
            platform::ScrollViewContentInsetAdjustmentBehavior::Never);

  useSystem("9.3");
  webView = ZVViewUtils::webViewWithFrame(platform::Rect());
  EXPECT_FALSE(webView->configuration().requiresUserActionForMediaPlayback);
  EXPECT_EQ(webView->configuration().mediaTypesRequiringUserActionForPlayback,
            platform::kAudiovisualMediaTypeAll);
  EXPECT_EQ(webView->scrollView()->contentInsetAdjustmentBehavior(),
            platform::ScrollViewContentInsetAdjustmentBehavior::Automatic);
  useSystem("10.3");
  EXPECT_EQ(ZVViewUtils::webViewWithFrame(platform::Rect())
                ->configuration()
                .mediaTypesRequiringUserActionForPlayback,
            platform::kAudiovisualMediaTypeNone);
}

TEST(ZVViewUtils, TheBaseControllerIsTheTopMostPresentedOne) {
  auto root = platform::ViewController::create();
  platform::DeviceProfile::phone().makeKeyWindow(root);
  auto a = platform::ViewController::create();
  auto b = platform::ViewController::create();
  EXPECT_EQ(ZVViewUtils::zv_modalPresentationBaseViewController(ZVAppRootViewController()), root);
  root->presentViewController(a, false, nullptr);
  a->presentViewController(b, false, nullptr);
  EXPECT_EQ(ZVViewUtils::zv_modalPresentationBaseViewController(ZVAppRootViewController()), b);
  EXPECT_EQ(ZVViewUtils::zv_modalPresentationBaseViewController(a), b);
  EXPECT_EQ(ZVViewUtils::zv_modalPresentationBaseViewController(nullptr), nullptr);
}

}  // namespace
}  // namespace zorva
