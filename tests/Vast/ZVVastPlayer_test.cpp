// The VAST player over the real parser, creative players and engines, observed through the
// tracking hand-over; then the creative players alone over hand-driven headless engines.
#include <gtest/gtest.h>

#include <zorva/platform/Button.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/StoreProductViewController.h>
#include <zorva/platform/Window.h>

#include <algorithm>

#include "Players/ZVVastAdplayerDelegate.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastNonLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/AdFormatTesting.h"
#include "support/LoopbackServer.h"
#include "support/ObservingNetworkHandler.h"
#include "support/RecordingAdDelegate.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::HeadlessMediaEngine;
using platform::HeadlessWebEngine;
using platform::MainQueue;
using platform::NavigationActionPolicy;
using platform::NavigationType;
using platform::TimeRange;
using Strings = std::vector<std::string>;
using Lists = std::vector<Strings>;

using test::RecordingAdDelegate;

std::vector<std::string> track(const std::string& event) { return {"http://track/" + event}; }

class VastPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::useVirtualClock();
    handler = test::ObservingNetworkHandler::install();
  }
  std::shared_ptr<ZVVastPlayer> makePlayer(const std::string& markup, Value skadn = Value()) {
    ZVPlayerConfig config;
    config.isExpectingVideoAd = true;
    config.ad = std::make_shared<ZorvaAd>();
    config.ad->creative = markup;
    config.ad->skadn = std::move(skadn);
    auto player = ZVVastPlayer::create(config);
    player->setDelegate(delegate);
    return player;
  }
  // Plays the standard linear ad over a hand-driven engine: loaded with `duration` seconds of
  // media, playing at `position`, with the first report delivered.
  std::shared_ptr<HeadlessMediaEngine> startLinear(double duration, double position,
                                                   const std::string& markup = test::linearVast(),
                                                   Value skadn = Value()) {
    HeadlessMediaEngine::setAutomaticByDefault(false);
    player = makePlayer(markup, std::move(skadn));
    player->play();
    MainQueue::shared().runUntilIdle();
    linear = std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(player->vastAdPlayer());
    EXPECT_TRUE(linear);
    if (!linear) return nullptr;
    auto engine = HeadlessMediaEngine::of(*linear->playerItem());
    engine->setDuration(duration);
    engine->becomeReady();
    engine->setLoadedTimeRanges({TimeRange::fromSeconds(0, std::max(duration, 1.0))});
    engine->setCurrentTime(position);
    linear->play();
    MainQueue::shared().runUntilIdle();
    return engine;
  }

  std::shared_ptr<test::ObservingNetworkHandler> handler;
  std::shared_ptr<RecordingAdDelegate> delegate = std::make_shared<RecordingAdDelegate>();
  std::shared_ptr<ZVVastPlayer> player;
  std::shared_ptr<ZVVastLinearAdPlayer> linear;
};

// One point fires per report: a first report past several fires only the start, the overdue
// points then one by one, and reports past the last hand over empty lists.
TEST_F(VastPlayerTest, ProgressPointsFireOnePerReport) {
  struct Case {
    double duration, first;
    std::vector<double> reports;
    Lists expected;
  };
  Lists all;
  for (const char* event : test::kProgressEvents) all.push_back(track(event));
  Lists zero = all;
  zero.emplace_back();
  for (const auto& [duration, first, reports, expected] :
       {Case{20, 0.5, {5.2, 5.4, 10.1, 15.0, 20.0}, all}, Case{20, 12, {}, {all[0]}},
        Case{0, 0, {0, 0, 0, 0, 0}, zero}}) {
    SCOPED_TRACE(std::to_string(duration) + " from " + std::to_string(first));
    handler = test::ObservingNetworkHandler::install();
    delegate = std::make_shared<RecordingAdDelegate>();
    auto engine = startLinear(duration, first);
    ASSERT_TRUE(engine);
    for (double position : reports) {
      engine->setCurrentTime(position);
      MainQueue::shared().advanceBy(std::chrono::microseconds(2500));
    }
    EXPECT_EQ(handler->handedOverUrls(), expected);
    EXPECT_EQ(delegate->events, Strings{"load"});
  }
}

