// The utilities the request and the ad objects read: the app, the device, the time, the user agent,
// the logger and the SDK's error records.
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/AdvertisingIdentifierManager.h>
#include <zorva/platform/Application.h>
#include <zorva/platform/Bundle.h>
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
#include <fstream>

#include "Common/ZVLog.h"
#include "Common/ZVUtility.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::InterfaceOrientation;

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

// The tracking flag passes through uninverted (enabled, the request's "lmt" is 1); a tablet is
// device type 5 (a phone's 4 and a TV's none are in the request's tests). The operator code needs
// both codes; the country code maps the SIM's country through the standard's table and three
// codes still on SIMs, and keeps only a hit for the process.
TEST(ZVUtilityDevice, TrackingTypeOperatorAndACountryCodeThatCachesOnlyAHit) {
  platform::AdvertisingIdentifierManager::sharedManager().setAdvertisingTrackingEnabled(false);
  EXPECT_EQ(ZVUtility::limitAdTracking(), 0);
  platform::DeviceProfile::tablet().apply();
  EXPECT_EQ(ZVUtility::deviceType(), 5);
  const auto useCarrier = [](std::optional<std::string> iso, std::optional<std::string> mcc,
                             std::optional<std::string> mnc) {
    platform::TelephonyNetworkInfo::setSubscriberCarrier(platform::Carrier{"Jio", iso, mcc, mnc});
  };
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

  const char* isoCodes = "/usr/share/iso-codes/json/iso_3166-1.json";
  std::ifstream file(isoCodes);
  ASSERT_TRUE(file) << isoCodes << " is missing: scripts/setup installs iso-codes";
  const auto standard = Value::parse(file)["3166-1"];
  ASSERT_EQ(standard.size(), 249u);
  auto expected = std::map<std::string, std::string>{{"XK", "XKX"}, {"CS", "SCG"}, {"AN", "ANT"}};
  for (const auto& country : standard) {
    expected[country["alpha_2"].get<std::string>()] = country["alpha_3"].get<std::string>();
  }
  EXPECT_EQ(ZVUtility::countryCodeDictionary(), expected);
}

// The time is local to the second; the zone is the system's, changed after the formatter exists.
TEST(ZVUtilityTime, CurrentTimeIsSecondsPrecisionLocalTimeInTheSystemZone) {
  const std::string now = ZVUtility::currentTime();
  // Checked by hand: GCC 12's <regex> trips -Wmaybe-uninitialized in the sanitizer build.
  const std::string shape = "dddd-dd-dd dd:dd:dd";
  ASSERT_EQ(now.size(), shape.size()) << now;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    EXPECT_TRUE(shape[i] == 'd' ? std::isdigit(static_cast<unsigned char>(now[i])) != 0
                                : now[i] == shape[i])
        << now;
  }
  using platform::TimeZone;
  for (const auto& [zone, offset] :
       {std::pair(*TimeZone::timeZoneWithName("Asia/Kolkata"), "+05:30"),
        {TimeZone::timeZoneForSecondsFromGMT(-8 * 3600), "-08:00"},
        {*TimeZone::timeZoneWithName("UTC"), "Z"}}) {
    TimeZone::setSystemTimeZone(zone);
    EXPECT_EQ(ZVUtility::currentTimeZone(), offset);
  }
}

