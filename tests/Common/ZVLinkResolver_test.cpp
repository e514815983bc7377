// Clicks: the link resolver, and the view utilities it presents from.
#include "Common/ZVLinkResolver.h"

#include <zorva/platform/Application.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Common/ZVUtility.h"
#include "Common/ZVViewUtils.h"

namespace zorva {
namespace {

using platform::SafariViewController;
using platform::StoreProductViewController;
using Events = std::vector<std::string>;

const platform::URL kClickURL = *platform::URL::URLWithString("https://advertiser.example/c?x=1");

// Everything a bid may carry, each value convertible.
const Value kFullInfo = {{"version", "2.2"},
                         {"network", "example123.skadnetwork"},
                         {"campaign", "42"},
                         {"itunesitem", "880047117"},
                         {"nonce", "473b1a16-b4ef-43ad-9591-fcf3aefa82a7"},
                         {"sourceapp", "123456789"},
                         {"timestamp", "1594406341"},
                         {"signature", "MEQCIEQlmZRNfYzKBSE8Qn"}};

class RecordingResolverDelegate : public ZVLinkResolverDelegate {
 public:
  void resolverWillPresentModal(ZVLinkResolver&) override { events.push_back("willPresent"); }
  void resolverDidDismissModal(ZVLinkResolver&) override { events.push_back("didDismiss"); }
  Events events;
};

class ZVLinkResolverTest : public testing::Test {
 protected:
  void SetUp() override {
    ZVResetAppSuitabilityForTesting();
    resolver->setDelegate(delegate);
    platform::DeviceProfile::phone().makeKeyWindow(root);
  }
  template <typename Controller>
  std::shared_ptr<Controller> presented() const {
    return std::dynamic_pointer_cast<Controller>(root->presentedViewController());
  }

  std::shared_ptr<RecordingResolverDelegate> delegate =
      std::make_shared<RecordingResolverDelegate>();
  std::shared_ptr<ZVLinkResolver> resolver = ZVLinkResolver::create();
  std::shared_ptr<platform::ViewController> root = platform::ViewController::create();
};

// Before 14.0 the store takes no attribution, so even a portrait app gets the browser.
TEST_F(ZVLinkResolverTest, WithoutEnoughAttributionOrBefore14TheClickOpensTheBrowser) {
  const std::pair<Value, const char*> cases[] = {
      {nullptr, "17.0"},
      {Value::object(), "17.0"},
      {{{"itunesitem", "880047117"}}, "17.0"},  // one parameter only
      {{{"itunesitem", "abc"}, {"network", "example123.skadnetwork"}}, "17.0"},  // no item number
      {kFullInfo, "13.7"},
  };
  for (const auto& [info, system] : cases) {
    SCOPED_TRACE(info.dump());
    auto profile = platform::DeviceProfile::phone();
    profile.systemVersion = system;
    profile.supportedOrientations = platform::kInterfaceOrientationMaskPortrait;
    profile.apply();
    delegate->events.clear();
    resolver->resolve(kClickURL, info);
    auto browser = presented<SafariViewController>();
    ASSERT_TRUE(browser);
    EXPECT_EQ(browser->url(), kClickURL);
    EXPECT_EQ(browser->modalPresentationStyle(), platform::ModalPresentationStyle::OverFullScreen);
    browser->finish();
    EXPECT_EQ(delegate->events, (Events{"willPresent", "didDismiss"}));
  }
  EXPECT_EQ(resolver->skProductController(), nullptr);
  EXPECT_TRUE(ZVStoreKitParameters(kFullInfo).empty());
}

TEST_F(ZVLinkResolverTest, FromSystem14EnoughAttributionOpensTheStoreSheetWithItsParameters) {
  resolver->resolve(kClickURL, kFullInfo);
  auto sheet = presented<StoreProductViewController>();
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet, resolver->skProductController());
  EXPECT_EQ(sheet->modalPresentationStyle(), platform::ModalPresentationStyle::OverFullScreen);
  const Value expected = {{"id", 880047117},
                          {"adNetworkAttributionSignature", "MEQCIEQlmZRNfYzKBSE8Qn"},
                          {"adNetworkIdentifier", "example123.skadnetwork"},
                          {"adNetworkCampaignIdentifier", 42},
                          {"adNetworkTimestamp", 1594406341},
                          {"adNetworkNonce", "473B1A16-B4EF-43AD-9591-FCF3AEFA82A7"},
                          {"adNetworkPayloadVersion", "2.2"},
                          {"adNetworkSourceAppStoreIdentifier", 123456789}};
  ASSERT_TRUE(sheet->productParameters());
  EXPECT_EQ(sheet->productParameters()->dump(), expected.dump());  // order included

