// The host settings a Linux app turns on, each through a banner's load over the loopback server:
// what the bid request says and where and how the app hears the outcome, with the setting on and
// with it off.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <zorva/ZVBannerView.h>
#include <zorva/ZVErrors.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Button.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessMediaEngine.h>

#include "support/AdFormatTesting.h"
#include "support/AdLoaderTesting.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

class HostSettingsTest : public testing::Test {
 protected:
  // Loads a banner and returns the first thing the app hears of it.
  test::Heard load(std::shared_ptr<ZVAdRequest> request = nullptr) {
    auto banner =
        ZVBannerView::create(request ? request : test::requestFor(server_), ZVAdSize{320, 50});
    banner->setDelegate(delegate_);
    const std::size_t before = recorder_.heard().size();
    banner->loadAd();
    EXPECT_TRUE(test::runMainQueueUntil([&] { return recorder_.heard().size() > before; }));
    const auto heard = recorder_.heard();
    return heard.size() > before ? heard[before] : test::Heard{};
  }
  // The bid request of one load.
  Value requestBody() {
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
    load();
    return Value::parse(server_.requests().back().body);
  }

  test::LoopbackServer server_;
  test::Recorder recorder_;
  std::shared_ptr<ZVBannerViewDelegate> delegate_ =
      test::recordingBannerDelegate<ZVBannerViewDelegate>(recorder_);
  std::shared_ptr<ZVInterstitialAdDelegate> interstitialDelegate_ =
      test::recordingInterstitialDelegate(recorder_);
  std::shared_ptr<ZVInBannerVideoDelegate> videoDelegate_ =
      test::recordingBannerDelegate<ZVInBannerVideoDelegate>(recorder_);
};

struct Profile {
  const char* name;
  platform::DeviceProfile (*make)();
  int deviceType;
};

class DeviceProfileTest : public HostSettingsTest, public testing::WithParamInterface<Profile> {};

// The phone, the default, is the request builder's golden request.
TEST_P(DeviceProfileTest, TheRequestSaysWhatTheMachineIs) {
  const auto profile = GetParam().make();
  profile.apply();
  const Value device = requestBody()["device"];
  utsname system{};
  ASSERT_EQ(uname(&system), 0);
  EXPECT_EQ(device["devicetype"], GetParam().deviceType);
  EXPECT_EQ(device["model"], profile.model);
  EXPECT_EQ(device["make"], profile.make.value_or("(none)"));
  EXPECT_EQ(device["os"], "Linux");
  EXPECT_EQ(device["osv"], system.release);
  EXPECT_EQ(device["w"], 1920);
  EXPECT_EQ(device["h"], 1080);
}

