#include <zorva/platform/AdvertisingIdentifierManager.h>
#include <zorva/platform/Application.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/ProcessInfo.h>
#include <zorva/platform/TelephonyNetworkInfo.h>
#include <zorva/platform/TimeZone.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/WebView.h>
#include <zorva/platform/Window.h>

#include <gtest/gtest.h>

#include <cctype>

#include "Common/ZVUtility.h"

namespace zorva {
namespace {

using platform::InterfaceOrientation;

// Sets the SIM's carrier: its country, mobile country code and network code.
void useCarrier(std::optional<std::string> iso, std::optional<std::string> mcc,
                std::optional<std::string> mnc) {
  platform::TelephonyNetworkInfo::setSubscriberCarrier(
      platform::Carrier{"Jio", std::move(iso), std::move(mcc), std::move(mnc)});
}

TEST(ZVUtilityApp, AppNameFallsThroughDisplayNameBundleNameAndProcessName) {
  auto& bundle = platform::Bundle::mainBundle();
  platform::ProcessInfo::setProcessName("host-proc");
  EXPECT_EQ(ZVUtility::appName(), "host-proc");
  bundle.setInfoDictionary({{"CFBundleName", "Plain Name"}});
  EXPECT_EQ(ZVUtility::appName(), "Plain Name");
  bundle.setLocalizedInfoDictionary({{"CFBundleName", "Localized Name"}});
  EXPECT_EQ(ZVUtility::appName(), "Localized Name");
  bundle.setInfoDictionary({{"CFBundleName", "Plain Name"}, {"CFBundleDisplayName", "Shown"}});
  // A display name beats even a localized bundle name.
  EXPECT_EQ(ZVUtility::appName(), "Shown");
  bundle.setLocalizedInfoDictionary({{"CFBundleDisplayName", "Montré"}});
  EXPECT_EQ(ZVUtility::appName(), "Montré");
}

// The tracking flag passes through uninverted; the device type follows the idiom.
TEST(ZVUtilityDevice, LimitAdTrackingAndDeviceType) {
  auto& manager = platform::AdvertisingIdentifierManager::sharedManager();
  manager.setAdvertisingTrackingEnabled(true);
  EXPECT_EQ(ZVUtility::limitAdTracking(), 1);
  manager.setAdvertisingTrackingEnabled(false);
  EXPECT_EQ(ZVUtility::limitAdTracking(), 0);

  EXPECT_EQ(ZVUtility::deviceType(), 4);
  platform::DeviceProfile::tablet().apply();
  EXPECT_EQ(ZVUtility::deviceType(), 5);
  platform::Device::currentDevice().setUserInterfaceIdiom(platform::UserInterfaceIdiom::TV);
  EXPECT_EQ(ZVUtility::deviceType(), std::nullopt);
}

// The operator code needs both codes; the country code maps the SIM's country and keeps only a
// hit for the process.
TEST(ZVUtilityOperator, MccmncNeedsBothCodesAndTheCountryCodeCachesOnlyAHit) {
  useCarrier("in", std::nullopt, "45");
  EXPECT_EQ(ZVUtility::mccmnc(), std::nullopt);
  useCarrier("zz", "404", "");
  EXPECT_EQ(ZVUtility::mccmnc(), std::nullopt);
  EXPECT_EQ(ZVUtility::countryCode(), std::nullopt);
  platform::TelephonyNetworkInfo::setSubscriberCarrier(std::nullopt);
  EXPECT_EQ(ZVUtility::mccmnc(), std::nullopt);
  EXPECT_EQ(ZVUtility::countryCode(), std::nullopt);
  useCarrier("in", "404", "45");
  EXPECT_EQ(ZVUtility::mccmnc(), "404-45");
  EXPECT_EQ(ZVUtility::countryCode(), "IND");  // the earlier misses were not kept
  useCarrier("us", "310", "260");
  EXPECT_EQ(ZVUtility::countryCode(), "IND");  // a hit is kept

  ZVUtility::resetCachesForTesting();
  useCarrier("xk", "221", "01");
  EXPECT_EQ(ZVUtility::countryCode(), "XKX");
}

TEST(ZVUtilityTime, CurrentTimeIsSecondsPrecisionLocalTime) {
  const std::string now = ZVUtility::currentTime();
  // Checked by hand: GCC 12's <regex> trips -Wmaybe-uninitialized in the sanitizer build.
  const std::string shape = "dddd-dd-dd dd:dd:dd";
  ASSERT_EQ(now.size(), shape.size()) << now;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    EXPECT_TRUE(shape[i] == 'd' ? std::isdigit(static_cast<unsigned char>(now[i])) != 0
                                : now[i] == shape[i])
        << now;
  }
}

TEST(ZVUtilityTime, CurrentTimeZoneIsTheSystemZonesOffset) {
  ZVUtility::currentTime();  // the shared formatter exists before the zone changes
  platform::TimeZone::setSystemTimeZone(*platform::TimeZone::timeZoneWithName("Asia/Kolkata"));
  EXPECT_EQ(ZVUtility::currentTimeZone(), "+05:30");
  platform::TimeZone::setSystemTimeZone(platform::TimeZone::timeZoneForSecondsFromGMT(-8 * 3600));
  EXPECT_EQ(ZVUtility::currentTimeZone(), "-08:00");
  platform::TimeZone::setSystemTimeZone(*platform::TimeZone::timeZoneWithName("UTC"));
  EXPECT_EQ(ZVUtility::currentTimeZone(), "Z");
}

struct OrientationCase {
  const char* system;
  platform::DeviceProfile profile;
  InterfaceOrientation statusBar;
  std::optional<InterfaceOrientation> scene;  // absent: the key window has no scene
  int orientation;
  ZVAdSize size;
  bool keyWindow = true;
};

// Names the case in test listings: system, idiom and expected size.
void PrintTo(const OrientationCase& c, std::ostream* os) {
  *os << "system " << c.system << ", " << c.profile.model << ", " << c.size.width << "x"
      << c.size.height;
}

class ZVUtilityOrientation : public testing::TestWithParam<OrientationCase> {};

TEST_P(ZVUtilityOrientation, FollowsTheSceneFrom13AndTheStatusBarBefore) {
  const auto& c = GetParam();
  auto profile = c.profile;
  profile.systemVersion = c.system;
  profile.apply();
  if (c.keyWindow) {
    auto window = profile.makeKeyWindow(platform::ViewController::create());
    window->setWindowScene(c.scene ? platform::WindowScene::create(*c.scene) : nullptr);
  }
  platform::Application::shared().setStatusBarOrientation(c.statusBar);
  EXPECT_EQ(ZVUtility::orientation(), c.orientation);
  EXPECT_EQ(ZVUtility::interstitialDefaultSize(), c.size);
}

std::vector<OrientationCase> orientationCases() {
  using enum InterfaceOrientation;
  const auto phone = platform::DeviceProfile::phone();
  const auto tablet = platform::DeviceProfile::tablet();
  auto carPlay = phone;
  carPlay.idiom = platform::UserInterfaceIdiom::CarPlay;
  return {{"17.0", phone, LandscapeLeft, Portrait, 0, {320, 480}},
          {"13.0", phone, Portrait, LandscapeRight, 1, {480, 320}},
          {"12.4", phone, LandscapeLeft, Portrait, 1, {480, 320}},
          {"12.4", tablet, PortraitUpsideDown, std::nullopt, 0, {768, 1024}},
          {"16.0", tablet, Portrait, LandscapeLeft, 1, {1024, 768}},
          {"17.0", phone, Portrait, std::nullopt, -1, {0, 0}},
          {"17.0", phone, Portrait, std::nullopt, -1, {0, 0}, false},
          {"12.0", phone, Unknown, std::nullopt, -1, {0, 0}},
          {"17.0", carPlay, Portrait, Portrait, 0, {0, 0}}};
}
INSTANTIATE_TEST_SUITE_P(Cases, ZVUtilityOrientation, testing::ValuesIn(orientationCases()));

// arrayForData wraps a dictionary and drops scalars; queryString joins descriptions unencoded.
TEST(ZVUtilityDictionaries, ArrayForDataAndQueryString) {
  Value data = {{"list", {1, 2}}, {"one", {{"k", "v"}}}, {"text", "x"}};
  EXPECT_EQ(ZVUtility::arrayForData(data, "list"), Value({1, 2}));
  EXPECT_EQ(ZVUtility::arrayForData(data, "one"), Value::array({{{"k", "v"}}}));
  EXPECT_EQ(ZVUtility::arrayForData(data, "text"), Value::array());
  EXPECT_EQ(ZVUtility::arrayForData(data, "missing"), Value::array());
  EXPECT_EQ(ZVUtility::arrayForData(Value("not a dictionary"), "list"), Value::array());

  Value query = Value::object();
  query["pid"] = "a b&c";
  query["w"] = 320;
  query["ratio"] = 1.5;
  query["coppa"] = true;
  EXPECT_EQ(ZVUtility::queryString(query), "pid=a b&c&w=320&ratio=1.5&coppa=1");
  EXPECT_EQ(ZVUtility::queryString(Value::object()), "");
}

// --- user agent ---

struct Answers {
  std::vector<std::optional<std::string>> got;
  std::function<void(std::optional<std::string>)> callback() {
    return [this](std::optional<std::string> ua) { got.push_back(std::move(ua)); };
  }
};

std::shared_ptr<platform::HeadlessWebEngine> onlyEngine() {
  auto engines = platform::HeadlessWebEngine::liveEngines();
  EXPECT_EQ(engines.size(), 1u);
  return engines.empty() ? nullptr : engines.front();
}

TEST(ZVUtilityUserAgent, TheWebViewLivesUntilTheScriptEndsAndOnlyAResultIsCached) {
  platform::HeadlessWebEngine::setAutomaticByDefault(false);
  Answers answers;

  // An error is answered with nothing; neither result nor error is not answered at all. Either
  // way the web view lives, held by nobody but the pending script, until the script ends.
  for (const std::optional<Error>& error :
       {std::optional(Error("WKErrorDomain", 4)), std::optional<Error>()}) {
    ZVUtility::userAgent(answers.callback());
    auto engine = onlyEngine();
    ASSERT_TRUE(engine);
    EXPECT_EQ(engine->pendingScripts(), std::vector<std::string>{"navigator.userAgent"});
    std::weak_ptr<platform::WebView> webView = engine->webView();
    engine.reset();
    platform::MainQueue::shared().runUntilIdle();
    ASSERT_FALSE(webView.expired());
    platform::HeadlessWebEngine::of(*webView.lock())->completeScript(std::nullopt, error);
    EXPECT_TRUE(webView.expired());
    EXPECT_EQ(answers.got, std::vector<std::optional<std::string>>(1, std::nullopt));
  }

  // Errors and silences were not cached: the next call runs the script again.
  ZVUtility::userAgent(answers.callback());
  onlyEngine()->completeScript(Value("Agent/1.0"), std::nullopt);
  EXPECT_TRUE(platform::HeadlessWebEngine::liveEngines().empty());
  // A result is: the next call answers at once, with no web view.
  ZVUtility::userAgent(answers.callback());
  EXPECT_TRUE(platform::HeadlessWebEngine::liveEngines().empty());
  EXPECT_EQ(answers.got,
            (std::vector<std::optional<std::string>>{std::nullopt, "Agent/1.0", "Agent/1.0"}));
}

TEST(ZVUtilityUserAgent, EarlyCallersEachRunTheirOwnWebViewAndTheLastSuccessWins) {
  platform::HeadlessWebEngine::setAutomaticByDefault(false);
  Answers answers;
  ZVUtility::userAgent(answers.callback());
  ZVUtility::userAgent(answers.callback());
  auto engines = platform::HeadlessWebEngine::liveEngines();
  ASSERT_EQ(engines.size(), 2u);
  engines[1]->completeScript(Value("second"), std::nullopt);
  engines[0]->completeScript(Value("first"), std::nullopt);
  ZVUtility::userAgent(answers.callback());
  EXPECT_EQ(answers.got, (std::vector<std::optional<std::string>>{"second", "first", "first"}));
}

}  // namespace
}  // namespace zorva
