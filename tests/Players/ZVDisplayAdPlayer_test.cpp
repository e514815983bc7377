// The display player and the HTML player under it, over hand-driven headless web engines; then
// the player builder's choice between the display and the VAST player.
#include "Players/ZVDisplayAdPlayer.h"

#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>
#include <zorva/platform/Window.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "Players/ZVPlayerBuilder.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/LoopbackServer.h"
#include "support/ObservingNetworkHandler.h"
#include "support/RecordingAdDelegate.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::HeadlessWebEngine;
using platform::MainQueue;
using platform::NavigationActionPolicy;
using platform::NavigationType;
using platform::seconds;
using Events = std::vector<std::string>;

platform::URLRequest requestFor(const char* url) {
  return platform::URLRequest(platform::URL::URLWithString(url));
}

// Lets a test look at the player while it hears of the load.
class RecordingPlayerDelegate : public test::RecordingAdDelegate {
 public:
  void playerDidLoad() override {
    RecordingAdDelegate::playerDidLoad();
    if (onLoad) onLoad();
  }
  std::function<void()> onLoad;
};

class ZVDisplayAdPlayerTest : public testing::Test {
 protected:
  void SetUp() override { platform::DeviceProfile::phone().makeKeyWindow(root); }

  // Plays the creative and, unless told not to, runs the work it queued.
  std::shared_ptr<ZVDisplayAdPlayer> play(Value creative, std::uint64_t sessionTime = 0,
                                          Value skadn = Value(), bool settle = true) {
    ZVPlayerConfig config;
    config.ad = std::make_shared<ZorvaAd>();
    config.ad->creative = std::move(creative);
    config.ad->skadn = std::move(skadn);
    auto player = ZVDisplayAdPlayer::create(config);
    if (sessionTime) player->setAdPlayTracker(ZVAdPlayTracker::create(sessionTime));
    player->setDelegate(delegate);
    player->play();
    if (settle) MainQueue::shared().runUntilIdle();
    return player;
  }
  static HeadlessWebEngine& engineOf(const ZVDisplayAdPlayer& player) {
    return *HeadlessWebEngine::of(*player.htmlPlayer()->contenView());
  }
  std::shared_ptr<platform::SafariViewController> browser() const {
    return std::dynamic_pointer_cast<platform::SafariViewController>(
        root->presentedViewController());
  }

  std::shared_ptr<platform::ViewController> root = platform::ViewController::create();
  std::shared_ptr<RecordingPlayerDelegate> delegate = std::make_shared<RecordingPlayerDelegate>();
};

// Navigations are followed while the creative loads, form, history and reload ones after it; a
// tap or any other navigation after the load is one click, resolved once, and the ad stays.
TEST_F(ZVDisplayAdPlayerTest, AfterTheLoadATapOrAnyOtherNavigationIsOneClickAndTheAdStays) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  auto player = play("<iframe src='https://cdn.example/frame'></iframe>");
  auto& engine = engineOf(*player);
  EXPECT_EQ(engine.navigate(requestFor("https://cdn.example/redirect"), NavigationType::Other),
            NavigationActionPolicy::Allow);
  ASSERT_TRUE(engine.finishNavigation());
  for (auto type : {NavigationType::FormSubmitted, NavigationType::BackForward,
                    NavigationType::Reload, NavigationType::FormResubmitted}) {
    EXPECT_EQ(engine.navigate(requestFor("https://advertiser.example/form"), type),
              NavigationActionPolicy::Allow);
  }
  EXPECT_EQ(root->presentedViewController(), nullptr);
  ASSERT_TRUE(engine.finishNavigation());
  EXPECT_EQ(engine.navigate(requestFor("https://advertiser.example/auto"), NavigationType::Other),
            NavigationActionPolicy::Cancel);
  ASSERT_TRUE(browser());
  EXPECT_EQ(browser()->url().absoluteString(), "https://advertiser.example/auto");
  browser()->finish();
  delegate->modal = false;  // a delegate without the modal reports is not sent them
  EXPECT_EQ(engine.clickLink(requestFor("https://advertiser.example/")),
            NavigationActionPolicy::Cancel);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(engine.request()->url->absoluteString(), "https://advertiser.example/form");
  ASSERT_TRUE(browser());
  EXPECT_EQ(browser()->url().absoluteString(), "https://advertiser.example/");
  EXPECT_EQ(browser()->presentedViewController(), nullptr);  // resolved once
  browser()->finish();
  EXPECT_EQ(delegate->events, (Events{"load", "load", "willPresent", "didDismiss"}));

  // The bid's attribution goes with the click: enough of it opens the store sheet.
  auto attributed =
      play("<p>ad</p>", 0, {{"itunesitem", "880047117"}, {"network", "x.skadnetwork"}});
  engineOf(*attributed).clickLink(requestFor("https://advertiser.example/"));
  EXPECT_TRUE(std::dynamic_pointer_cast<platform::StoreProductViewController>(
      root->presentedViewController()));
}

