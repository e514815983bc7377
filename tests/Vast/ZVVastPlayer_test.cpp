// The VAST player over the real parser, creative players and platform engines: progress points,
// errors and clicks, observed through the network handler's tracking hand-over. A natural end is
// played through by the player builder's end-to-end test.
#include <gtest/gtest.h>

#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/StoreProductViewController.h>

#include <algorithm>

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
using platform::MainQueue;
using platform::TimeRange;
using Lists = std::vector<std::vector<std::string>>;

using test::RecordingAdDelegate;

std::vector<std::string> track(const std::string& event) { return {"http://track/" + event}; }

std::string wrapperOf(const std::string& url, const std::string& more = "") {
  return "<VAST version=\"3.0\"><Ad><Wrapper><VASTAdTagURI>" + url + "</VASTAdTagURI>" + more +
         "</Wrapper></Ad></VAST>";
}

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
  void reportAt(HeadlessMediaEngine& engine, double position) {
    engine.setCurrentTime(position);
    MainQueue::shared().advanceBy(std::chrono::microseconds(2500));
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
  const auto points = [](std::size_t n) {
    Lists lists;
    for (std::size_t i = 0; i < n; ++i) lists.push_back(track(test::kProgressEvents[i]));
    return lists;
  };
  Lists zero = points(5);
  zero.emplace_back();
  for (const auto& [duration, first, reports, expected] :
       {Case{20, 0.5, {5.2, 5.4, 10.1, 15.0, 20.0}, points(5)}, Case{20, 12, {}, points(1)},
        Case{0, 0, {0, 0, 0, 0, 0}, zero}}) {
    SCOPED_TRACE(std::to_string(duration) + " from " + std::to_string(first));
    handler = test::ObservingNetworkHandler::install();
    delegate = std::make_shared<RecordingAdDelegate>();
    auto engine = startLinear(duration, first);
    ASSERT_TRUE(engine);
    for (double position : reports) reportAt(*engine, position);
    EXPECT_EQ(handler->handedOverUrls(), expected);
    EXPECT_EQ(delegate->events, std::vector<std::string>{"load"});
  }
}

// A malformed document fails at once with 100 and hands over nothing; a failing media puts its
// code into every error URL of the chain.
TEST_F(VastPlayerTest, FailuresAreToldAndHandedOverToEveryErrorUrlOfTheChain) {
  player = makePlayer("<VAST version=\"3.0\"><Ad>");
  player->play();
  EXPECT_EQ(delegate->events, std::vector<std::string>{"fail:100"});
  EXPECT_FALSE(player->vastAdPlayer());
  EXPECT_TRUE(handler->handedOverUrls().empty());

  delegate->events.clear();
  test::LoopbackServer server;
  server.respond("/inline", {.body = test::linearVast(), .contentType = "application/xml"});
  HeadlessMediaEngine::setAutomaticByDefault(false);
  player = makePlayer(
      wrapperOf(server.url("/inline"), "<Error>http://err/wrapper?c=[ERRORCODE]</Error>"));
  player->play();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return player->vastAdPlayer() != nullptr; }));
  auto linear = std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(player->vastAdPlayer());
  ASSERT_TRUE(linear);
  HeadlessMediaEngine::of(*linear->playerItem())->fail(Error("decoder", 1));

  EXPECT_EQ(handler->handedOverUrls(),
            (Lists{{"http://err/inline?code=405", "http://err/wrapper?c=405"}}));
  EXPECT_EQ(delegate->events, std::vector<std::string>{"fail:405"});
}

// A non-linear ad is shown as HTML with the bid's attribution. The parser's result is the first
// leaf: one without a creative leaves the player no ad to pick, and an empty non-linear page.
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
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "load"}));
  std::vector<double> times;
  for (const auto& point : player->trackingPoints()) times.push_back(point.time);
  EXPECT_EQ(times, (std::vector<double>{0, 3.75, 7.5, 11.25, 15}));
  EXPECT_EQ(player->subviews().at(0), nonLinear->plaerView());
  // A second load report rebuilds the points rather than adding five more.
  player->playerDidLoad();
  EXPECT_EQ(player->trackingPoints().size(), 5u);
}

// A start report fires the impression of the whole chain; a tap goes to the link resolver, whose
// modal reports reach only delegates that take them.
TEST_F(VastPlayerTest, AStartFiresTheImpressionAndATapGoesToTheLinkResolver) {
  ASSERT_TRUE(startLinear(20, 1));
  player->playerDidStartPlaying();
  EXPECT_EQ(handler->handedOverUrls().back(), std::vector<std::string>{"http://imp/inline"});
  EXPECT_EQ(delegate->events.back(), "start");
  delegate->events = {"load"};
  linear->touchesEnded();
  player->playerDidIteractedWithTargetUrl(std::nullopt);  // nowhere to go: nothing opens
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "willPresent"}));
  player->resolverDidDismissModal(*player->linkResolver());
  delegate->modal = false;
  linear->touchesEnded();
  player->resolverDidDismissModal(*player->linkResolver());
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "willPresent", "didDismiss"}));

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
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "willPresent"}));
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
  server.respond("/no-creative", {.body = "<VAST version=\"3.0\"><Ad><InLine/></Ad></VAST>"});
  server.respond("/no-ads", {.body = "<VAST version=\"3.0\"/>"});
  const std::pair<std::string, std::string> cases[] = {{"/no-creative", "fail:302"},
                                                       {"/no-ads", "fail:303"}};
  int fetches = 0;
  for (const auto& [path, event] : cases) {
    SCOPED_TRACE(path);
    auto releasing = std::make_shared<ReleasingDelegate>();
    releasing->owner = makePlayer(wrapperOf(server.url(path)));
    releasing->owner->setDelegate(releasing);
    auto probe = std::make_shared<test::DestructionProbe::Record>();
    releasing->owner->addSubview(test::DestructionProbe::create(probe));
    releasing->owner->play();
    ASSERT_TRUE(handler->waitForCompletedFetches(++fetches, std::chrono::seconds(10)));
    EXPECT_EQ(releasing->events, std::vector<std::string>{event});
    EXPECT_FALSE(releasing->onMainThread);
    ASSERT_TRUE(test::runMainQueueUntil([&] { return probe->destroyed.load(); }));
    EXPECT_TRUE(probe->onMainThread);
  }
}

}  // namespace
}  // namespace zorva