INSTANTIATE_TEST_SUITE_P(HostSettings, DeviceProfileTest,
                         testing::Values(Profile{"Desktop", platform::DeviceProfile::desktop, 2},
                                         Profile{"Tv", platform::DeviceProfile::tv, 3},
                                         Profile{"SetTopBox", platform::DeviceProfile::setTopBox,
                                                 7}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(HostSettingsTest, RegulationsInOpenRtb26FormAndTestModeAreSentOnlyWhenAsked) {
  auto sdk = ZorvaSDK::shared();
  sdk->setCoppa(true);
  sdk->setGdpr(true);
  sdk->setGdprConsent("CPXxRfAPXxRfA");
  sdk->setUsPrivacy("1YNN");
  sdk->setGpp("DBABMA~CPXxRfAPXxRfA");
  sdk->setGppSid({2, 6});
  const Value off = requestBody();
  EXPECT_FALSE(off.contains("regs"));
  EXPECT_FALSE(off.contains("test"));
  EXPECT_EQ(off["user"].dump(), R"({"ext":{"consent":"CPXxRfAPXxRfA"}})");

  sdk->setSendRegulations(true);
  sdk->setTestMode(true);
  const Value on = requestBody();
  EXPECT_EQ(on["regs"].dump(),
            R"({"coppa":1,"gdpr":1,"us_privacy":"1YNN","gpp":"DBABMA~CPXxRfAPXxRfA",)"
            R"("gpp_sid":[2,6]})");
  EXPECT_EQ(on["user"].dump(), R"({"ext":{"consent":"CPXxRfAPXxRfA"},"consent":"CPXxRfAPXxRfA"})");
  EXPECT_EQ(on["test"], 1);
}

// Each app convention through the public API: the documented default first, then the same with
// the one switch on. Every row starts from the process's default state.
TEST_F(HostSettingsTest, EachAppConventionIsOffByDefaultAndOnWithTheSwitch) {
  auto servesBid = [&](const std::string& markup) {
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(markup)});
  };
  // A loaded interstitial, and where its request asked for its size.
  auto interstitial = [&] {
    auto ad = ZVInterstitialAd::create(test::requestFor(server_));
    ad->setDelegate(interstitialDelegate_);
    ad->loadAd();
    EXPECT_TRUE(test::runMainQueueUntil([&] { return recorder_.count("receive") > 0; }));
    return ad;
  };
  // Waits until the answers of `fetches` requests have been dealt with on the main queue.
  auto settle = [](test::ObservingNetworkHandler& handler, int fetches) {
    EXPECT_TRUE(test::runMainQueueUntil(
        [&] { return handler.waitForCompletedFetches(fetches, std::chrono::milliseconds(0)); }));
    platform::MainQueue::shared().runUntilIdle();
  };
  const std::vector<std::pair<const char*, std::function<void(bool)>>> conventions = {
      {"HttpStatusFailsTheLoad",
       [&](bool on) {
         server_.respond(test::kServadPath,
                         {.status = 500, .body = test::bidWithMarkup(test::kDisplayMarkup)});
         const test::Heard heard = load();
         EXPECT_EQ(heard.name, on ? "fail" : "receive");
         EXPECT_EQ(heard.error && httpStatusOf(*heard.error) == 500, on);
         EXPECT_EQ(heard.error && classifyError(*heard.error) == ZVErrorKind::HTTPStatus, on);
       }},
      {"IdsPercentEncodedAndJsonHeaders",
       [&](bool on) {
         servesBid(test::kDisplayMarkup);
         auto request = test::requestFor(server_);
         request->adunitId = "a b&c=d";
         const test::Heard heard = load(request);
         EXPECT_EQ(heard.name, on ? "receive" : "fail");
         if (!on) {
           // libcurl refuses the URL: the request never leaves.
           ASSERT_TRUE(heard.error);
           EXPECT_EQ(classifyError(*heard.error), ZVErrorKind::InvalidRequest);
           load();
         }
         const auto sent = server_.requests().back();
         EXPECT_EQ(sent.params.find("aid")->second, on ? "a b&c=d" : "unit-9");
         EXPECT_EQ(sent.headers.at("Content-Type"),
                   on ? "application/json" : "application/x-www-form-urlencoded");
         EXPECT_EQ(sent.headers.contains("x-openrtb-version"), on);
       }},
      {"MissingIdsFailInsteadOfAborting",
       [&](bool on) {
         auto request = test::requestFor(server_);
         request->adunitId.reset();
         if (!on) {
           auto banner = ZVBannerView::create(request, ZVAdSize{320, 50});
           EXPECT_DEATH(banner->loadAd(), "publisherId and adunitId");
           return;
         }
         const test::Heard heard = load(request);
         EXPECT_EQ(heard.name, "fail");
         EXPECT_TRUE(heard.onMainThread);
         ASSERT_TRUE(heard.error);
         EXPECT_EQ(classifyError(*heard.error), ZVErrorKind::InvalidRequest);
       }},
      {"DesktopProfileAndScreenSizedInterstitial",
       [&](bool on) {
         servesBid(test::kDisplayMarkup);
         auto window = platform::DeviceProfile::phone().makeKeyWindow(
             platform::ViewController::create());  // the phone's size needs its orientation
         interstitial();
         const Value body = Value::parse(server_.requests().back().body);
         EXPECT_EQ(body["device"]["os"], on ? "Linux" : "iOS");
         EXPECT_EQ(body["imp"][0]["banner"]["w"], on ? 1920 : 320);
         EXPECT_EQ(body["imp"][0]["banner"]["h"], on ? 1080 : 480);
       }},
      {"InterstitialCloseDismisses",
       [&](bool on) {
         servesBid(test::kDisplayMarkup);
         auto root = platform::ViewController::create();
         auto window = platform::DeviceProfile::phone().makeKeyWindow(root);
         auto ad = interstitial();
         ad->showFromViewController(root);
         platform::MainQueue::shared().runUntilIdle();
         for (const auto& sub : ad->modalController()->viewIfLoaded()->subviews()) {
           if (auto button = std::dynamic_pointer_cast<platform::Button>(sub))
             button->touchesEnded();
         }
         platform::MainQueue::shared().runUntilIdle();
         EXPECT_EQ(recorder_.count("dismiss"), on ? 1u : 0u);
         ad->loadAd();
         EXPECT_EQ(ad->state(), on ? 1 : 2);
       }},
      {"RefreshedBannerKeepsOneView",
       [&](bool on) {
         servesBid(test::kDisplayMarkup);
         test::useVirtualClock();
         auto banner = ZVBannerView::create(test::requestFor(server_), ZVAdSize{320, 50});
         banner->setRefreshInterval(30);
         banner->setDelegate(delegate_);
         banner->loadAd();
         ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder_.count("receive") == 1; }));
         platform::MainQueue::shared().advanceBy(platform::seconds(30));
         ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder_.count("receive") == 2; }));
         EXPECT_EQ(banner->subviews().size(), on ? 1u : 2u);
       }},
      {"RefusedLoadAndLostDelegateLoggedAsErrors",
       [&](bool on) {
         servesBid(test::kDisplayMarkup);
         auto handler = test::ObservingNetworkHandler::install();
         test::LogCapture log;
         auto banner = ZVBannerView::create(test::requestFor(server_), ZVAdSize{320, 50});
         banner->setDelegate(std::make_shared<ZVBannerViewDelegate>());  // released at once
         banner->loadAd();
         banner->loadAd();
         settle(*handler, 1);
         EXPECT_EQ(log.entriesContaining("Ad Not in loadable state").size(), on ? 1u : 0u);
         EXPECT_EQ(log.entriesContaining("delegate was released").size(), on ? 1u : 0u);
       }},
      {"VastWithoutAnAdIsNoFill",
       [&](bool on) {
         servesBid(R"(<VAST version="3.0"/>)");
         auto handler = test::ObservingNetworkHandler::install();
         auto video = ZVInBannerVideo::create(test::requestFor(server_), ZVAdSize{320, 180});
         video->setDelegate(videoDelegate_);
         video->loadAd();
         settle(*handler, 1);
         EXPECT_EQ(recorder_.count("fail"), on ? 1u : 0u);
         EXPECT_EQ(video->state(), on ? 0 : 1);
         if (on) {
           EXPECT_EQ(classifyError(*recorder_.heard().back().error), ZVErrorKind::NoFill);
         }
       }},
      // A wrapper whose fetch fails ends the chain on the network thread.
      {"VastChainFailureOnTheMainQueue",
       [&](bool on) {
         servesBid(R"(<VAST version="3.0"><Ad><Wrapper><VASTAdTagURI>http://127.0.0.1:)" +
                   std::to_string(test::LoopbackServer::unusedPort()) +
                   R"(/w</VASTAdTagURI></Wrapper></Ad></VAST>)");
         auto video = ZVInBannerVideo::create(test::requestFor(server_), ZVAdSize{320, 180});
         video->setDelegate(videoDelegate_);
         video->loadAd();
         ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder_.count("fail") > 0; }));
         EXPECT_EQ(recorder_.heard().back().onMainThread, on);
         EXPECT_EQ(recorder_.heard().back().error->code, 303);
       }},
  };
  for (const auto& [name, check] : conventions) {
    for (const bool on : {false, true}) {
      SCOPED_TRACE(std::string(name) + (on ? " on" : " off"));
      test::resetProcessState();
      recorder_.clear();
      ZorvaSDK::shared()->setAppConventions(on);
      check(on);
    }
  }
}

