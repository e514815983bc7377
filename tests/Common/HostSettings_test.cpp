// The host settings a Linux app turns on, each through an ad's load over the loopback server: what
// the bid request says and where and how the app hears the outcome, with the setting on and with
// it off.
#include <gtest/gtest.h>

#include <zorva/ZVBannerView.h>
#include <zorva/ZVErrors.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Button.h>
#include <zorva/platform/HeadlessMediaEngine.h>

#include "support/AdWorld.h"
#include "support/ObservingNetworkHandler.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

class HostSettingsTest : public test::AdWorldTest {
 protected:
  test::Heard load(std::shared_ptr<ZVAdRequest> request = nullptr) {
    auto banner = makeBanner(0, request);
    const std::size_t before = recorder_.heard().size();
    banner->loadAd();
    EXPECT_TRUE(test::runMainQueueUntil([&] { return recorder_.heard().size() > before; }));
    const auto heard = recorder_.heard();
    return heard.size() > before ? heard[before] : test::Heard{};
  }
};

// Each app convention through the public API: the documented default first, then the same with
// the one switch on. Every row starts from the process's default state.
TEST_F(HostSettingsTest, EachAppConventionIsOffByDefaultAndOnWithTheSwitch) {
  auto servesBid = [&](const std::string& markup) {
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(markup)});
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
         if (!on) return;  // the builder stops the process: its own death test
         const test::Heard heard = load(request);
         EXPECT_EQ(heard.name, "fail");
         EXPECT_TRUE(heard.onMainThread);
         ASSERT_TRUE(heard.error);
         EXPECT_EQ(classifyError(*heard.error), ZVErrorKind::InvalidRequest);
       }},
      {"DesktopProfileAndScreenSizedInterstitialThatItsCloseDismisses",
       [&](bool on) {
         servesBid(test::kDisplayMarkup);
         // The phone's size needs its orientation.
         window_ = platform::DeviceProfile::phone().makeKeyWindow(root_);
         auto ad = makeInterstitial();
         ad->loadAd();
         ASSERT_TRUE(waitFor("receive"));
         const Value body = Value::parse(server_.requests().back().body);
         EXPECT_EQ(body["device"]["os"], on ? "Linux" : "iOS");
         EXPECT_EQ(body["imp"][0]["banner"]["w"], on ? 1920 : 320);
         EXPECT_EQ(body["imp"][0]["banner"]["h"], on ? 1080 : 480);
         ad->showFromViewController(root_);
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
         auto banner = makeBanner(30);
         banner->loadAd();
         ASSERT_TRUE(waitFor("receive"));
         platform::MainQueue::shared().advanceBy(platform::seconds(30));
         ASSERT_TRUE(waitFor("receive", 2));
         EXPECT_EQ(banner->subviews().size(), on ? 1u : 2u);
       }},
      {"RefusedLoadAndLostDelegateLoggedAsErrors",
       [&](bool on) {
         servesBid(test::kDisplayMarkup);
         auto handler = test::ObservingNetworkHandler::install();
         test::LogCapture log;
         auto banner = makeBanner();
         banner->setDelegate(std::make_shared<ZVBannerViewDelegate>());  // released at once
         banner->loadAd();
         banner->loadAd();
         settle(*handler, 1);
         EXPECT_EQ(log.entriesContaining("Ad Not in loadable state").size(), on ? 1u : 0u);
         EXPECT_EQ(log.entriesContaining("delegate was released").size(), on ? 1u : 0u);
       }},
      // Only an answer without a bid is no fill: off, an empty page is received, or with no body
      // unreadable JSON fails; a real bid and an unreadable answer stay what they were.
      {"AnswerWithoutABidIsNoFill",
       [&](bool on) {
         const std::tuple<test::LoopbackServer::Response, const char*, bool> answers[] = {
             {{.body = "{}"}, "receive", true},
             {{.body = R"({"id":"r","seatbid":[{"bid":[]}]})"}, "receive", true},
             {{.status = 204, .body = ""}, "fail", true},
             {{.body = test::bidWithMarkup(test::kDisplayMarkup)}, "receive", false},
             {{.body = "<VAST/>"}, "fail", false}};
         for (const auto& [response, heardWhenOff, noFill] : answers) {
           SCOPED_TRACE(response.body.substr(0, 40));
           server_.respond(test::kServadPath, response);
           const test::Heard heard = load();
           EXPECT_EQ(heard.name, on && noFill ? "fail" : heardWhenOff);
           EXPECT_TRUE(heard.onMainThread);
           EXPECT_EQ(heard.error && ZorvaSDK::isNoFill(*heard.error), on && noFill);
         }
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
      // A transport failure is told on the network thread, and so is a wrapper whose fetch
      // fails, which ends the chain there.
      {"FailuresOnTheMainQueue",
       [&](bool on) {
         const test::Heard heard = load(test::unreachableRequest());
         EXPECT_EQ(heard.name, "fail");
         EXPECT_EQ(heard.onMainThread, on);
         servesBid(R"(<VAST version="3.0"><Ad><Wrapper><VASTAdTagURI>http://127.0.0.1:)" +
                   std::to_string(test::LoopbackServer::unusedPort()) +
                   R"(/w</VASTAdTagURI></Wrapper></Ad></VAST>)");
         auto video = ZVInBannerVideo::create(test::requestFor(server_), ZVAdSize{320, 180});
         video->setDelegate(videoDelegate_);
         video->loadAd();
         ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder_.count("fail") == 2; }));
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
    ZorvaSDK::shared()->setVideoLoadTimeout(c.timeout);
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
    auto interstitial = makeInterstitial(request);
    interstitial->setSwitchToVideo(true);
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
    ASSERT_TRUE(waitFor("receive"));
    queue.runUntilIdle();
    EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"fail", "receive"}));
  }
}

}  // namespace
}  // namespace zorva
