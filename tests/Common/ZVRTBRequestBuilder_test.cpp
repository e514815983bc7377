// The OpenRTB bid request: what each ad format asks for, the app, device, location and user facts,
// and the HTTP request that carries it.
#include <gtest/gtest.h>

#include <sys/utsname.h>

#include <set>

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/AdvertisingIdentifierManager.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/LocationManager.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/UUID.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLocationManager.h"
#include "Common/ZVRTBRequestBuilder.h"
#include "support/AdFormatTesting.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::AuthorizationStatus;
using platform::Location;
using platform::LocationManager;
using platform::URLRequest;

struct Built {
  std::optional<URLRequest> request;
  Value body;
  bool onMainThread = false;
  int calls = 0;
};

class RequestBuilderTest : public testing::Test {
 protected:
  void SetUp() override {
    // An app on screen: its key window's scene gives the orientation.
    window_ = platform::DeviceProfile::phone().makeKeyWindow(platform::ViewController::create());
    request_ = test::requestTo("http://127.0.0.1:9/zorva/servad");
    platform::Bundle::mainBundle().setInfoDictionary(
        {{"CFBundleDisplayName", "Zorva Demo"},
         {"CFBundleShortVersionString", "2.4.1"},
         {"SKAdNetworkItems", Value::array({{{"SKAdNetworkIdentifier", "first.skadnetwork"}},
                                            {{"SKAdNetworkIdentifier", "second.skadnetwork"}}})}});
  }

  std::shared_ptr<ZVRTBRequestBuilder> builder(bool video, bool interstitial,
                                               ZVAdSize size = {320, 50}) {
    auto b = ZVRTBRequestBuilder::create(request_);
    b->setIsVideo(video);
    b->setIsInterstitial(interstitial);
    b->setRequestedAdSize(size);
    return b;
  }

  Built build(const std::shared_ptr<ZVRTBRequestBuilder>& b) {
    auto built = std::make_shared<Built>();
    b->build([built](std::optional<URLRequest> request, std::optional<Error>) {
      built->onMainThread = platform::MainQueue::shared().isCurrent();
      ++built->calls;
      built->request = std::move(request);
    });
    EXPECT_TRUE(test::runMainQueueUntil([&] { return built->calls > 0; }));
    if (built->request && built->request->HTTPBody) {
      built->body = Value::parse(*built->request->HTTPBody);
      // Byte for byte the compact text nlohmann writes for it: spacing, escapes, numbers, order.
      EXPECT_EQ(*built->request->HTTPBody, built->body.dump());
    }
    return *built;
  }

  Value impression(bool video, bool interstitial, ZVAdSize size = {320, 50}) {
    return build(builder(video, interstitial, size)).body["imp"][0];
  }

  std::shared_ptr<platform::Window> window_;
  std::shared_ptr<ZVAdRequest> request_;
};

// Each ad format's suite loads its request end to end through the loopback server; here the
// exact objects, keys in the order the exchange documents them (a banner's in the whole request
// below), and fresh ids on every build.
TEST_F(RequestBuilderTest, EachFormatAsksForItsObjectUnderFreshIds) {
  auto b = builder(false, false);
  const Value first = build(b).body, second = build(b).body;
  const std::set<std::string> ids{first["id"], first["imp"][0]["id"], second["id"],
                                  second["imp"][0]["id"]};
  EXPECT_EQ(ids.size(), 4u);
  for (const auto& id : ids) {
    const auto uuid = platform::UUID::fromString(id);
    EXPECT_TRUE(uuid && uuid->UUIDString() == id) << id;
  }
  EXPECT_EQ(first["user"].dump(), "{}");
  EXPECT_EQ(impression(false, false, {300.5, 250})["banner"]["w"], 300.5);
  // An interstitial asks for the full screen whatever its slot.
  EXPECT_EQ(impression(false, true, {10, 10})["banner"].dump(), R"({"pos":7,"w":320,"h":480})");
  const Value video = impression(true, true, {10, 10});
  EXPECT_FALSE(video.contains("banner"));
  EXPECT_EQ(video["video"].dump(),
            R"({"mimes":["video/3gpp2","video/mp4","video/3gpp"],"protocols":[2,3,5,6,7,8],)"
            R"("linearity":1,"w":320,"h":480})");
  EXPECT_FALSE(impression(true, false, {300, 250})["video"].contains("pos"));
}

