#include "Common/ZVLinkResolver.h"

#include <zorva/platform/Application.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Common/ZVLog.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::MainQueue;
using platform::ModalPresentationStyle;
using platform::SafariViewController;
using platform::StoreProductViewController;

const platform::URL kClickURL = *platform::URL::URLWithString("https://advertiser.example/c?x=1");

class RecordingResolverDelegate : public ZVLinkResolverDelegate {
 public:
  void resolverWillPresentModal(ZVLinkResolver& resolver) override {
    events.push_back("willPresent");
    EXPECT_EQ(&resolver, expected);
  }
  void resolverDidDismissModal(ZVLinkResolver& resolver) override {
    events.push_back("didDismiss");
    EXPECT_EQ(&resolver, expected);
  }
  const ZVLinkResolver* expected = nullptr;
  std::vector<std::string> events;
};

void useSystem(const char* version, platform::InterfaceOrientationMask orientations =
                                        platform::kInterfaceOrientationMaskAllButUpsideDown) {
  auto profile = platform::DeviceProfile::phone();
  profile.systemVersion = version;
  profile.supportedOrientations = orientations;
  profile.apply();
}

// Everything a bid may carry, each value convertible.
const Value kFullInfo = {{"version", "2.2"},
                         {"network", "example123.skadnetwork"},
                         {"campaign", "42"},
                         {"itunesitem", "880047117"},
                         {"nonce", "473b1a16-b4ef-43ad-9591-fcf3aefa82a7"},
                         {"sourceapp", "123456789"},
                         {"timestamp", "1594406341"},
                         {"signature", "MEQCIEQlmZRNfYzKBSE8QnhLTIHZZZWCFgZpRqRxHss65KoFAiAJ"}};

class ZVLinkResolverTest : public testing::Test {
 protected:
  void SetUp() override {
    ZVResetAppSuitabilityForTesting();
    delegate = std::make_shared<RecordingResolverDelegate>();
    resolver = ZVLinkResolver::create();
    resolver->setDelegate(delegate);
    delegate->expected = resolver.get();
  }
  void TearDown() override { ZVResetAppSuitabilityForTesting(); }

  // A key window after the profile is chosen, so it gets the profile's scene.
  void showApp() {
    root = platform::ViewController::create();
    platform::DeviceProfile::phone().makeKeyWindow(root);
  }
  std::shared_ptr<SafariViewController> browser() const {
    return std::dynamic_pointer_cast<SafariViewController>(root->presentedViewController());
  }
  std::shared_ptr<StoreProductViewController> storeSheet() const {
    return std::dynamic_pointer_cast<StoreProductViewController>(root->presentedViewController());
  }

  std::shared_ptr<RecordingResolverDelegate> delegate;
  std::shared_ptr<ZVLinkResolver> resolver;
  std::shared_ptr<platform::ViewController> root;
};

TEST_F(ZVLinkResolverTest, WithoutEnoughAttributionTheClickOpensTheBrowser) {
  showApp();
  const Value cases[] = {
      nullptr,
      Value::object(),
      {{"itunesitem", "880047117"}},                                   // one parameter only
      {{"itunesitem", "abc"}, {"network", "example123.skadnetwork"}},  // no item number
      {{"network", "example123.skadnetwork"}, {"signature", "s"}},     // no item at all
      Value::array({"itunesitem", "1"}),                               // not a dictionary
  };
  for (const auto& info : cases) {
    SCOPED_TRACE(info.dump());
    delegate->events.clear();
    resolver->resolve(kClickURL, info);
    auto opened = browser();
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->url(), kClickURL);
    EXPECT_EQ(opened->modalPresentationStyle(), ModalPresentationStyle::OverFullScreen);
    EXPECT_EQ(delegate->events, (std::vector<std::string>{"willPresent"}));
    opened->finish();
    EXPECT_EQ(delegate->events, (std::vector<std::string>{"willPresent", "didDismiss"}));
    EXPECT_EQ(root->presentedViewController(), nullptr);
  }
  EXPECT_EQ(resolver->skProductController(), nullptr);
}

TEST_F(ZVLinkResolverTest, FromSystem14EnoughAttributionOpensTheStoreSheetWithItsParameters) {
  showApp();
  test::LogCapture log;
  ZVLog::setLevel(3);
  resolver->resolve(kClickURL, kFullInfo);
  auto sheet = storeSheet();
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet, resolver->skProductController());
  EXPECT_EQ(sheet->modalPresentationStyle(), ModalPresentationStyle::OverFullScreen);
  EXPECT_EQ(sheet->delegate(), resolver);
  const Value expected = {
      {"id", 880047117},
      {"adNetworkAttributionSignature", "MEQCIEQlmZRNfYzKBSE8QnhLTIHZZZWCFgZpRqRxHss65KoFAiAJ"},
      {"adNetworkIdentifier", "example123.skadnetwork"},
      {"adNetworkCampaignIdentifier", 42},
      {"adNetworkTimestamp", 1594406341},
      {"adNetworkNonce", "473B1A16-B4EF-43AD-9591-FCF3AEFA82A7"},
      {"adNetworkPayloadVersion", "2.2"},
      {"adNetworkSourceAppStoreIdentifier", 123456789}};
  ASSERT_TRUE(sheet->productParameters());
  EXPECT_EQ(sheet->productParameters()->dump(), expected.dump());  // order included
  EXPECT_TRUE(sheet->isLoading());
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"willPresent"}));
  auto shown = log.entriesContaining("Showing SKProductController, Params - ");
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_NE(shown[0].find("- I -"), std::string::npos);
  EXPECT_NE(shown[0].find("\"adNetworkNonce\":\"473B1A16"), std::string::npos);

  // The user closes it: taken down at once, reported when the dismissal completes.
  sheet->finish();
  EXPECT_EQ(root->presentedViewController(), nullptr);
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"willPresent"}));
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"willPresent", "didDismiss"}));
}