TEST_F(ZVDisplayAdPlayerTest, TheSessionEndsNSecondsAfterEachFinishedLoadOnItsTrackersTimer) {
  test::useVirtualClock();
  std::shared_ptr<ZVDisplayAdPlayer> player;
  // The session timer is already running when the delegate hears of the load.
  delegate->onLoad = [&] {
    ASSERT_TRUE(player && player->adPlayTracker()->timer());
    EXPECT_TRUE(player->adPlayTracker()->timer()->isValid());
  };
  HeadlessWebEngine::setAutomaticByDefault(false);
  player = play("<p>ad</p>", 30);
  ASSERT_TRUE(engineOf(*player).finishNavigation());
  MainQueue::shared().advanceBy(seconds(29.9));
  EXPECT_EQ(delegate->events, (Events{"load"}));
  MainQueue::shared().advanceBy(seconds(0.1));
  EXPECT_EQ(delegate->events, (Events{"load", "end"}));

  const auto reload = [&] {
    player->play();
    MainQueue::shared().runUntilIdle();
    ASSERT_TRUE(engineOf(*player).finishNavigation());
  };
  reload();
  MainQueue::shared().advanceBy(seconds(30));
  EXPECT_EQ(delegate->events, (Events{"load", "end", "load", "end"}));

  // A released player's pending session timer is cancelled.
  reload();
  std::weak_ptr<ZVAdPlayTracker> watch = player->adPlayTracker();
  std::weak_ptr<ZVDisplayAdPlayer> released = player;
  player.reset();
  EXPECT_TRUE(released.expired());
  EXPECT_TRUE(watch.expired());
  EXPECT_FALSE(MainQueue::shared().nextFireDate());
  MainQueue::shared().advanceBy(seconds(60));
  EXPECT_EQ(delegate->events, (Events{"load", "end", "load", "end", "load"}));

  // A tracker alone: a replaced timer still fires and runs the newer callback, and a pending
  // timer keeps its tracker alive after its owner lets go.
  auto tracker = ZVAdPlayTracker::create(30);
  std::vector<std::string> runs;
  tracker->trackCompletion([&] { runs.push_back("first"); });
  MainQueue::shared().advanceBy(seconds(10));
  tracker->trackCompletion([&] { runs.push_back("second"); });
  watch = std::exchange(tracker, nullptr);
  MainQueue::shared().advanceBy(seconds(20));  // the first timer, due at 30 s
  EXPECT_EQ(runs, (std::vector<std::string>{"second"}));
  MainQueue::shared().advanceBy(seconds(10));  // the second, due at 40 s
  EXPECT_EQ(runs, (std::vector<std::string>{"second", "second"}));
  EXPECT_TRUE(watch.expired());

  // The longest session time means practically never.
  auto longest = ZVAdPlayTracker::create(std::numeric_limits<std::uint64_t>::max());
  longest->trackCompletion([&] { runs.push_back("longest"); });
  MainQueue::shared().advanceBy(std::chrono::hours(24 * 365 * 100));
  EXPECT_EQ(runs.size(), 2u);
}

