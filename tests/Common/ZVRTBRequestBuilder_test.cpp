// The OpenRTB bid request: what each ad format asks for, the app, device and user facts, and the
// HTTP request that carries it.
#include <gtest/gtest.h>

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
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

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
    request_ = std::make_shared<ZVAdRequest>();
    request_->publisherId = "pub-1";
    request_->adunitId = "unit-9";
    request_->serverUrl = "http://127.0.0.1:9/zorva/servad";
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

  // Runs one build to its end and reads the body back.
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
// exact objects, keys in the order the exchange documents them.
TEST_F(RequestBuilderTest, EachFormatAsksForItsObject) {
  Value imp = impression(false, false, {320, 50});
  imp.erase("id");
  imp.erase("ext");
  EXPECT_EQ(imp.dump(), R"({"tagid":"unit-9","banner":{"w":320,"h":50},"instl":0,"secure":1,)"
                        R"("displaymanager":"ZorvaSDK","displaymanagerver":"1.3.0"})");
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

TEST_F(RequestBuilderTest, SKAdNetworkIdsTravelFromSystem14OnWhenTheAppListsThem) {
  EXPECT_EQ(
      impression(false, false)["ext"].dump(),
      R"({"skadn":{"version":"2.0","skadnetids":["first.skadnetwork","second.skadnetwork"]}})");
  ZorvaSDK::shared()->setStoreURL(
      platform::URL::URLWithString("https://apps.apple.com/app/x/id987"));
  EXPECT_EQ(impression(false, false)["ext"]["skadn"]["sourceapp"], "987");
  // The list follows the bundle from one build to the next, the localized dictionary first.
  auto& bundle = platform::Bundle::mainBundle();
  bundle.setLocalizedInfoDictionary(
      {{"SKAdNetworkItems", Value::array({{{"SKAdNetworkIdentifier", "local.skadnetwork"}}})}});
  EXPECT_EQ(impression(false, false)["ext"]["skadn"]["skadnetids"],
            Value::array({"local.skadnetwork"}));

  // Below 14.0 the list is not sent.
  auto profile = platform::DeviceProfile::phone();
  profile.systemVersion = "13.7";
  profile.apply();
  EXPECT_FALSE(impression(false, false).contains("ext"));
  platform::DeviceProfile::phone().apply();
  bundle.setLocalizedInfoDictionary(Value::object());
  bundle.setInfoDictionary({{"SKAdNetworkItems", Value::array()}});
  EXPECT_FALSE(impression(false, false).contains("ext"));
}

TEST_F(RequestBuilderTest, EveryBuildHasFreshDistinctIds) {
  auto b = builder(false, false);
  auto first = build(b).body;
  auto second = build(b).body;
  std::set<std::string> ids{first["id"], first["imp"][0]["id"], second["id"],
                            second["imp"][0]["id"]};
  EXPECT_EQ(ids.size(), 4u);
  for (const auto& id : ids) EXPECT_TRUE(platform::UUID::fromString(id)) << id;
  EXPECT_EQ(first["id"].get<std::string>(),
            platform::UUID::fromString(first["id"].get<std::string>())->UUIDString());
}

TEST_F(RequestBuilderTest, TheStoreIdIsTheLastPathComponentWithoutAnyId) {
  auto id = [](const char* url) { return itunesIdFromURL(*platform::URL::URLWithString(url)); };
  EXPECT_EQ(id("https://apps.apple.com/us/app/some-name/id1234567890"), "1234567890");
  EXPECT_EQ(id("https://apps.apple.com/app/video-id12"), "veo-12");
  EXPECT_EQ(id("https://apps.apple.com/app/iidd"), "id");  // one pass, as the platform replaces
  EXPECT_EQ(id("https://apps.apple.com"), "");

  ZorvaSDK::shared()->setStoreURL(
      platform::URL::URLWithString("https://apps.apple.com/us/app/name/id1234567890"));
  ZorvaSDK::shared()->setAppkeywords("games,puzzle");
  const Value app = build(builder(false, false)).body["app"];
  EXPECT_EQ(app.dump(),
            R"({"publisher":{"id":"pub-1"},"name":"Zorva Demo","ver":"2.4.1",)"
            R"("keywords":"games,puzzle","storeurl":"https://apps.apple.com/us/app/name/)"
            R"(id1234567890","bundle":"1234567890"})");
}

// Of the privacy settings only the consent string travels, under the user's "ext"; the COPPA and
// GDPR flags go into a "regs" object that is built but, unless asked, never sent.
TEST_F(RequestBuilderTest, TheUserCarriesKeywordsAndConsentAndNothingElseChanges) {
  auto withoutIdsAndUser = [](Value body) {
    body.erase("id");
    body.erase("user");
    body["imp"][0].erase("id");
    return body;
  };
  const Value before = build(builder(false, false)).body;
  EXPECT_EQ(before["user"].dump(), "{}");
  auto settings = ZorvaSDK::shared();
  settings->setCoppa(true);
  settings->setGdpr(true);
  settings->setUserKeywords("sports");
  settings->setGdprConsent("CONSENT-STRING");
  const Value after = build(builder(false, false)).body;
  EXPECT_EQ(after["user"].dump(), R"({"keywords":"sports","ext":{"consent":"CONSENT-STRING"}})");
  EXPECT_EQ(withoutIdsAndUser(after), withoutIdsAndUser(before));
  EXPECT_EQ(builder(false, false)->regulationsJson().dump(),
            R"({"coppa":true,"ext":{"gdpr":true}})");
}