// A video load that stalls in its bid, its wrapper chain or its media fails once, as a time-out,
// when bounded, and the ad object loads again; what the timed-out load reports later (its stalled
// server going away, its media becoming ready, before or while the next load runs) reaches no
// one. A load that ends in time, an unbounded one and one whose ad object is gone hear no more.
TEST_F(HostSettingsTest, AStalledVideoLoadTimesOutOnceWhenBounded) {
  using platform::HeadlessMediaEngine;
  enum class Stall { None, Bid, Wrapper, Media };
  enum class Then { Nothing, Release, LateThenReload, ReloadThenLate };
  struct Case {
    const char* name;
    bool bounded;
    Stall stall;
    bool interstitial;
    double timeout;
    Then then;
  };
  for (const auto& c :
       {Case{"LoadedInTime", true, Stall::None, true, 20, Then::Nothing},
        Case{"BidNeverAnswers", true, Stall::Bid, true, 20, Then::ReloadThenLate},
        Case{"WrapperNeverAnswers", true, Stall::Wrapper, false, 5, Then::LateThenReload},
        Case{"MediaReadyDuringTheNextLoad", true, Stall::Media, true, 20, Then::ReloadThenLate},
        Case{"MediaReadyBeforeTheNextLoad", true, Stall::Media, false, 20, Then::LateThenReload},
        Case{"Unbounded", false, Stall::Media, false, 20, Then::Nothing},
        Case{"ReleasedWhileStalled", true, Stall::Media, false, 20, Then::Release}}) {
    SCOPED_TRACE(c.name);
    test::resetProcessState();
    recorder_.clear();
    test::useVirtualClock();
    ZorvaSDK::shared()->setVideoLoadBounded(c.bounded);
    if (c.timeout != ZorvaSDK::kVideoLoadTimeout) {
      ZorvaSDK::shared()->setVideoLoadTimeout(c.timeout);
    }
    auto handler = test::ObservingNetworkHandler::install();
    std::vector<std::weak_ptr<HeadlessMediaEngine>> engines;
    platform::MediaEngine::setFactory([&](std::weak_ptr<platform::MediaEngineClient> client) {
      auto engine = HeadlessMediaEngine::create(std::move(client));
      engines.push_back(engine);
      return engine;
    });
    HeadlessMediaEngine::setAutomaticByDefault(c.stall != Stall::Media);
    auto stallServer = std::make_unique<test::LoopbackServer>();
    stallServer->respond("/w", {.body = test::linearVast(), .holdAfterBytes = 0});
    stallServer->respond(test::kServadPath, {.body = "{}", .holdAfterBytes = 0});
    auto request = test::requestFor(c.stall == Stall::Bid ? *stallServer : server_);
    server_.respond(
        test::kServadPath,
        {.body = test::bidWithMarkup(c.stall != Stall::Wrapper
                                         ? test::linearVast()
                                         : R"(<VAST version="3.0"><Ad><Wrapper><VASTAdTagURI>)" +
                                               stallServer->url("/w") +
                                               "</VASTAdTagURI></Wrapper></Ad></VAST>")});
    auto interstitial = ZVInterstitialAd::create(request);
    interstitial->setSwitchToVideo(true);
    interstitial->setDelegate(interstitialDelegate_);
    auto video = ZVInBannerVideo::create(request, ZVAdSize{320, 180});
    video->setDelegate(videoDelegate_);
    const auto load = [&] { c.interstitial ? interstitial->loadAd() : video->loadAd(); };
    const auto state = [&] { return c.interstitial ? interstitial->state() : video->state(); };
    // What the timed-out load reports late, heard at once if at all (the main queue is not run):
    // its bid or chain (303) fails on the network thread, or its media becomes ready.
    const auto late = [&] {
      if (c.stall != Stall::Media) {
        stallServer.reset();
        ASSERT_TRUE(handler->waitForCompletedFetches(2, std::chrono::seconds(10)));
      } else {
        auto stalled = engines.front().lock();  // still held by the timed-out load's player
        ASSERT_TRUE(stalled);
        stalled->setDuration(15);
        stalled->becomeReady();
        stalled->setLoadedTimeRanges({platform::TimeRange::fromSeconds(0, 15)});
      }
      EXPECT_EQ(recorder_.names(), std::vector<std::string>{"fail"});
    };

    load();
    ASSERT_TRUE(test::runMainQueueUntil([&] {
      return c.stall == Stall::None    ? recorder_.count("receive") == 1
             : c.stall == Stall::Media ? !engines.empty()
                                       : !stallServer->requests().empty();
    }));
    if (c.then == Then::Release) video.reset();
    auto& queue = platform::MainQueue::shared();
    queue.advanceBy(platform::seconds(c.timeout) - std::chrono::milliseconds(1));
    EXPECT_EQ(recorder_.count("fail"), 0u);
    queue.advanceBy(std::chrono::milliseconds(1));
    if (c.then == Then::Nothing || c.then == Then::Release) {
      EXPECT_EQ(recorder_.names(), std::vector<std::string>(c.stall == Stall::None, "receive"));
      if (!c.bounded) {
        EXPECT_EQ(state(), 1);
      }
      continue;
    }
    ASSERT_EQ(recorder_.names(), std::vector<std::string>{"fail"});
    EXPECT_EQ(classifyError(*recorder_.heard().back().error), ZVErrorKind::Timeout);
    EXPECT_EQ(state(), 0);

    if (c.then == Then::LateThenReload) late();
    HeadlessMediaEngine::setAutomaticByDefault(true);
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::linearVast())});
    request->serverUrl = server_.url(test::kServadPath);
    load();
    if (c.then == Then::ReloadThenLate) late();
    ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder_.count("receive") > 0; }));
    queue.runUntilIdle();
    EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"fail", "receive"}));
  }
}

