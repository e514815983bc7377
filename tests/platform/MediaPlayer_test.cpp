// The media player stand-in, for what the linear player's own tests cannot show: the periodic time
// observer on the main queue's clock, end notifications per item, automatic playback to the end,
// and the fallback when a host's media or web engine factory makes nothing.
#include <gtest/gtest.h>

#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/NotificationCenter.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>
#include <zorva/platform/WebView.h>

#include "support/TestEnvironment.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;

struct Fixture {
  std::shared_ptr<PlayerItem> item;
  std::shared_ptr<Player> player;
  std::shared_ptr<HeadlessMediaEngine> engine;
  std::vector<double> times;

  explicit Fixture(bool automatic) {
    HeadlessMediaEngine::setAutomaticByDefault(automatic);
    item = PlayerItem::create(*URL::URLWithString("http://media/ad.mp4"));
    player = Player::create(item);
    engine = HeadlessMediaEngine::of(*item);
  }
  std::shared_ptr<Player::TimeObserver> observe() {
    return player->addPeriodicTimeObserverForInterval(
        MediaTime::make(1, 400), [this](const MediaTime& t) { times.push_back(t.seconds()); });
  }
};

// A loaded ad not yet on screen must not report progress, or its start would be tracked early.
TEST(Player, PeriodicObserverReportsFromTheStartOfPlayAtEveryInterval) {
  test::useVirtualClock();
  auto& queue = MainQueue::shared();
  Fixture f(false);
  f.observe();
  queue.advanceBy(milliseconds(100));
  EXPECT_TRUE(f.times.empty()) << "nothing is reported before playback starts";

  f.engine->setCurrentTime(5.2);
  f.player->play();
  queue.runUntilIdle();
  EXPECT_EQ(f.times, std::vector<double>{5.2});
  queue.advanceBy(milliseconds(10));
  EXPECT_EQ(f.times.size(), 5u);
  // Nanosecond values of an hour-long media do not overflow on the way to a duration.
  EXPECT_EQ(MediaTime::makeWithSeconds(3600.5, 1'000'000'000).duration(),
            std::chrono::milliseconds(3'600'500));
}

TEST(HeadlessMediaEngine, AutomaticMediaPlaysToItsEndOnceOnTheMainQueuesClock) {
  test::useVirtualClock();
  auto& queue = MainQueue::shared();
  HeadlessMediaEngine::setAutomaticDuration(20);
  Fixture f(true);
  f.observe();
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

}  // namespace
}  // namespace zorva::platform
