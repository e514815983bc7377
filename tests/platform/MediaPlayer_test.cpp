// The media player stand-in: item status and buffering through key-value observation, the
// periodic time observer on the main queue's clock, notifications, and the headless engine in
// both modes.
#include <gtest/gtest.h>

#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/NotificationCenter.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>

#include "support/TestEnvironment.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;

class RecordingObserver : public KeyValueObserver {
 public:
  void observeValueForKeyPath(const std::string& keyPath,
                              const std::shared_ptr<PlayerItem>& object) override {
    reports.push_back(keyPath + ":" + std::to_string(static_cast<long>(object->status())));
  }
  std::vector<std::string> reports;
};

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

TEST(MediaTime, SecondsOfInvalidAndIndefiniteTimesAreNaN) {
  EXPECT_DOUBLE_EQ(MediaTime::make(1, 400).seconds(), 0.0025);
  EXPECT_EQ(MediaTime::make(1, 400).duration(), std::chrono::microseconds(2500));
  EXPECT_TRUE(std::isnan(MediaTime::invalid().seconds()));
  EXPECT_TRUE(std::isnan(MediaTime::indefiniteTime().seconds()));
  // Nanosecond values of an hour-long media do not overflow on the way to a duration.
  EXPECT_EQ(MediaTime::makeWithSeconds(3600.5, 1'000'000'000).duration(),
            std::chrono::milliseconds(3'600'500));
}

TEST(PlayerItem, StatusAndBufferingAreObservedAfterTheValueChanged) {
  Fixture f(false);
  auto observer = std::make_shared<RecordingObserver>();
  f.item->addObserver(observer, "status");
  f.item->addObserver(observer, "loadedTimeRanges");
  EXPECT_EQ(f.engine->url()->absoluteString(), "http://media/ad.mp4");
  EXPECT_TRUE(std::isnan(f.item->asset()->duration().seconds()));

  f.engine->setDuration(30);
  EXPECT_EQ(f.item->duration().seconds(), 30.0);
  f.engine->becomeReady();
  f.engine->becomeReady();
  f.engine->setLoadedTimeRanges({TimeRange::fromSeconds(0, 12)});
  ASSERT_EQ(f.item->loadedTimeRanges().size(), 1u);
  EXPECT_EQ(f.item->loadedTimeRanges()[0].duration.seconds(), 12.0);
  f.item->removeObserver(observer.get(), "loadedTimeRanges");
  f.engine->setLoadedTimeRanges({TimeRange::fromSeconds(0, 20)});
  f.engine->fail(Error("decoder", 7));
  EXPECT_EQ(observer->reports,
            (std::vector<std::string>{"status:1", "loadedTimeRanges:1", "status:2"}));
  EXPECT_EQ(f.item->error(), Error("decoder", 7));
}

TEST(Player, PeriodicObserverReportsAtStartEveryIntervalWhilePlayingAndAtStop) {
  test::useVirtualClock();
  auto& queue = MainQueue::shared();
  Fixture f(false);
  auto token = f.observe();
  queue.advanceBy(milliseconds(100));
  EXPECT_TRUE(f.times.empty()) << "nothing is reported before playback starts";

  f.engine->setCurrentTime(5.2);
  f.player->play();
  EXPECT_EQ(f.player->rate(), 1.0f);
  queue.runUntilIdle();
  EXPECT_EQ(f.times, std::vector<double>{5.2});
  queue.advanceBy(milliseconds(10));
  EXPECT_EQ(f.times.size(), 5u);
  // The manual engine's position moves only when driven.
  f.engine->advancePlayTime(0.2);
  queue.advanceBy(std::chrono::microseconds(2500));
  EXPECT_DOUBLE_EQ(f.times.back(), 5.4);

  f.player->pause();
  queue.advanceBy(milliseconds(100));
  EXPECT_EQ(f.times.size(), 7u) << "one report at the stop, then none";
  EXPECT_EQ(f.player->rate(), 0.0f);

  f.player->removeTimeObserver(token);
  f.player->play();
  queue.advanceBy(milliseconds(100));
  EXPECT_EQ(f.times.size(), 7u);
}

TEST(HeadlessMediaEngine, AutomaticMediaPlaysToItsEndOnTheMainQueuesClock) {
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
  queue.advanceBy(milliseconds(1));
  EXPECT_EQ(f.item->status(), PlayerItemStatus::ReadyToPlay);
  ASSERT_EQ(f.item->loadedTimeRanges().size(), 1u);
  EXPECT_EQ(f.item->loadedTimeRanges()[0].start.seconds(), 0.0);
  EXPECT_EQ(f.item->loadedTimeRanges()[0].duration.seconds(), 20.0);

  queue.advanceBy(std::chrono::seconds(10));
  EXPECT_NEAR(f.player->currentTime().seconds(), 10.0, 0.0011);
  EXPECT_EQ(ends, 0);
  queue.advanceBy(std::chrono::seconds(11));
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(f.player->rate(), 0.0f);
  EXPECT_EQ(f.times.back(), 20.0) << "the last report is the final position";
  EXPECT_GT(f.times.size(), 7990u);
  const auto reports = f.times.size();

  // Nothing seeks back: playing an ended item does nothing.
  f.player->play();
  queue.advanceBy(std::chrono::seconds(1));
  EXPECT_EQ(f.player->rate(), 0.0f);
  EXPECT_EQ(f.times.size(), reports);
  EXPECT_EQ(ends, 1);
}

TEST(NotificationCenter, DeliversByNameAndSenderToLiveObserversOnly) {
  auto& center = NotificationCenter::defaultCenter();
  auto sender = std::make_shared<int>(1);
  auto other = std::make_shared<int>(2);
  auto observer = std::make_shared<int>();
  auto gone = std::make_shared<int>();
  std::vector<std::string> seen;
  center.addObserver(
      observer, [&](const Notification& n) { seen.push_back("named:" + n.name); }, "N",
      sender.get());
  center.addObserver(
      observer, [&](const Notification& n) { seen.push_back("any:" + n.name); }, std::nullopt,
      nullptr);
  center.addObserver(
      gone, [&](const Notification&) { seen.push_back("gone"); }, "N", nullptr);
  gone.reset();

  center.postNotificationName("N", sender);
  center.postNotificationName("N", other);
  center.postNotificationName("M", sender);
  EXPECT_EQ(seen, (std::vector<std::string>{"named:N", "any:N", "any:N", "any:M"}));

  seen.clear();
  center.removeObserver(observer.get(), "N", nullptr);
  center.postNotificationName("N", sender);
  EXPECT_EQ(seen, std::vector<std::string>{"any:N"});
  center.removeObserver(observer.get());
  center.postNotificationName("N", sender);
  EXPECT_EQ(seen.size(), 1u);
}

class FixedEngine : public MediaEngine {
 public:
  void load(const URL& u) override { url = u.absoluteString(); }
  void play() override {}
  void pause() override {}
  MediaTime currentTime() const override { return MediaTime::make(7, 1); }
  std::string url;
};

TEST(MediaEngine, TheHostsFactoryMakesTheEnginesAndAnEmptyAnswerFallsBackToHeadless) {
  std::shared_ptr<FixedEngine> made;
  MediaEngine::setFactory([&](std::weak_ptr<MediaEngineClient>) {
    made = std::make_shared<FixedEngine>();
    return made;
  });
  auto item = PlayerItem::create(*URL::URLWithString("http://m/1.mp4"));
  EXPECT_EQ(item->engine(), made);
  EXPECT_EQ(made->url, "http://m/1.mp4");
  EXPECT_EQ(Player::create(item)->currentTime().seconds(), 7.0);

  MediaEngine::setFactory([](std::weak_ptr<MediaEngineClient>) { return nullptr; });
  auto fallback = PlayerItem::create(*URL::URLWithString("http://m/2.mp4"));
  EXPECT_TRUE(HeadlessMediaEngine::of(*fallback));
}

}  // namespace
}  // namespace zorva::platform