TEST_F(ZVLinkResolverTest, BeforeSystem14TheBrowserOpensWhateverTheAppSupports) {
  for (auto orientations : {platform::kInterfaceOrientationMaskAllButUpsideDown,
                            platform::kInterfaceOrientationMaskLandscape}) {
    useSystem("13.7", orientations);
    ZVResetAppSuitabilityForTesting();
    showApp();
    resolver->resolve(kClickURL, kFullInfo);
    EXPECT_TRUE(browser());
    EXPECT_EQ(resolver->skProductController(), nullptr);
  }
  EXPECT_TRUE(ZVStoreKitParameters(kFullInfo).empty());
}

TEST_F(ZVLinkResolverTest, ValuesThatDoNotConvertLeaveTheirKeysOut) {
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
}

TEST_F(ZVLinkResolverTest, ClicksArePresentedFromTheTopMostController) {
  showApp();
  auto cover = platform::ViewController::create();
  root->presentViewController(cover, false, nullptr);
  resolver->resolve(kClickURL, nullptr);
  EXPECT_TRUE(std::dynamic_pointer_cast<SafariViewController>(cover->presentedViewController()));

  // With no key window there is nowhere to present from; the delegate still hears will-present.
  platform::Application::shared().reset();
  auto elsewhere = ZVLinkResolver::create();
  elsewhere->setDelegate(delegate);
  delegate->expected = elsewhere.get();
  delegate->events.clear();
  elsewhere->resolve(kClickURL, kFullInfo);
  ASSERT_TRUE(elsewhere->skProductController());
  EXPECT_EQ(elsewhere->skProductController()->presentingViewController(), nullptr);
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"willPresent"}));
}

TEST_F(ZVLinkResolverTest, AnAddressTheBrowserCannotOpenIsDroppedWithAWarning) {
  showApp();
  test::LogCapture log;
  ZVLog::setLevel(2);
  resolver->resolve(*platform::URL::URLWithString("ftp://files.example/ad.zip"), nullptr);
  EXPECT_EQ(root->presentedViewController(), nullptr);
  EXPECT_TRUE(delegate->events.empty());
  EXPECT_EQ(log.entriesContaining("ftp://files.example/ad.zip").size(), 1u);
}

TEST(ZVAppSuitableForShowingStoreProductViewController, IsPortraitSupportWorkedOutOnce) {
  ZVResetAppSuitabilityForTesting();
  useSystem("12.4", platform::kInterfaceOrientationMaskPortrait);
  EXPECT_TRUE(ZVAppSuitableForShowingStoreProductViewController());
  useSystem("12.4", platform::kInterfaceOrientationMaskLandscape);
  EXPECT_TRUE(ZVAppSuitableForShowingStoreProductViewController());  // kept
  ZVResetAppSuitabilityForTesting();
  EXPECT_FALSE(ZVAppSuitableForShowingStoreProductViewController());
  ZVResetAppSuitabilityForTesting();
}

TEST(NumberFromString, ReadsDecimalStringsOnly) {
  EXPECT_EQ(NumberFromString("880047117"), Value(880047117));
  EXPECT_TRUE(NumberFromString("880047117")->is_number_integer());
  EXPECT_EQ(NumberFromString("-12"), Value(-12));
  EXPECT_EQ(NumberFromString("+7"), Value(7));
  EXPECT_EQ(NumberFromString("2.5"), Value(2.5));
  EXPECT_EQ(NumberFromString("-.5"), Value(-0.5));
  EXPECT_EQ(NumberFromString("99999999999999999999"), Value(1e20));  // past 64 bits
  for (const char* text : {"", "+", ".", "12a", " 1", "1 ", "1,000", "1e3", "0x10", "1.2.3"}) {
    EXPECT_EQ(NumberFromString(text), std::nullopt) << text;
  }
  EXPECT_EQ(NumberFromString(Value(5)), std::nullopt);
  EXPECT_EQ(NumberFromString(Value(nullptr)), std::nullopt);
}

TEST(ZVResourcesBundle, IsTheDirectoryOfTheSDKLibrary) {
  auto bundle = ZVResourcesBundle();
  ASSERT_TRUE(bundle);
  EXPECT_EQ(ZVResourcesBundle(), bundle);
  // The library file itself is the one thing the directory surely holds.
  auto library = ZVPathForResource("libzorva", "so");
  ASSERT_TRUE(library);
  EXPECT_EQ(std::filesystem::path(*library).parent_path(), bundle->bundlePath());
  EXPECT_EQ(ZVPathForResource("no-such-resource", "png"), std::nullopt);
  static const char inThisProgram = 0;
  EXPECT_NE(platform::Bundle::bundleForAddress(&inThisProgram), bundle);
}

}  // namespace
}  // namespace zorva