// A web address loads as a request, anything else (a capitalised scheme too) into the ad page,
// empty without an ad or creative; without a session tracker the load is the only report. Only
// a failure after the commit is reported; a creative that is not text fails on a later turn. A
// new window opens in the ad's own view, a main frame's request is none. Without a delegate the
// HTML player follows nothing; dialogs are answered at once.
TEST_F(ZVDisplayAdPlayerTest,
       ACreativeLoadsAsAnAddressOrInTheAdPageAndOnlyFailuresAfterTheCommitAreReported) {
  test::useVirtualClock();
  auto address = play("https://ads.example.com/creative?id=7");
  ASSERT_TRUE(engineOf(*address).request() && engineOf(*address).request()->url);
  EXPECT_EQ(engineOf(*address).request()->url->absoluteString(),
            "https://ads.example.com/creative?id=7");
  EXPECT_FALSE(engineOf(*address).html());
  for (const std::string creative : {"HTTPS://ads.example.com/x", "", "<a href='x'>%@ go</a>"}) {
    const auto player = play(creative);
    auto& engine = engineOf(*player);
    ASSERT_TRUE(engine.html());
    EXPECT_NE(engine.html()->find("<div align=\"center\">" + creative + "</div></body>"),
              std::string::npos);
    EXPECT_EQ(engine.baseURL(), ZVHTMLPlayer::creativeBaseURL());
  }
  auto nullCreative = play(nullptr);
  auto noAd = ZVDisplayAdPlayer::create(ZVPlayerConfig());
  noAd->setDelegate(delegate);
  noAd->play();
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(engineOf(*nullCreative).html(), ZVHTMLPlayer::pageForCreative(""));
  EXPECT_EQ(engineOf(*noAd).html(), ZVHTMLPlayer::pageForCreative(""));
  MainQueue::shared().advanceBy(seconds(3600));
  EXPECT_EQ(delegate->events, Events(6, "load"));

  delegate->events.clear();
  HeadlessWebEngine::setAutomaticByDefault(false);
  auto page = play("<p>ad</p>");
  ASSERT_TRUE(engineOf(*page).failProvisionalNavigation(
      Error::withDescription("NSURLErrorDomain", -1003, "host not found")));
  EXPECT_FALSE(page->htmlPlayer()->loadingFinished());
  page->play();
  MainQueue::shared().runUntilIdle();
  ASSERT_TRUE(engineOf(*page).failNavigation(Error("WebKitErrorDomain", 102)));
  EXPECT_TRUE(page->htmlPlayer()->loadingFinished());
  EXPECT_FALSE(engineOf(*play(Value({{"html", "<p>"}}))).request());
  play(Value(42), 0, Value(), false);  // and let go of at once
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(delegate->events, (Events{"fail:102", "fail:2"}));

  auto player = play("<p>ad</p>");
  auto& engine = engineOf(*player);
  const auto engines = HeadlessWebEngine::liveEngines().size();
  EXPECT_EQ(engine.openNewWindow(requestFor("https://popup.example/"), NavigationType::Other),
            NavigationActionPolicy::Allow);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(HeadlessWebEngine::liveEngines().size(), engines);
  EXPECT_EQ(engine.request()->url->absoluteString(), "https://popup.example/");
  const platform::NavigationAction mainFrame{requestFor("https://main.example/"),
                                             NavigationType::Other, platform::FrameInfo{}};
  EXPECT_EQ(player->htmlPlayer()->webViewCreateWebViewWithConfiguration(
                *player->htmlPlayer()->contenView(), {}, mainFrame, platform::WindowFeatures{}),
            nullptr);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(engine.request()->url->absoluteString(), "https://popup.example/");

  player->htmlPlayer()->setDelegate(std::weak_ptr<ZVHTMLPlayerDelegate>());
  EXPECT_EQ(engine.navigate(requestFor("https://form.example/"), NavigationType::FormSubmitted),
            NavigationActionPolicy::Cancel);
  EXPECT_TRUE(engine.runJavaScriptAlert("hi"));
  EXPECT_EQ(engine.runJavaScriptConfirm("sure?"), std::optional<bool>(false));
  EXPECT_EQ(engine.runJavaScriptPrompt("name?", "Ann"),
            std::make_optional(std::optional<std::string>()));
}

