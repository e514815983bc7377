// The headless media and web engines, for what the players' own tests cannot show: the periodic
// time observer on the main queue's clock, end notifications per item, automatic playback to the
// end, the web engine's turns and reports, and the fallback when a host's factory makes nothing.
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/NotificationCenter.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>
#include <zorva/platform/WebView.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/TestEnvironment.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;

// A player whose position is observed every 400th of a second.
struct Observed {
  std::shared_ptr<PlayerItem> item = PlayerItem::create(*URL::URLWithString("http://media/ad.mp4"));
  std::shared_ptr<Player> player = Player::create(item);
  std::shared_ptr<HeadlessMediaEngine> engine = HeadlessMediaEngine::of(*item);
  std::vector<double> times;
  std::shared_ptr<Player::TimeObserver> observer = player->addPeriodicTimeObserverForInterval(
      MediaTime::make(1, 400), [this](const MediaTime& t) { times.push_back(t.seconds()); });
};

// A loaded ad not yet on screen must not report progress, or its start would be tracked early.
TEST(Player, PeriodicObserverReportsFromTheStartOfPlayAtEveryIntervalAndAutomaticMediaEndsOnce) {
  test::useVirtualClock();
  auto& queue = MainQueue::shared();
  HeadlessMediaEngine::setAutomaticByDefault(false);
  {
    Observed f;
    queue.advanceBy(milliseconds(100));
    EXPECT_TRUE(f.times.empty()) << "nothing is reported before playback starts";
    f.engine->setCurrentTime(5.2);
    f.player->play();
    queue.runUntilIdle();
    EXPECT_EQ(f.times, std::vector<double>{5.2});
    queue.advanceBy(milliseconds(10));
    EXPECT_EQ(f.times.size(), 5u);
  }
  // Nanosecond values of an hour-long media do not overflow on the way to a duration.
  EXPECT_EQ(MediaTime::makeWithSeconds(3600.5, 1'000'000'000).duration(),
            std::chrono::milliseconds(3'600'500));

  // Automatic media plays to its end once, on the main queue's clock.
  HeadlessMediaEngine::setAutomaticByDefault(true);
  HeadlessMediaEngine::setAutomaticDuration(20);
  Observed f;
  int ends = 0;
  auto token = std::make_shared<int>();
  NotificationCenter::defaultCenter().addObserver(
      token, [&](const Notification&) { ++ends; }, kPlayerItemDidPlayToEndTimeNotification,
      f.item.get());
  f.player->play();  // before the media is ready: the position waits for it
  queue.advanceBy(std::chrono::seconds(19));
  EXPECT_EQ(ends, 0);
  queue.advanceBy(std::chrono::seconds(2));
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(f.times.back(), 20.0) << "playback stops with a report of the final position";
  const auto reports = f.times.size();
  // Nothing seeks back: playing an ended item does nothing.
  f.player->play();
  queue.advanceBy(std::chrono::seconds(1));
  EXPECT_EQ(f.times.size(), reports);
}

TEST(NotificationCenter, DeliversToLiveObserversOnlyAndEmptyEngineFactoriesFallBack) {
  auto& center = NotificationCenter::defaultCenter();
  auto sender = std::make_shared<int>(1);
  auto observer = std::make_shared<int>();
  auto gone = std::make_shared<int>();
  std::vector<std::string> seen;
  center.addObserver(
      observer, [&](const Notification& n) { seen.push_back(n.name); }, "N", sender.get());
  center.addObserver(
      gone, [&](const Notification&) { seen.push_back("gone"); }, "N", nullptr);
  gone.reset();

  center.postNotificationName("N", sender);
  center.postNotificationName("N", std::make_shared<int>(2));
  center.postNotificationName("M", sender);
  EXPECT_EQ(seen, std::vector<std::string>{"N"});

  // An engine factory that makes nothing falls back to the headless engine (the host's own
  // factories are exercised by the GStreamer and WebKit suites).
  MediaEngine::setFactory([](std::weak_ptr<MediaEngineClient>) { return nullptr; });
  EXPECT_TRUE(HeadlessMediaEngine::of(*PlayerItem::create(*URL::URLWithString("http://m/2.mp4"))));
  WebEngine::setFactory([](std::weak_ptr<WebEngineClient>, const WebViewConfiguration&) {
    return std::shared_ptr<WebEngine>();
  });
  EXPECT_TRUE(HeadlessWebEngine::of(*WebView::create(Rect(), WebViewConfiguration())));
}

// Writes down every report and allows every navigation.
class Recorder : public NavigationDelegate {
 public:
  void webViewDecidePolicyForNavigationAction(
      WebView&, const NavigationAction&,
      std::function<void(NavigationActionPolicy)> decide) override {
    events.push_back("policy");
    decide(NavigationActionPolicy::Allow);
  }
  void webViewDidCommitNavigation(WebView&, const std::shared_ptr<Navigation>&) override {
    events.push_back("commit");
  }
  void webViewDidFinishNavigation(WebView&, const std::shared_ptr<Navigation>&) override {
    events.push_back("finish");
  }
  void webViewDidFailProvisionalNavigation(WebView&, const std::shared_ptr<Navigation>&,
                                           const Error& e) override {
    events.push_back("provisional:" + std::to_string(e.code));
  }
  std::vector<std::string> events;
};

struct Page {
  Page() { webView->setNavigationDelegate(recorder); }
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<WebView> webView = WebView::create(Rect(0, 0, 320, 50), WebViewConfiguration());
  std::shared_ptr<HeadlessWebEngine> engine = HeadlessWebEngine::of(*webView);
};

// What every player test without a hand-driven engine relies on; the navigation's type and frame
// are checked by the players' navigation policies.
TEST(HeadlessWebEngine, AStringLoadAsksThePolicyThenFinishesOnALaterTurnAndADeadViewHearsNothing) {
  Page page;
  page.webView->loadHTMLString("<p>ad</p>", URL::URLWithString("http://a.b/"));
  EXPECT_TRUE(page.recorder->events.empty());  // nothing inside the load call
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(page.recorder->events, (std::vector<std::string>{"policy", "commit", "finish"}));

  // The HTML player's test that a page which never committed is not reported means something
  // only if the failure does reach the navigation delegate.
  HeadlessWebEngine::setAutomaticByDefault(false);
  Page byHand;
  byHand.webView->loadHTMLString("", std::nullopt);
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(byHand.engine->failProvisionalNavigation(Error("NSURLErrorDomain", -1009)));
  EXPECT_FALSE(byHand.engine->finishNavigation());  // already over
  EXPECT_EQ(byHand.recorder->events, (std::vector<std::string>{"policy", "provisional:-1009"}));

  // A dead web view reports nothing.
  Page dead;
  bool called = false;
  dead.webView->evaluateJavaScript(
      "navigator.userAgent", [&](std::optional<Value>, std::optional<Error>) { called = true; });
  dead.webView->loadHTMLString("<p/>", std::nullopt);
  std::weak_ptr<HeadlessWebEngine> engine = std::exchange(dead.engine, nullptr);
  dead.webView.reset();
  EXPECT_TRUE(engine.expired());
  EXPECT_EQ(HeadlessWebEngine::liveEngines().size(), 2u);  // the two pages before
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(dead.recorder->events.empty());
  EXPECT_FALSE(called);
}

}  // namespace
}  // namespace zorva::platform