// The whole request of an app that sets everything but asks for no regulations: of the privacy
// settings only the consent string travels, under the user's "ext". Asked for, the regulations go
// in OpenRTB 2.6's "regs" and the consent beside "ext".
TEST_F(RequestBuilderTest, TheRequestDescribesTheAppTheUserAndTheDeviceAndIsAPost) {
  platform::AdvertisingIdentifierManager::sharedManager().setAdvertisingIdentifier(
      *platform::UUID::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
  auto sdk = ZorvaSDK::shared();
  sdk->setStoreURL(platform::URL::URLWithString("https://apps.apple.com/us/app/name/id12345"));
  sdk->setAppkeywords("games,puzzle");
  sdk->setUserKeywords("sports");
  sdk->setGdpr(true);  // COPPA stays off: each flag is read from its own setting
  sdk->setGdprConsent("CPXxRfAPXxRfA");
  sdk->setUsPrivacy("1YNN");
  sdk->setGpp("DBABMA~CPXxRfAPXxRfA");
  sdk->setGppSid({2, 6});
  request_->netoworkTimeout = 7;
  auto built = build(builder(false, false));
  ASSERT_TRUE(built.request && built.request->url);
  EXPECT_EQ(built.request->url->absoluteString(),
            "http://127.0.0.1:9/zorva/servad?pid=pub-1&aid=unit-9");
  EXPECT_EQ(built.request->HTTPMethod, "POST");
  EXPECT_EQ(built.request->timeoutInterval, 7);
  EXPECT_EQ(built.request->cachePolicy,
            platform::URLRequestCachePolicy::ReloadIgnoringLocalCacheData);
  EXPECT_TRUE(built.request->allHTTPHeaderFields.empty());
  Value body = built.body;
  ASSERT_TRUE(body["device"]["ua"].is_string());
  EXPECT_NE(body["device"]["ua"].get<std::string>().find("iPhone"), std::string::npos);
  body.erase("id");
  body["imp"][0].erase("id");
  body["device"].erase("ua");
  EXPECT_EQ(
      body.dump(),
      R"({"imp":[{"tagid":"unit-9","banner":{"w":320,"h":50},"instl":0,"secure":1,)"
      R"("displaymanager":"ZorvaSDK","displaymanagerver":"1.3.0","ext":{"skadn":{"version":"2.0",)"
      R"("sourceapp":"12345","skadnetids":["first.skadnetwork","second.skadnetwork"]}}}],)"
      R"("app":{"publisher":{"id":"pub-1"},"name":"Zorva Demo","ver":"2.4.1",)"
      R"("keywords":"games,puzzle","storeurl":"https://apps.apple.com/us/app/name/id12345",)"
      R"("bundle":"12345"},"user":{"keywords":"sports","ext":{"consent":"CPXxRfAPXxRfA"}},)"
      R"("device":{"ifa":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","lmt":1,"devicetype":4,)"
      R"("mccmnc":"310-260","pxratio":3,"make":"Apple","model":"iPhone","os":"iOS",)"
      R"("osv":"17.0","w":375,"h":812,"js":1,"language":"en","carrier":"Zorva Mobile"}})");
  EXPECT_EQ(builder(false, false)->regulationsJson().dump(),
            R"({"coppa":false,"ext":{"gdpr":true}})");
  // The first build waited for the web view's answer, which comes on the main thread; later ones
  // find the user agent cached and finish on the caller's thread.
  EXPECT_TRUE(built.onMainThread);
  bool done = false;
  builder(false, false)->build([&](auto, auto) { done = true; });
  EXPECT_TRUE(done);

  sdk->setSendRegulations(true);
  sdk->setTestMode(true);
  const Value on = build(builder(false, false)).body;
  EXPECT_EQ(on["regs"].dump(),
            R"({"coppa":0,"gdpr":1,"us_privacy":"1YNN","gpp":"DBABMA~CPXxRfAPXxRfA",)"
            R"("gpp_sid":[2,6]})");
  EXPECT_EQ(on["user"].dump(), R"({"keywords":"sports","ext":{"consent":"CPXxRfAPXxRfA"},)"
                               R"("consent":"CPXxRfAPXxRfA"})");
  EXPECT_EQ(on["test"], 1);

  // A missing server address is repaired in the app's request itself.
  request_->serverUrl.reset();
  built = build(builder(false, false));
  EXPECT_EQ(request_->serverUrl, ZVAdRequest::defaultServerUrl());
  EXPECT_EQ(built.request->url->scheme(), "http");
  EXPECT_EQ(built.request->url->path(), "/zorva/servad");
}