// A transport failure through a banner; and, as the SDK's request builder cannot be made to fail
// from outside, a builder that fails on a thread of its own. Without the setting each is told on
// its own thread (the banner's and the loader's tests).
TEST_F(HostSettingsTest, FailuresAreToldOnTheMainQueueWhenAsked) {
  ZorvaSDK::shared()->setCallbacksOnMainQueue(true);
  const test::Heard heard = load(test::unreachableRequest());
  EXPECT_EQ(heard.name, "fail");
  EXPECT_TRUE(heard.onMainThread);

  auto builder = std::make_shared<test::FixedRequestBuilder>("http://127.0.0.1:1/");
  builder->failure = Error("test", 1);
  test::Load failing(builder);
  failing.loader->load();
  ASSERT_TRUE(failing.delegate->waitForCall());
  EXPECT_TRUE(failing.delegate->onMainQueue);
}

struct Answer {
  const char* name;
  test::LoopbackServer::Response response;
  // With the setting off: an empty page received or, with no body, unreadable JSON.
  const char* heardWhenOff;
  // With it on: a no-fill failure.
  bool noFill;
};

class NoFillTest : public HostSettingsTest, public testing::WithParamInterface<Answer> {};

TEST_P(NoFillTest, OnlyAnAnswerWithoutABidIsANoFillFailureAndOnlyWhenAsked) {
  server_.respond(test::kServadPath, GetParam().response);
  const test::Heard off = load();
  EXPECT_EQ(off.name, GetParam().heardWhenOff);
  EXPECT_FALSE(off.error && ZorvaSDK::isNoFill(*off.error));

  ZorvaSDK::shared()->setNoFillAsFailure(true);
  const test::Heard on = load();
  if (!GetParam().noFill) {
    EXPECT_EQ(on.name, off.name);
    EXPECT_FALSE(on.error && ZorvaSDK::isNoFill(*on.error));
    return;
  }
  EXPECT_EQ(on.name, "fail");
  EXPECT_TRUE(on.onMainThread);
  ASSERT_TRUE(on.error);
  EXPECT_TRUE(ZorvaSDK::isNoFill(*on.error));
}

// A real bid and an unreadable answer stay what they were.
INSTANTIATE_TEST_SUITE_P(
    HostSettings, NoFillTest,
    testing::Values(
        Answer{"EmptyObject", {.body = "{}"}, "receive", true},
        Answer{"EmptyBid", {.body = R"({"id":"r","seatbid":[{"bid":[]}]})"}, "receive", true},
        Answer{"NoContent", {.status = 204, .body = ""}, "fail", true},
        Answer{"Bid", {.body = test::bidWithMarkup(test::kDisplayMarkup)}, "receive", false},
        Answer{"Unreadable", {.body = "<VAST/>"}, "fail", false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace zorva