// After its load a non-linear ad cancels taps and other navigations, not forms; an address
// loads as a request whose failure is swallowed. A first leaf without a creative shows nothing.
TEST_F(VastPlayerTest, NonLinearAdsAndResultsWithoutACreativeAreShownAsHtml) {
  const auto show = [&](const std::string& markup, const Value& skadn) {
    player = makePlayer(markup, skadn);
    player->play();
    MainQueue::shared().runUntilIdle();
    return std::dynamic_pointer_cast<ZVVastNonLinearAdPlayer>(player->vastAdPlayer());
  };
  const auto empty =
      show("<VAST version=\"3.0\"><Ad><InLine/></Ad>" +
               test::linearVast().substr(std::string("<VAST version=\"3.0\">").size()),
           Value());
  ASSERT_TRUE(empty);
  EXPECT_FALSE(empty->ad());
  const Value skadn = {{"itunesitem", "123"}};
  const auto nonLinear = show(test::nonLinearVast("<b>overlay</b>"), skadn);
  ASSERT_TRUE(nonLinear);
  EXPECT_EQ(nonLinear->skadn(), skadn);
  auto engine = HeadlessWebEngine::of(*nonLinear->player()->contenView());
  ASSERT_TRUE(engine->html());
  EXPECT_NE(engine->html()->find("<div align=\"center\"><b>overlay</b></div>"), std::string::npos);
  const auto request = [](const char* url) {
    return platform::URLRequest(platform::URL::URLWithString(url));
  };
  EXPECT_EQ(engine->clickLink(request("http://advertiser/")), NavigationActionPolicy::Cancel);
  EXPECT_FALSE(
      nonLinear->htmlPlayerShouldLoadRequest(request("http://late"), NavigationType::Other));
  EXPECT_TRUE(nonLinear->htmlPlayerShouldLoadRequest(request("http://form"),
                                                     NavigationType::FormSubmitted));
  EXPECT_FALSE(nonLinear->linkResolver());
  EXPECT_EQ(delegate->events, (Strings{"load", "load"}));
  std::vector<double> times;
  for (const auto& point : player->trackingPoints()) times.push_back(point.time);
  EXPECT_EQ(times, (std::vector<double>{0, 3.75, 7.5, 11.25, 15}));
  EXPECT_EQ(player->subviews().at(0), nonLinear->plaerView());
  // A second load report rebuilds the points rather than adding five more.
  player->playerDidLoad();
  EXPECT_EQ(player->trackingPoints().size(), 5u);

  HeadlessWebEngine::setAutomaticByDefault(false);
  engine = HeadlessWebEngine::of(
      *show(test::nonLinearVast("http://content.invalid/"), Value())->player()->contenView());
  ASSERT_TRUE(engine->request());
  EXPECT_EQ(engine->request()->url->absoluteString(), "http://content.invalid/");
  EXPECT_TRUE(engine->failNavigation(Error("NSURLErrorDomain", -1003)));
  EXPECT_EQ(delegate->events, (Strings{"load", "load", "load"}));
}

