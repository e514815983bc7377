// The linear video player over a hand-driven headless media engine on the virtual clock.
#include <gtest/gtest.h>

#include <zorva/platform/Button.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Window.h>

#include "RecordingVastDelegate.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::HeadlessMediaEngine;
using platform::MainQueue;
using platform::TimeRange;
using test::RecordingVastDelegate;

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
  // Loads the standard linear ad and buffers it past half of `duration` seconds.
  void loadAndBuffer(double duration = 20) {
    player->load(test::firstAd(test::linearVast()));
    engine()->setDuration(duration);
    engine()->becomeReady();
    engine()->setLoadedTimeRanges({TimeRange::fromSeconds(0, duration)});
  }

  std::shared_ptr<ZVVastLinearAdPlayer> player = ZVVastLinearAdPlayer::create();
  std::shared_ptr<RecordingVastDelegate> delegate = std::make_shared<RecordingVastDelegate>();
};

// Without MP4 media the load fails with 403; an MP4 file without a usable URL stays silent. The
// media is loaded once: a second load only changes the ad. The video fills the view's bounds (not
// its frame), fitted inside, below a bar 4 points high whose top is 2 points above the bottom
// edge at any size.
TEST_F(LinearPlayerTest, OnlyAnMp4FileMakesAPlayerWhoseVideoLiesUnderAThinBar) {
  player->load(test::firstAd(test::linearVast("video/webm")));
  player->load(nullptr);
  player->load(test::firstAd(test::linearVast("video/mp4", "http://c", "not a url")));
  MainQueue::shared().advanceBy(std::chrono::seconds(5));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"fail:403", "fail:403"}));
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

TEST_F(LinearPlayerTest, LoadsOnceTheFirstBufferedRangeEndsPastHalfInSinglePrecision) {
  player->load(test::firstAd(test::linearVast()));
  engine()->setLoadedTimeRanges({TimeRange::fromSeconds(0, 25)});
  EXPECT_TRUE(delegate->events.empty()) << "no duration known yet: NaN never passes";
  engine()->setDuration(30);
  engine()->setLoadedTimeRanges({TimeRange::fromSeconds(10, 5.5), TimeRange::fromSeconds(20, 9)});
  EXPECT_EQ(delegate->events, std::vector<std::string>{"load"}) << "10 + 5.5 of 30 is past half";
  engine()->setLoadedTimeRanges({TimeRange::fromSeconds(0, 30)});
  EXPECT_EQ(delegate->events, std::vector<std::string>{"load"});

  struct Case {
    double duration, buffered;
    bool loads;
  };
  for (const auto [duration, buffered, loads] :
       {Case{30, 15.0, false}, Case{30, 15.1, true}, Case{0, 0, false}, Case{0, 0.5, true}}) {
    SCOPED_TRACE(std::to_string(buffered) + " of " + std::to_string(duration));
    player = ZVVastLinearAdPlayer::create();  // a fresh player for each case
    delegate = std::make_shared<RecordingVastDelegate>();
    player->setDelegate(delegate);
    player->load(test::firstAd(test::linearVast()));
    engine()->setDuration(duration);
    engine()->setLoadedTimeRanges({TimeRange::fromSeconds(0, buffered)});
    EXPECT_EQ(!delegate->events.empty(), loads);
    EXPECT_EQ(player->timeBoundryObserver() != nullptr, loads);
  }
}

TEST_F(LinearPlayerTest, ProgressIsReportedEvery400thSecondOnlyWhileTheItemIsReady) {
  player->load(test::firstAd(test::linearVast()));
  engine()->setDuration(20);
  engine()->setLoadedTimeRanges({TimeRange::fromSeconds(0, 20)});
  player->play();
  engine()->setCurrentTime(5);
  auto& queue = MainQueue::shared();
  queue.advanceBy(std::chrono::milliseconds(10));
  EXPECT_TRUE(delegate->progress.empty()) << "the item is not ready yet";

  engine()->becomeReady();
  queue.advanceBy(std::chrono::milliseconds(10));
  EXPECT_EQ(delegate->progress, std::vector<double>(4, 5.0));
  EXPECT_FLOAT_EQ(player->progressView()->progress(), 0.25f);

  engine()->fail(Error("decoder", 3));
  queue.advanceBy(std::chrono::milliseconds(10));
  EXPECT_EQ(delegate->progress.size(), 4u);
  // The status observation reports the failure; the registration under the error key never fires.
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "fail:405"}));
}

// Loading does not play; entering or leaving a window does. End and stall are reported, and no
// start ever.
TEST_F(LinearPlayerTest, AWindowChangePlaysAndEndAndStallAreReported) {
  loadAndBuffer();
  EXPECT_EQ(player->player()->rate(), 0.0f);
  auto window = platform::Window::create(platform::Rect(0, 0, 320, 480));
  window->addSubview(player);
  EXPECT_EQ(player->player()->rate(), 1.0f);
  player->player()->pause();
  player->removeFromSuperview();
  EXPECT_EQ(player->player()->rate(), 1.0f);
  engine()->stall();
  engine()->reachEnd();
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "fail:405", "end"}));
  EXPECT_EQ(delegate->progress.back(), 20.0) << "playback stops with a report at the end";
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
  loadAndBuffer();
  player->touchesEnded();
  EXPECT_EQ(delegate->events,
            (std::vector<std::string>{"click:(none)", "load", "click:http://click/through"}));
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

}  // namespace
}  // namespace zorva