TEST_F(RequestBuilderTest, ALinuxProfileSaysWhatTheMachineIs) {
  utsname system{};
  ASSERT_EQ(uname(&system), 0);
  for (const auto& [profile, type] : {std::pair(platform::DeviceProfile::desktop(), 2),
                                      {platform::DeviceProfile::tv(), 3},
                                      {platform::DeviceProfile::setTopBox(), 7}}) {
    SCOPED_TRACE(profile.model);
    profile.apply();
    const Value device = build(builder(false, false)).body["device"];
    EXPECT_EQ(device["devicetype"], type);
    EXPECT_EQ(device["model"], profile.model);
    EXPECT_EQ(device["make"], profile.make.value_or("(none)"));
    EXPECT_EQ(device["os"], "Linux");
    EXPECT_EQ(device["osv"], system.release);
    EXPECT_EQ(device["w"], 1920);
    EXPECT_EQ(device["h"], 1080);
  }
}

// The SKAdNetwork list follows the bundle from one build to the next, the localized dictionary
// first, from system 14.0 on; the store id is the URL's last path component without any "id".
TEST_F(RequestBuilderTest, SKAdNetworkIdsTravelFromSystem14OnWhenTheAppListsThem) {
  auto id = [](const char* url) { return itunesIdFromURL(*platform::URL::URLWithString(url)); };
  EXPECT_EQ(id("https://apps.apple.com/app/video-id12"), "veo-12");
  EXPECT_EQ(id("https://apps.apple.com/app/iidd"), "id");  // one pass, as the platform replaces
  EXPECT_EQ(id("https://apps.apple.com"), "");
  auto& bundle = platform::Bundle::mainBundle();
  bundle.setLocalizedInfoDictionary(
      {{"SKAdNetworkItems", Value::array({{{"SKAdNetworkIdentifier", "local.skadnetwork"}}})}});
  EXPECT_EQ(impression(false, false)["ext"].dump(),
            R"({"skadn":{"version":"2.0","skadnetids":["local.skadnetwork"]}})");

  auto profile = platform::DeviceProfile::phone();
  profile.systemVersion = "13.7";
  profile.apply();
  EXPECT_FALSE(impression(false, false).contains("ext"));
  platform::DeviceProfile::phone().apply();
  bundle.setLocalizedInfoDictionary(Value::object());
  bundle.setInfoDictionary({{"SKAdNetworkItems", Value::array()}});
  EXPECT_FALSE(impression(false, false).contains("ext"));
}

TEST_F(RequestBuilderTest, KeysWithoutASourceAreLeftOut) {
  auto profile = platform::DeviceProfile::phone();
  profile.idiom = platform::UserInterfaceIdiom::TV;
  profile.carrier.reset();
  profile.preferredLanguages.clear();
  profile.apply();
  platform::HeadlessWebEngine::setAutomaticByDefault(false);
  std::optional<Value> body;
  builder(false, false)->build([&](std::optional<URLRequest> request, std::optional<Error>) {
    body = Value::parse(*request->HTTPBody);
  });
  auto engines = platform::HeadlessWebEngine::liveEngines();
  ASSERT_EQ(engines.size(), 1u);
  engines[0]->completeScript(std::nullopt, Error("WKErrorDomain", 4));
  ASSERT_TRUE(test::runMainQueueUntil([&] { return body.has_value(); }));
  for (const char* key : {"devicetype", "mccmnc", "carrier", "language", "ua"}) {
    EXPECT_FALSE((*body)["device"].contains(key)) << key;
  }
  EXPECT_EQ((*body)["app"].dump(),
            R"({"publisher":{"id":"pub-1"},"name":"Zorva Demo","ver":"2.4.1"})");
}

TEST_F(RequestBuilderTest, ABadBodyStillGoesAndARaiseWhileDeliveringIsAnInternalError) {
  ZorvaSDK::shared()->setAppkeywords("\xff");
  std::vector<std::pair<std::optional<URLRequest>, std::optional<Error>>> answers;
  builder(false, false)->build([&](std::optional<URLRequest> request, std::optional<Error> error) {
    answers.emplace_back(request, error);
    if (request) throw std::runtime_error("the loader could not take the request");
  });
  ASSERT_TRUE(test::runMainQueueUntil([&] { return answers.size() == 2; }));
  ASSERT_TRUE(answers[0].first && !answers[0].second);
  EXPECT_EQ(answers[0].first->HTTPMethod, "POST");
  EXPECT_FALSE(answers[0].first->HTTPBody);
  ASSERT_TRUE(answers[1].second);
  EXPECT_EQ(answers[1].second->localizedDescription(),
            "InternalError(1) : the loader could not take the request");
}