// A start fires the chain's impressions; a tap goes to the resolver, whose modal reports reach
// only delegates that take them; a media failure's code goes into the error URLs.
TEST_F(VastPlayerTest, AStartFiresTheImpressionATapGoesToTheResolverAndFailuresToErrorUrls) {
  player = makePlayer("<VAST version=\"3.0\"><Ad>");  // malformed: fails at once, plays nothing
  player->play();
  EXPECT_EQ(delegate->events, Strings{"fail:100"});
  EXPECT_FALSE(player->vastAdPlayer());
  auto engine = startLinear(20, 1);
  ASSERT_TRUE(engine);
  player->playerDidStartPlaying();
  EXPECT_EQ(handler->handedOverUrls().back(), Strings{"http://imp/inline"});
  EXPECT_EQ(delegate->events.back(), "start");
  delegate->events = {"load"};
  linear->touchesEnded();
  player->playerDidIteractedWithTargetUrl(std::nullopt);  // nowhere to go: nothing opens
  EXPECT_EQ(delegate->events, (Strings{"load", "willPresent"}));
  player->resolverDidDismissModal(*player->linkResolver());
  delegate->modal = false;
  linear->touchesEnded();
  player->resolverDidDismissModal(*player->linkResolver());
  engine->fail(Error("decoder", 1));
  EXPECT_EQ(handler->handedOverUrls().back(), Strings{"http://err/inline?code=405"});
  EXPECT_EQ(delegate->events, (Strings{"load", "willPresent", "didDismiss", "fail:405"}));

  // Click-throughs often come in CDATA, which the reader leaves out: the bid's attribution still
  // opens the store sheet.
  delegate = std::make_shared<RecordingAdDelegate>();
  auto root = platform::ViewController::create();
  platform::DeviceProfile::phone().makeKeyWindow(root);
  const Value skadn = {{"itunesitem", "880047117"}, {"network", "example123.skadnetwork"}};
  ASSERT_TRUE(startLinear(20, 0, test::linearVast("video/mp4", std::nullopt), skadn));
  linear->touchesEnded();
  EXPECT_TRUE(std::dynamic_pointer_cast<platform::StoreProductViewController>(
      root->presentedViewController()));
  EXPECT_EQ(delegate->events, (Strings{"load", "willPresent"}));
}

// Failures of the wrapper chain are found, and told, on the network thread. The app lets go of
// the player while it hears one there: the player, a view, still dies on the main thread.
TEST_F(VastPlayerTest, AWrapperChainFailureIsToldOnTheNetworkThreadAndThePlayerDiesOnTheMain) {
  class ReleasingDelegate : public RecordingAdDelegate {
   public:
    void playerDidFailWithError(const Error& error) override {
      RecordingAdDelegate::playerDidFailWithError(error);
      onMainThread = MainQueue::shared().isCurrent();
      owner.reset();
    }
    std::shared_ptr<ZVVastPlayer> owner;
    bool onMainThread = true;
  };
  test::LoopbackServer server;
  server.respond("/no-ads", {.body = "<VAST version=\"3.0\"/>"});
  auto releasing = std::make_shared<ReleasingDelegate>();
  releasing->owner = makePlayer("<VAST version=\"3.0\"><Ad><Wrapper><VASTAdTagURI>" +
                                server.url("/no-ads") + "</VASTAdTagURI></Wrapper></Ad></VAST>");
  releasing->owner->setDelegate(releasing);
  auto probe = std::make_shared<test::DestructionProbe::Record>();
  releasing->owner->addSubview(test::DestructionProbe::create(probe));
  releasing->owner->play();
  ASSERT_TRUE(handler->waitForCompletedFetches(1, std::chrono::seconds(10)));
  EXPECT_EQ(releasing->events, Strings{"fail:303"});
  EXPECT_FALSE(releasing->onMainThread);
  ASSERT_TRUE(test::runMainQueueUntil([&] { return probe->destroyed.load(); }));
  EXPECT_TRUE(probe->onMainThread);
}

// Writes down "load", "start", "end", "click:<url or (none)>", "fail:<code>"; progress apart.
class RecordingVastDelegate : public ZVVastAdplayerDelegate {
 public:
  void playerDidLoad() override { events.push_back("load"); }
  void playerDidStartPlaying() override { events.push_back("start"); }
  void playerDidEndPlaying() override { events.push_back("end"); }
  void playerDidIteractedWithTargetUrl(const std::optional<std::string>& url) override {
    events.push_back("click:" + url.value_or("(none)"));
  }
  void playerDidProgress(double seconds) override { progress.push_back(seconds); }
  void playerDidFailedWithError(const Error& error) override {
    events.push_back("fail:" + std::to_string(error.code));
  }
  Strings events;
  std::vector<double> progress;
};

class LinearPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::useVirtualClock();
    HeadlessMediaEngine::setAutomaticByDefault(false);
    player->setDelegate(delegate);
  }
  std::shared_ptr<HeadlessMediaEngine> engine() const {
    return player->playerItem() ? HeadlessMediaEngine::of(*player->playerItem()) : nullptr;
  }
  std::shared_ptr<ZVVastLinearAdPlayer> player = ZVVastLinearAdPlayer::create();
  std::shared_ptr<RecordingVastDelegate> delegate = std::make_shared<RecordingVastDelegate>();
};

// Without MP4 media the load fails with 403, without a usable URL silently; a second load only
// changes the ad. The video fits the bounds (not the frame) under a bar 2 points above the edge.
TEST_F(LinearPlayerTest, OnlyAnMp4FileMakesAPlayerWhoseVideoLiesUnderAThinBar) {
  player->load(test::firstAd(test::linearVast("video/webm")));
  player->load(nullptr);
  player->load(test::firstAd(test::linearVast("video/mp4", "http://c", "not a url")));
  MainQueue::shared().advanceBy(std::chrono::seconds(5));
  EXPECT_EQ(delegate->events, (Strings{"fail:403", "fail:403"}));
  EXPECT_FALSE(player->player());

  player->load(test::firstAd(test::linearVast()));
  const auto firstPlayer = player->player();
  ASSERT_TRUE(firstPlayer);
  const auto second = test::firstAd(test::linearVast("video/mp4", "http://c", "http://m/2.mp4"));
  player->load(second);
  EXPECT_EQ(player->ad(), second);
  EXPECT_EQ(player->player(), firstPlayer);
  EXPECT_EQ(engine()->url()->absoluteString(), "http://media/ad.mp4");

  ASSERT_TRUE(player->playerLayer());
  EXPECT_EQ(player->layer()->sublayers().front(), player->playerLayer());
  EXPECT_EQ(player->playerLayer()->videoGravity(), platform::LayerVideoGravity::ResizeAspect);
  for (const platform::Size size : {platform::Size{320, 180}, platform::Size{1024, 768}}) {
    player->setFrame(platform::Rect(10, 20, size.width, size.height));
    player->layoutIfNeeded();
    EXPECT_EQ(player->progressView()->frame(), platform::Rect(0, size.height - 2, size.width, 4));
    EXPECT_EQ(player->playerLayer()->frame(), platform::Rect(0, 0, size.width, size.height));
  }
}

// Only the first range counts, and a duration not yet known (-1 here) never passes.
TEST_F(LinearPlayerTest, LoadsOnceTheFirstBufferedRangeEndsPastHalfInSinglePrecision) {
  struct Case {
    double duration, start, buffered;
    bool loads;
  };
  for (const auto [duration, start, buffered, loads] :
       {Case{-1, 0, 25, false}, Case{30, 10, 5.5, true}, Case{30, 0, 15.0, false},
        Case{30, 0, 15.1, true}, Case{0, 0, 0, false}, Case{0, 0, 0.5, true}}) {
    SCOPED_TRACE(std::to_string(start + buffered) + " of " + std::to_string(duration));
    player = ZVVastLinearAdPlayer::create();  // a fresh player for each case
    delegate = std::make_shared<RecordingVastDelegate>();
    player->setDelegate(delegate);
    player->load(test::firstAd(test::linearVast()));
    if (duration >= 0) engine()->setDuration(duration);
    for (int report = 0; report < 2; ++report) {  // the second report loads nothing more
      engine()->setLoadedTimeRanges(
          {TimeRange::fromSeconds(start, buffered), TimeRange::fromSeconds(20, 9)});
    }
    EXPECT_EQ(delegate->events, Strings(loads ? 1 : 0, "load"));
    EXPECT_EQ(player->timeBoundryObserver() != nullptr, loads);
  }
}

