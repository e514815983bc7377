// The main queue, its real and virtual clocks, and the headless media and web engines on it, for
// what the players' own tests cannot show: the periodic time observer on the main queue's clock,
// end notifications per item, automatic playback to the end, the web engine's turns and reports,
// and the fallback when a host's factory makes nothing.
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/NotificationCenter.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>
#include <zorva/platform/WebView.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/TestEnvironment.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;

// A real-clock timer fires in runUntil, which otherwise gives up. Tasks posted from another thread
// run in order on the main thread, and stop ends run from there. On the virtual clock, the handles
// are dropped at once: the queue keeps its timers alive until they fire. An invalidated timer never
// runs and releases its action at once.
TEST(MainQueue, RealAndVirtualTimersFireInOrderOtherThreadsPostInOrderAndStopEndsRun) {
  auto& queue = MainQueue::shared();
  bool due = false;
  auto once = queue.scheduleTimer(milliseconds(20), [&] { due = true; });
  EXPECT_TRUE(test::runMainQueueUntil([&] { return due; }, milliseconds(2000)));
  EXPECT_FALSE(once->isValid());
  EXPECT_FALSE(test::runMainQueueUntil([] { return false; }, milliseconds(30)));
  // It gives up even when the queue is never idle.
  bool spin = true;
  std::function<void()> respin = [&] {
    if (spin) queue.post(respin);
  };
  queue.post(respin);
  EXPECT_FALSE(test::runMainQueueUntil([] { return false; }, milliseconds(30)));
  spin = false;
  queue.runUntilIdle();

  std::vector<int> order, expected(100);
  std::iota(expected.begin(), expected.end(), 0);
  std::atomic<int> offMain{0};
  std::thread poster([&] {
    for (int i : expected) {
      queue.post([&, i] {
        offMain += !queue.isCurrent();
        order.push_back(i);
      });
    }
    queue.stop();
  });
  queue.run();
  poster.join();
  queue.runUntilIdle();
  EXPECT_EQ(offMain.load(), 0);
  EXPECT_EQ(order, expected);

  auto clock = test::useVirtualClock();
  std::vector<std::string> fired;
  queue.scheduleTimer(seconds(30), [&] { fired.push_back("30"); });
  queue.scheduleTimer(seconds(10), [&] {
    fired.push_back("10");
    // A timer scheduled while firing counts from the fire date of the one that scheduled it.
    queue.scheduleTimer(seconds(15), [&] { fired.push_back("10+15"); });
  });
  auto owned = std::make_shared<int>(7);
  std::weak_ptr<int> watch = owned;
  auto invalidated = queue.scheduleTimer(seconds(1), [&fired, owned] { fired.push_back("1"); });
  owned.reset();
  invalidated->invalidate();
  EXPECT_TRUE(watch.expired());
  queue.runUntilIdle();
  EXPECT_TRUE(fired.empty());
  queue.advanceBy(seconds(29.999));
  EXPECT_EQ(fired, (std::vector<std::string>{"10", "10+15"}));
  queue.advanceBy(milliseconds(1));
  EXPECT_EQ(fired, (std::vector<std::string>{"10", "10+15", "30"}));

  // A repeating timer fires every interval until invalidated from its own action.
  std::vector<TimePoint> times;
  auto captured = std::make_shared<int>();
  std::shared_ptr<Timer> timer;
  timer = queue.scheduleRepeatingTimer(std::chrono::microseconds(2500), [&, captured] {
    times.push_back(queue.now());
    if (times.size() == 5) timer->invalidate();
  });
  const TimePoint start = queue.now();
  watch = captured;
  captured.reset();
  queue.advanceBy(milliseconds(10));
  ASSERT_EQ(times.size(), 4u);
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_EQ(times[i] - start, std::chrono::microseconds(2500) * static_cast<int>(i + 1));
  }
  queue.advanceBy(milliseconds(100));
  EXPECT_EQ(times.size(), 5u);
  EXPECT_FALSE(timer->isValid());
  EXPECT_TRUE(watch.expired());  // the action, released with the timer
  EXPECT_FALSE(queue.nextFireDate().has_value());

  // The clock jumps past twenty fire dates at once, as if the thread had been busy: one fire.
  int count = 0;
  auto busy = queue.scheduleRepeatingTimer(milliseconds(1), [&] { ++count; });
  const auto firstDate = busy->fireDate();
  clock->setNow(clock->now() + std::chrono::microseconds(20500));
  queue.runUntilIdle();
  EXPECT_EQ(count, 1);
  EXPECT_GT(busy->fireDate(), queue.now());
  EXPECT_EQ((busy->fireDate() - firstDate) % milliseconds(1), Duration::zero());
  busy->invalidate();
}

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
// An engine factory that makes nothing falls back to the headless engine (the host's own
// factories are exercised by the GStreamer and WebKit suites).
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

  // Notifications reach only live observers of their name and sender.
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