std::shared_ptr<ZVAdPlaying> build(bool video, std::uint64_t sessionTime, Value creative,
                                   const std::shared_ptr<ZVAdPlayerDelegate>& delegate) {
  auto config = std::make_shared<ZVPlayerConfig>();
  config->isExpectingVideoAd = video;
  config->sessionTime = sessionTime;
  config->ad = std::make_shared<ZorvaAd>();
  config->ad->creative = std::move(creative);
  auto builder = ZVPlayerBuilder::create();
  builder->setConfig(config);
  return builder->build(delegate);
}

// The video flag alone chooses the player, and only a display player gets a session tracker. A
// video ad whose first ad is an empty Wrapper plays its InLine linear ad to the end, each
// progress point handed over, and the completion once more at the end.
TEST(ZVPlayerBuilder, TheVideoFlagChoosesThePlayerAndAnInLineAdAfterAnEmptyWrapperPlaysToItsEnd) {
  test::useVirtualClock();
  auto handler = test::ObservingNetworkHandler::install();
  auto delegate = std::make_shared<test::RecordingAdDelegate>();
  auto display =
      std::dynamic_pointer_cast<ZVDisplayAdPlayer>(build(false, 0, test::linearVast(), delegate));
  ASSERT_TRUE(display);
  EXPECT_FALSE(display->adPlayTracker());
  EXPECT_EQ(display->delegate(), delegate);
  display = std::dynamic_pointer_cast<ZVDisplayAdPlayer>(build(false, 30, "<p>ad</p>", delegate));
  ASSERT_TRUE(display && display->adPlayTracker());
  EXPECT_EQ(display->adPlayTracker()->sessionTime(), 30u);

  test::LoopbackServer server;
  server.respond("/empty", {.body = R"(<VAST version="3.0"/>)", .contentType = "text/xml"});
  const std::string vast =
      R"(<VAST version="3.0"><Ad id="w"><Wrapper><AdSystem>S</AdSystem><VASTAdTagURI>)" +
      server.url("/empty") + R"(</VASTAdTagURI></Wrapper></Ad>)" +
      test::linearVast().substr(std::string(R"(<VAST version="3.0">)").size());
  auto player = std::dynamic_pointer_cast<ZVVastPlayer>(build(true, 30, vast, delegate));
  ASSERT_TRUE(player);
  auto window = platform::Window::create(platform::Rect(0, 0, 320, 480));
  window->addSubview(player->playerView());
  player->play();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return !delegate->events.empty(); }));

  auto linear = std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(player->vastAdPlayer());
  ASSERT_TRUE(linear);
  EXPECT_EQ(platform::HeadlessMediaEngine::of(*linear->playerItem())->url()->absoluteString(),
            "http://media/ad.mp4");
  platform::MainQueue::shared().advanceBy(std::chrono::seconds(16));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "end"}));
  std::vector<std::vector<std::string>> handedOver;
  for (const char* event : test::kProgressEvents) {
    handedOver.push_back({"http://track/" + std::string(event)});
  }
  handedOver.push_back(handedOver.back());
  EXPECT_EQ(handler->handedOverUrls(), handedOver);
  EXPECT_EQ(server.requests().size(), 1u);
}

}  // namespace
}  // namespace zorva