  // The user closes it: taken down at once, reported when the dismissal completes.
  sheet->finish();
  EXPECT_EQ(root->presentedViewController(), nullptr);
  EXPECT_EQ(delegate->events, (Events{"willPresent"}));
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_EQ(delegate->events, (Events{"willPresent", "didDismiss"}));
}

TEST(ZVStoreKitParameters, ValuesThatDoNotConvertLeaveTheirKeysOutAndNumbersAreDecimalStrings) {
  Value info = kFullInfo;
  info["nonce"] = "not-a-uuid";
  info["campaign"] = 42;  // a number, not a string
  info["timestamp"] = "soon";
  info["sourceapp"] = nullptr;
  info["signature"] = nullptr;
  const Value expected = {{"id", 880047117},
                          {"adNetworkIdentifier", "example123.skadnetwork"},
                          {"adNetworkPayloadVersion", "2.2"}};
  EXPECT_EQ(ZVStoreKitParameters(info).dump(), expected.dump());
  info["itunesitem"] = 880047117;  // the item itself must be a string
  EXPECT_TRUE(ZVStoreKitParameters(info).empty());

  // Numbers are read from decimal strings only.
  EXPECT_EQ(NumberFromString("880047117"), Value(880047117));
  EXPECT_TRUE(NumberFromString("880047117")->is_number_integer());
  EXPECT_EQ(NumberFromString("+7"), Value(7));
  EXPECT_EQ(NumberFromString("-.5"), Value(-0.5));
  EXPECT_EQ(NumberFromString("99999999999999999999"), Value(1e20));  // past 64 bits
  for (const char* text : {"", "+", ".", "12a", " 1", "1,000", "1e3", "1.2.3"}) {
    EXPECT_EQ(NumberFromString(text), std::nullopt) << text;
  }
  EXPECT_EQ(NumberFromString(Value(5)), std::nullopt);
}

TEST_F(ZVLinkResolverTest, ClicksArePresentedFromTheTopMostControllerIfThereIsOne) {
  const auto base = ZVViewUtils::zv_modalPresentationBaseViewController;
  EXPECT_EQ(base(ZVAppRootViewController()), root);
  auto cover = platform::ViewController::create();
  auto top = platform::ViewController::create();
  root->presentViewController(cover, false, nullptr);
  cover->presentViewController(top, false, nullptr);
  EXPECT_EQ(base(ZVAppRootViewController()), top);
  EXPECT_EQ(base(cover), top);
  EXPECT_EQ(base(nullptr), nullptr);
  resolver->resolve(kClickURL, nullptr);
  EXPECT_TRUE(std::dynamic_pointer_cast<SafariViewController>(top->presentedViewController()));

  // An address the browser cannot open is dropped: nothing is presented or told.
  auto other = ZVLinkResolver::create();
  other->setDelegate(delegate);
  other->resolve(*platform::URL::URLWithString("ftp://files.example/ad.zip"), nullptr);

  // With no key window nothing is shown, but will-present is still reported.
  platform::Application::shared().reset();
  other->resolve(kClickURL, kFullInfo);
  ASSERT_TRUE(other->skProductController());
  EXPECT_EQ(other->skProductController()->presentingViewController(), nullptr);
  EXPECT_EQ(delegate->events, (Events{"willPresent", "willPresent"}));
}

TEST(ZVResourcesBundle, IsTheDirectoryOfTheFileHoldingTheSDK) {
  // An app loads the SDK from libzorva.so; the tests link it statically, so its code, and with it
  // its bundle, is in this test program.
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<const void*>(&ZVUtility::sdkVersion), &info), 0);
  auto file = std::filesystem::canonical(info.dli_fname);
  auto bundle = ZVResourcesBundle();
  ASSERT_TRUE(bundle);
  EXPECT_EQ(file.parent_path(), bundle->bundlePath());
  EXPECT_EQ(ZVPathForResource(file.filename().string(), ""), file.string());
  EXPECT_EQ(ZVPathForResource("no-such-resource", "png"), std::nullopt);
}

void useSystem(const char* version) {
  auto profile = platform::DeviceProfile::phone();
  profile.systemVersion = version;
  profile.apply();
}

// From system 13 the key window is the first flagged window in order, before it the
// application's own answer; the root controller is the key window's.
TEST(ZVkeyWindow, FromSystem13ItIsTheFirstFlaggedWindowAndBeforeTheApplicationsKeyWindow) {
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

  auto declared = platform::Window::create(platform::Rect(0, 0, 375, 812));
  application.setKeyWindow(declared);  // the application's own answer, apart from the flags
  EXPECT_EQ(ZVkeyWindow(), b);
  useSystem("12.4");
  EXPECT_EQ(ZVkeyWindow(), declared);
}

TEST(ZVViewUtils, TheAdWebViewPlaysMediaWithoutATapOnEachSystemsOwnSettingAndHasNoConstraints) {
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

  // The frames the constraints give are checked where the ad views and the modal controller use
  // them; a view without a parent gets none.
  EXPECT_TRUE(ZVViewUtils::alignToParent(webView).empty());
  EXPECT_TRUE(ZVViewUtils::alignTopRigthCorner(webView).empty());
  EXPECT_TRUE(ZVViewUtils::alignToParent(nullptr).empty());
}

}  // namespace
}  // namespace zorva