TEST(ZVUtilityOrientation, FollowsTheSceneFrom13AndTheStatusBarBefore) {
  using enum InterfaceOrientation;
  struct Case {
    const char* system;
    platform::DeviceProfile profile;
    InterfaceOrientation statusBar;
    std::optional<InterfaceOrientation> scene;  // absent: the key window has no scene
    int orientation;
    ZVAdSize size;
    bool keyWindow = true;
  };
  const auto phone = platform::DeviceProfile::phone();
  const auto tablet = platform::DeviceProfile::tablet();
  auto carPlay = phone;
  carPlay.idiom = platform::UserInterfaceIdiom::CarPlay;
  const Case cases[] = {{"17.0", phone, LandscapeLeft, Portrait, 0, {320, 480}},
                        {"13.0", phone, Portrait, LandscapeRight, 1, {480, 320}},
                        {"12.4", phone, LandscapeLeft, Portrait, 1, {480, 320}},
                        {"12.4", tablet, PortraitUpsideDown, std::nullopt, 0, {768, 1024}},
                        {"16.0", tablet, Portrait, LandscapeLeft, 1, {1024, 768}},
                        {"17.0", phone, Portrait, std::nullopt, -1, {0, 0}},
                        {"17.0", phone, Portrait, std::nullopt, -1, {0, 0}, false},
                        {"12.0", phone, Unknown, std::nullopt, -1, {0, 0}},
                        {"17.0", carPlay, Portrait, Portrait, 0, {0, 0}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    test::resetProcessState();
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
}

TEST(ZVUtilityDictionaries, ArrayForDataAndQueryString) {
  Value data = {{"list", {1, 2}}, {"one", {{"k", "v"}}}, {"text", "x"}};
  EXPECT_EQ(ZVUtility::arrayForData(data, "list"), Value({1, 2}));
  EXPECT_EQ(ZVUtility::arrayForData(data, "one"), Value::array({{{"k", "v"}}}));
  EXPECT_EQ(ZVUtility::arrayForData(data, "text"), Value::array());
  EXPECT_EQ(ZVUtility::arrayForData(data, "missing"), Value::array());
  EXPECT_EQ(ZVUtility::arrayForData(Value("not a dictionary"), "list"), Value::array());

  const Value query = {{"pid", "a b&c"}, {"w", 320}, {"ratio", 1.5}, {"coppa", true}};
  EXPECT_EQ(ZVUtility::queryString(query), "pid=a b&c&w=320&ratio=1.5&coppa=1");
  EXPECT_EQ(ZVUtility::queryString(Value::object()), "");
}

TEST(ZVUtilityUserAgent, TheWebViewLivesUntilTheScriptEndsAndOnlyTheLastResultIsCached) {
  platform::HeadlessWebEngine::setAutomaticByDefault(false);
  std::vector<std::optional<std::string>> got;
  const auto callback = [&got](std::optional<std::string> ua) { got.push_back(std::move(ua)); };

  // An error is answered with nothing; neither result nor error is not answered at all. Either
  // way the web view lives, held by nobody but the pending script, until the script ends.
  for (const std::optional<Error>& error :
       {std::optional(Error("WKErrorDomain", 4)), std::optional<Error>()}) {
    ZVUtility::userAgent(callback);
    auto engines = platform::HeadlessWebEngine::liveEngines();
    ASSERT_EQ(engines.size(), 1u);
    EXPECT_EQ(engines[0]->pendingScripts(), std::vector<std::string>{"navigator.userAgent"});
    std::weak_ptr<platform::WebView> webView = engines[0]->webView();
    engines.clear();
    platform::MainQueue::shared().runUntilIdle();
    ASSERT_FALSE(webView.expired());
    platform::HeadlessWebEngine::of(*webView.lock())->completeScript(std::nullopt, error);
    EXPECT_TRUE(webView.expired());
    EXPECT_EQ(got, std::vector<std::optional<std::string>>(1, std::nullopt));
  }

  // Errors and silences were not cached: the next calls run the script again, each its own web
  // view, and the last success wins. A result is cached: the next call answers at once.
  ZVUtility::userAgent(callback);
  ZVUtility::userAgent(callback);
  auto engines = platform::HeadlessWebEngine::liveEngines();
  ASSERT_EQ(engines.size(), 2u);
  engines[1]->completeScript(Value("second"), std::nullopt);
  engines[0]->completeScript(Value("first"), std::nullopt);
  engines.clear();
  EXPECT_TRUE(platform::HeadlessWebEngine::liveEngines().empty());
  ZVUtility::userAgent(callback);
  EXPECT_TRUE(platform::HeadlessWebEngine::liveEngines().empty());
  EXPECT_EQ(got,
            (std::vector<std::optional<std::string>>{std::nullopt, "second", "first", "first"}));
}

TEST(ZVLog, PrintsOnlyMessagesAtOrBelowTheCurrentLevel) {
  test::LogCapture log;
  // At each level, of one message at each of levels 1 to 5, those up to the level print.
  std::size_t printed = 0;
  for (const unsigned long level : {1ul, 3ul, 5ul, 0ul}) {
    ZorvaSDK::setLevel(level);
    for (int at = 1; at <= 5; ++at) ZV_LOG(at, "-[Test]", "%d", at);
    printed += level;
    EXPECT_EQ(log.entries().size(), printed) << level;
  }
  ZVLog::logWithLevel(0, __FILE__, "-[Test zero]", __LINE__, nullptr);
  EXPECT_EQ(log.entries().size(), printed);
}

TEST(ZVUtility, ErrorsNameTheirCodeAndKeepIt) {
  // A code without a name of its own is an internal error.
  for (auto [code, text] : {std::pair(2, "RenderError(2) : x"),
                            {4, "InterstitialAlreadyShown(4) : x"},
                            {5, "InterstitialNotReady(5) : x"},
                            {7, "InternalError(7) : x"}}) {
    const auto error = ZVUtility::errorWithCode(code, "x");
    EXPECT_EQ(std::tuple(error.domain, error.code, error.localizedDescription()),
              std::tuple("ZorvaSDK", code, text));
  }
  // The message goes through the app's translations.
  platform::Bundle::mainBundle().setStringsTable("", {{"NoAdsError(0) : no fill", "Pas de pub"}});
  EXPECT_EQ(ZVUtility::errorWithCode(0, "no fill").localizedDescription(), "Pas de pub");
}

}  // namespace
}  // namespace zorva