// Entering or leaving a window plays; progress is reported only while the item is ready. A
// stall, a failure and the end (with a last progress report) are told, a start never.
TEST_F(LinearPlayerTest, AWindowChangePlaysAndProgressIsReportedEvery400thSecondWhileReady) {
  player->load(test::firstAd(test::linearVast()));
  engine()->setDuration(20);
  engine()->setLoadedTimeRanges({TimeRange::fromSeconds(0, 20)});
  EXPECT_EQ(player->player()->rate(), 0.0f);
  auto window = platform::Window::create(platform::Rect(0, 0, 320, 480));
  window->addSubview(player);
  EXPECT_EQ(player->player()->rate(), 1.0f);
  player->player()->pause();
  player->removeFromSuperview();
  EXPECT_EQ(player->player()->rate(), 1.0f);
  engine()->setCurrentTime(5);
  auto& queue = MainQueue::shared();
  queue.advanceBy(std::chrono::milliseconds(10));
  EXPECT_TRUE(delegate->progress.empty()) << "the item is not ready yet";
  engine()->becomeReady();
  queue.advanceBy(std::chrono::milliseconds(10));
  EXPECT_EQ(delegate->progress, std::vector<double>(4, 5.0));
  EXPECT_FLOAT_EQ(player->progressView()->progress(), 0.25f);

  engine()->stall();
  engine()->reachEnd();
  EXPECT_EQ(delegate->progress.back(), 20.0) << "playback stops with a report at the end";
  // The status observation reports a failure; the registration under the error key never fires.
  engine()->fail(Error("decoder", 3));
  EXPECT_EQ(delegate->events, (Strings{"load", "fail:405", "end", "fail:405"}));
  EXPECT_FALSE(player->playbackStarted());
}

// A tap sends the click-through, even when absent, and goes no further. A gone view is neither
// told nor kept alive.
TEST_F(LinearPlayerTest, ATapSendsTheClickThroughAndAGoneViewIsNeitherToldNorKeptAlive) {
  auto parent = platform::Button::buttonWithType(platform::ButtonType::Custom);
  int parentTaps = 0;
  parent->addTarget([&](platform::Button&) { ++parentTaps; }, platform::kControlEventTouchUpInside);
  parent->addSubview(player);
  player->load(test::firstAd(test::linearVast("video/mp4", std::nullopt)));
  player->touchesEnded();
  player->load(test::firstAd(test::linearVast()));
  engine()->setDuration(20);
  engine()->becomeReady();
  engine()->setLoadedTimeRanges({TimeRange::fromSeconds(0, 20)});
  player->touchesEnded();
  EXPECT_EQ(delegate->events, (Strings{"click:(none)", "load", "click:http://click/through"}));
  EXPECT_EQ(parentTaps, 0);

  auto item = player->playerItem();
  auto avPlayer = player->player();
  auto engine = this->engine();
  avPlayer->play();
  std::weak_ptr<ZVVastLinearAdPlayer> weak = player;
  parent.reset();
  player.reset();
  EXPECT_TRUE(weak.expired());
  MainQueue::shared().advanceBy(std::chrono::milliseconds(10));
  engine->reachEnd();
  EXPECT_EQ(delegate->events.size(), 3u);
  EXPECT_TRUE(delegate->progress.empty());
}

// With a point as the decimal separator even where the locale says comma.
TEST(ZVVastNonLinearAdPlayerDuration, ReadsOnlyALeadingDecimalNumber) {
  test::CommaDecimalLocale comma;
  const std::vector<std::pair<std::string, double>> cases = {
      {"15", 15.0}, {"00:00:15", 0.0}, {" 7.5s", 7.5}, {"abc", 0.0},  {"", 0.0},
      {"-3", -3.0}, {"1e2", 100.0},    {"1e", 1.0},    {"0x1A", 0.0}, {"inf", 0.0}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(ZVVastNonLinearAdPlayer::leadingDouble(text), expected) << '"' << text << '"';
  }
}

}  // namespace
}  // namespace zorva
