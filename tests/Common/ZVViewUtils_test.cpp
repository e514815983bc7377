#include "Common/ZVViewUtils.h"

#include <zorva/platform/Application.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

namespace zorva {
namespace {

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

// The frames the constraints give are checked where the ad views and the modal controller use
// them; a view without a parent gets none.
TEST(ZVViewUtils, AViewWithoutAParentIsNotConstrained) {
  auto child = platform::View::create();
  EXPECT_TRUE(ZVViewUtils::alignToParent(child).empty());
  EXPECT_TRUE(ZVViewUtils::alignTopRigthCorner(child).empty());
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