TEST_F(RequestBuilderTest, TheLocationComesFromTheAppOrOneFetchAndIsLeftOutWhenRefused) {
  LocationManager::setAuthorizationStatus(AuthorizationStatus::AuthorizedAlways);
  LocationManager::setSimulatedLocation(Location(48.85, 2.35));
  ZorvaSDK::shared()->setLocation(Location(12.5, -45.25));
  const Value device = build(builder(false, false)).body["device"];
  EXPECT_EQ(device["geo"].dump(), R"({"lat":12.5,"lon":-45.25,"type":3})");
  EXPECT_EQ(device.begin().key(), "geo");
  EXPECT_FALSE(
      ZVInstanceFactory::sharedLocationManager()->locationManager()->isRequestingLocation());

  ZorvaSDK::shared()->setLocation(std::nullopt);
  EXPECT_EQ(build(builder(false, false)).body["device"]["geo"].dump(),
            R"({"lat":48.85,"lon":2.35,"type":3})");
  LocationManager::setAuthorizationStatus(AuthorizationStatus::Denied);
  auto refused = build(builder(false, false));
  EXPECT_FALSE(refused.body["device"].contains("geo"));
  EXPECT_TRUE(refused.body["device"].contains("ua"));
}

// The location manager the builder asks for a fix. The first fix delivered answers the latest
// fetch, once, on the main queue; a platform failure, a later update or a manager that is gone
// calls nothing; an update without a fix answers nothing, so the request build goes on.
TEST(ZVLocationManager, TheFirstFixAnswersTheLatestFetchOnTheMainQueueOnce) {
  LocationManager::setAuthorizationStatus(AuthorizationStatus::AuthorizedWhenInUse);
  auto manager = ZVLocationManager::create();
  std::vector<std::optional<Location>> got;
  bool onMain = false;
  const auto note = [&](std::optional<Location> fix) {
    onMain = platform::MainQueue::shared().isCurrent();
    got.push_back(fix);
  };
  manager->fetchLocation([](auto) { ADD_FAILURE() << "a replaced fetch was answered"; });
  manager->fetchLocation(note);
  EXPECT_TRUE(manager->locationManager()->isRequestingLocation());
  LocationManager::failPendingRequests(Error("kCLErrorDomain", 0));
  platform::MainQueue::shared().runUntilIdle();
  ASSERT_TRUE(manager->hasPendingCallback());
  manager->locationManager()->requestLocation();
  LocationManager::deliverLocations({Location(12.97, 77.59), Location(1, 1)});
  EXPECT_TRUE(got.empty());
  platform::MainQueue::shared().runUntilIdle();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0]->coordinate.latitude, 12.97);
  EXPECT_TRUE(onMain);
  EXPECT_FALSE(manager->hasPendingCallback());

  manager->locationManager()->requestLocation();
  LocationManager::deliverLocations({Location(2, 2)});
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_EQ(got.size(), 1u);

  manager->fetchLocation(note);
  LocationManager::deliverLocations({});
  platform::MainQueue::shared().runUntilIdle();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_FALSE(got[1]);
  EXPECT_FALSE(manager->hasPendingCallback());

  LocationManager::setAuthorizationStatus(AuthorizationStatus::Denied);
  manager->fetchLocation(note);
  ASSERT_EQ(got.size(), 3u);
  EXPECT_FALSE(got[2]);
  EXPECT_FALSE(manager->locationManager()->isRequestingLocation());
  EXPECT_TRUE(manager->hasPendingCallback());

  LocationManager::setAuthorizationStatus(AuthorizationStatus::AuthorizedAlways);
  LocationManager::setSimulatedLocation(Location(5, 6));
  manager->fetchLocation(note);
  manager.reset();
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_EQ(got.size(), 3u);
}

using RequestBuilderDeathTest = RequestBuilderTest;

TEST_F(RequestBuilderDeathTest, AMissingIdOrSKAdNetworkIdentifierStopsLoudly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto both = "publisherId and adunitId must both be set";
  request_->publisherId.reset();
  EXPECT_DEATH(builder(false, false)->build([](auto, auto) {}), both);
  request_->publisherId = "pub";
  request_->adunitId.reset();
  EXPECT_DEATH(builder(false, false)->build([](auto, auto) {}), both);

  platform::Bundle::mainBundle().setInfoDictionary(
      {{"SKAdNetworkItems", Value::array({{{"Other", "x"}}})}});
  EXPECT_DEATH(builder(false, false)->impressionJson(), "SKAdNetworkIdentifier");
}

}  // namespace
}  // namespace zorva