TEST_F(RequestBuilderTest, TheDeviceIsDescribedFromThePlatform) {
  platform::AdvertisingIdentifierManager::sharedManager().setAdvertisingIdentifier(
      *platform::UUID::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
  auto built = build(builder(false, false));
  const Value& device = built.body["device"];
  EXPECT_FALSE(device.contains("geo"));  // access to location is not determined
  const Value expected = Value::parse(
      R"({"ifa":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","lmt":1,"devicetype":4,"mccmnc":"310-260",)"
      R"("pxratio":3,"make":"Apple","model":"iPhone","os":"iOS","osv":"17.0","w":375,"h":812,)"
      R"("js":1,"language":"en","carrier":"Zorva Mobile"})");
  for (const auto& [key, value] : expected.items()) EXPECT_EQ(device[key], value) << key;
  ASSERT_TRUE(device["ua"].is_string());
  EXPECT_NE(device["ua"].get<std::string>().find("iPhone"), std::string::npos);
  // The first build waits for the web view's answer, which comes on the main thread; later ones
  // find the user agent cached and finish on the caller's thread.
  EXPECT_TRUE(built.onMainThread);
  bool done = false;
  builder(false, false)->build([&](auto, auto) { done = true; });
  EXPECT_TRUE(done);
}

TEST_F(RequestBuilderTest, TheLocationComesFromTheAppOrOneFetchAndIsLeftOutWhenRefused) {
  using platform::LocationManager;
  LocationManager::setAuthorizationStatus(platform::AuthorizationStatus::AuthorizedAlways);
  LocationManager::setSimulatedLocation(platform::Location(48.85, 2.35));
  ZorvaSDK::shared()->setLocation(platform::Location(12.5, -45.25));
  const Value device = build(builder(false, false)).body["device"];
  EXPECT_EQ(device["geo"].dump(), R"({"lat":12.5,"lon":-45.25,"type":3})");
  EXPECT_EQ(device.begin().key(), "geo");
  EXPECT_FALSE(
      ZVInstanceFactory::sharedLocationManager()->locationManager()->isRequestingLocation());

  ZorvaSDK::shared()->setLocation(std::nullopt);
  EXPECT_EQ(build(builder(false, false)).body["device"]["geo"].dump(),
            R"({"lat":48.85,"lon":2.35,"type":3})");
  LocationManager::setAuthorizationStatus(platform::AuthorizationStatus::Denied);
  auto refused = build(builder(false, false));
  EXPECT_FALSE(refused.body["device"].contains("geo"));
  EXPECT_TRUE(refused.body["device"].contains("ua"));
}

TEST_F(RequestBuilderTest, TheHttpRequestIsAPostToTheServerWithTheIdsInTheQuery) {
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

  // A missing server address is repaired in the app's request itself.
  request_->serverUrl.reset();
  built = build(builder(false, false));
  EXPECT_EQ(request_->serverUrl, ZVAdRequest::defaultServerUrl());
  EXPECT_EQ(built.request->url->scheme(), "http");
  EXPECT_EQ(built.request->url->path(), "/zorva/servad");
}

// A key whose source has nothing to say is left out, never sent as null or "".
TEST_F(RequestBuilderTest, KeysWithoutASourceAreLeftOut) {
  auto profile = platform::DeviceProfile::phone();
  profile.idiom = platform::UserInterfaceIdiom::TV;
  profile.carrier.reset();
  profile.preferredLanguages.clear();
  profile.apply();
  platform::HeadlessWebEngine::setAutomaticByDefault(false);
  bool done = false;
  Value body;
  builder(false, false)->build([&](std::optional<URLRequest> request, std::optional<Error>) {
    done = true;
    body = Value::parse(*request->HTTPBody);
  });
  auto engines = platform::HeadlessWebEngine::liveEngines();
  ASSERT_EQ(engines.size(), 1u);
  engines[0]->completeScript(std::nullopt, Error("WKErrorDomain", 4));
  ASSERT_TRUE(test::runMainQueueUntil([&] { return done; }));
  for (const char* key : {"devicetype", "mccmnc", "carrier", "language", "ua"}) {
    EXPECT_FALSE(body["device"].contains(key)) << key;
  }
  EXPECT_EQ(body["app"].dump(),
            R"({"publisher":{"id":"pub-1"},"name":"Zorva Demo","ver":"2.4.1"})");
}

// A body that cannot be written leaves the POST without one; it still goes.
TEST_F(RequestBuilderTest, ABodyThatCannotBeWrittenLeavesThePostEmpty) {
  ZorvaSDK::shared()->setAppkeywords("\xff");
  auto built = build(builder(false, false));
  ASSERT_TRUE(built.request);
  EXPECT_EQ(built.request->HTTPMethod, "POST");
  EXPECT_FALSE(built.request->HTTPBody);
}

TEST_F(RequestBuilderTest, ARaiseWhileDeliveringIsReportedAsInternalError) {
  std::vector<std::optional<Error>> answers;
  builder(false, false)->build([&](std::optional<URLRequest> request, std::optional<Error> error) {
    answers.push_back(error);
    if (request) throw std::runtime_error("the loader could not take the request");
  });
  ASSERT_TRUE(test::runMainQueueUntil([&] { return answers.size() == 2; }));
  EXPECT_FALSE(answers[0]);
  ASSERT_TRUE(answers[1]);
  EXPECT_EQ(answers[1]->code, 1);
  EXPECT_EQ(answers[1]->localizedDescription(),
            "InternalError(1) : the loader could not take the request");
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
