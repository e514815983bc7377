// The GStreamer engine on real media from the loopback server: what it reports and when, in real
// time, on the main thread; stalls from a source that dries up; silence after it is destroyed.
// Then a VAST linear ad decoded by it end to end: the tracking the VAST player does from real
// progress, and the 405 path for media that cannot be played.
#include "zorva/engines/GStreamerMediaEngine.h"

#include <gtest/gtest.h>

#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>
#include <zorva/platform/Window.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "Common/ZorvaAd.h"
#include "Players/ZVPlayerConfig.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/LoopbackServer.h"
#include "support/ObservingNetworkHandler.h"
#include "support/RecordingAdDelegate.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"
#include "zorva-adserver/Media.h"

namespace zorva::platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Every report, with whether it came on the main thread.
class RecordingClient : public MediaEngineClient {
 public:
  void mediaEngineDidLoadDuration(const MediaTime& d) override {
    duration = d;
    note("duration");
  }
  void mediaEngineDidBecomeReady() override { note("ready"); }
  void mediaEngineDidLoadTimeRanges(const std::vector<TimeRange>& r) override {
    ranges.push_back(r);
    note("ranges");
  }
  void mediaEngineDidPlayToEnd() override { note("end"); }
  void mediaEngineDidStall() override { note("stall"); }
  void mediaEngineDidFail(const Error&) override { note("fail"); }
  std::size_t count(const std::string& name) const {
    return static_cast<std::size_t>(std::count(events.begin(), events.end(), name));
  }
  void note(std::string name) {
    allOnMainThread = allOnMainThread && MainQueue::shared().isCurrent();
    events.push_back(std::move(name));
  }

  std::vector<std::string> events;
  bool allOnMainThread = true;
  MediaTime duration;
  std::vector<std::vector<TimeRange>> ranges;
};

class GStreamerMediaEngineTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(GStreamerMediaEngine::install(&whyNot)) << whyNot;
    media = std::string(tools::media::zorvaMp4());
  }
  std::shared_ptr<GStreamerMediaEngine> load(const std::string& path) {
    auto engine = GStreamerMediaEngine::create(client);
    engine->load(*URL::URLWithString(server.url(path)));
    return engine;
  }
  bool waitFor(const std::string& event, std::chrono::milliseconds timeout = 10s) {
    return test::runMainQueueUntil([&] { return client->count(event) > 0; }, timeout);
  }

  test::LoopbackServer server;
  std::string media;
  std::shared_ptr<RecordingClient> client = std::make_shared<RecordingClient>();
};

TEST_F(GStreamerMediaEngineTest, PlaysTheMp4FromReadyToTheEndWithoutAFalseStall) {
  server.respond("/ad.mp4", {.body = media, .contentType = "video/mp4"});
  auto engine = load("/ad.mp4");
  ASSERT_TRUE(waitFor("ready"));
  EXPECT_NEAR(client->duration.seconds(), 4.0, 0.05);
  // Buffering grows to the whole media; nothing plays before `play`.
  ASSERT_TRUE(test::runMainQueueUntil([&] {
    return !client->ranges.empty() && client->ranges.back().at(0).duration == client->duration;
  }));
  EXPECT_EQ(engine->currentTime(), MediaTime::make(0, 1'000'000'000));

  engine->play();
  std::vector<double> positions;
  ASSERT_TRUE(test::runMainQueueUntil([&] {
    positions.push_back(engine->currentTime().seconds());
    return client->count("end") > 0;
  }));
  // The position never runs back (the VAST playback test follows it through the quartiles).
  EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end()));

  // Past the end the position stands still: that is no stall.
  EXPECT_FALSE(test::runMainQueueUntil([&] { return client->count("stall") > 0; },
                                       GStreamerMediaEngine::kStallThreshold + 300ms));
  // Buffering may grow in steps: one "ranges" per step.
  auto events = client->events;
  events.erase(std::unique(events.begin(), events.end()), events.end());
  EXPECT_EQ(events, (std::vector<std::string>{"duration", "ready", "ranges", "end"}));
  EXPECT_TRUE(client->allOnMainThread);
}

TEST_F(GStreamerMediaEngineTest, ASourceThatDriesUpMidwayStallsOnceAndNeverEnds) {
  server.respond("/ad.mp4",
                 {.body = media, .contentType = "video/mp4", .holdAfterBytes = media.size() / 2});
  auto engine = load("/ad.mp4");
  ASSERT_TRUE(waitFor("ready"));
  engine->play();
  const auto started = Clock::now();
  ASSERT_TRUE(waitFor("stall", 10s));
  // It played part of the media first, and the stall came after the position stood still.
  EXPECT_GT(engine->currentTime().seconds(), 0.5);
  EXPECT_LT(engine->currentTime().seconds(), 3.5);
  EXPECT_GT(Clock::now() - started, GStreamerMediaEngine::kStallThreshold);
  EXPECT_EQ(client->count("stall"), 1u);
  EXPECT_EQ(client->count("end"), 0u);
  // The download buffer holds what was sent: about half, reported as it grows (in as many steps
  // as a busy machine takes to receive it), not on every poll.
  ASSERT_FALSE(client->ranges.empty());
  EXPECT_NEAR(client->ranges.back().at(0).duration.seconds(), 2.0, 0.3);
  EXPECT_EQ(std::adjacent_find(client->ranges.begin(), client->ranges.end()), client->ranges.end());
  EXPECT_TRUE(client->allOnMainThread);
}

// Nothing is reported once the engine or its item is gone. A screen asks for the frames: each
// rendered frame arrives converted, as the main thread is told; dropped mid-play, the engine stops
// its pipeline and nothing arrives afterwards.
TEST_F(GStreamerMediaEngineTest, NothingIsReportedOnceTheEngineOrItsItemIsGoneNorFramesArrive) {
  // Answers late, so both loads are still in flight when they are dropped.
  server.respond("/slow.mp4", {.body = media, .contentType = "video/mp4", .delay = 300ms});
  auto engine = load("/slow.mp4");
  ASSERT_TRUE(server.waitForRequests(1, 5s));
  engine.reset();

  auto item = PlayerItem::create(*URL::URLWithString(server.url("/slow.mp4")));
  ASSERT_TRUE(std::dynamic_pointer_cast<GStreamerMediaEngine>(item->engine()));
  auto player = Player::create(item);
  player->play();
  ASSERT_TRUE(server.waitForRequests(2, 5s));
  std::weak_ptr<PlayerItem> weakItem = item;
  player.reset();
  item.reset();
  EXPECT_TRUE(weakItem.expired());

  // Long enough for the answers to arrive and for a live pipeline to preroll them.
  EXPECT_FALSE(test::runMainQueueUntil([&] { return !client->events.empty(); }, 1500ms));

  server.respond("/zorva.mp4", {.body = media, .contentType = "video/mp4"});
  engine = load("/zorva.mp4");
  auto told = std::make_shared<int>(0);
  auto frames = engine->showVideo([told] { ++*told; });
  ASSERT_TRUE(waitFor("ready"));
  engine->play();
  // Frames keep arriving, however many a busy machine drops.
  ASSERT_TRUE(test::runMainQueueUntil([&] { return frames->framesReceived() > 0; }, 10s));
  const auto first = frames->framesReceived();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return frames->framesReceived() > first; }, 10s));
  int width = 0, height = 0;
  EXPECT_TRUE(frames->withLatestFrame([&](const unsigned char*, int w, int h, int) {
    width = w;
    height = h;
  }));
  EXPECT_EQ(std::pair(width, height), std::pair(160, 90));
  EXPECT_GT(*told, 0);

  engine.reset();
  const auto received = frames->framesReceived();
  const int toldBefore = *told;
  test::runMainQueueUntil([] { return false; }, 500ms);
  EXPECT_EQ(frames->framesReceived(), received);
  EXPECT_EQ(*told, toldBefore);
}

class GStreamerVastPlaybackTest : public GStreamerMediaEngineTest {
 protected:
  void SetUp() override {
    GStreamerMediaEngineTest::SetUp();
    handler = test::ObservingNetworkHandler::install();
  }

  // Plays the ad of `mediaPath` in a window until the delegate hears an end or a failure.
  void playUntilDone(const std::string& mediaPath) {
    ZVPlayerConfig config;
    config.isExpectingVideoAd = true;
    config.ad = std::make_shared<ZorvaAd>();
    config.ad->creative = test::linearVast("video/mp4", std::nullopt, server.url(mediaPath));
    player = ZVVastPlayer::create(config);
    player->setDelegate(delegate);
    window->addSubview(player);
    player->play();
    std::size_t seen = 0;
    ASSERT_TRUE(test::runMainQueueUntil(
        [&] {
          const auto lists = handler->handedOverUrls();
          for (; seen < lists.size(); ++seen) {
            if (lists[seen].empty()) continue;
            const auto playing =
                std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(player->vastAdPlayer());
            handedOver.emplace_back(lists[seen].front(),
                                    playing ? playing->player()->currentTime().seconds() : -1);
          }
          return std::any_of(delegate->events.begin(), delegate->events.end(),
                             [](auto& e) { return e == "end" || e.starts_with("fail"); });
        },
        15s));
    linear = std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(player->vastAdPlayer());
    ASSERT_TRUE(linear);
  }

  std::shared_ptr<test::ObservingNetworkHandler> handler;
  std::shared_ptr<test::RecordingAdDelegate> delegate =
      std::make_shared<test::RecordingAdDelegate>();
  std::shared_ptr<Window> window = Window::create({0, 0, 320, 480});
  std::shared_ptr<ZVVastPlayer> player;
  std::shared_ptr<ZVVastLinearAdPlayer> linear;
  // The first address of each list handed over, and the media position when it was seen.
  std::vector<std::pair<std::string, double>> handedOver;
};

TEST_F(GStreamerVastPlaybackTest, TheAdPlaysToTheEndFiringEachProgressEventInOrderOrEndsInA405) {
  server.respond("/media/zorva.mp4", {.body = media, .contentType = "video/mp4"});
  const auto started = std::chrono::steady_clock::now();
  playUntilDone("/media/zorva.mp4");

  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "end"}));
  EXPECT_GT(std::chrono::steady_clock::now() - started, 3500ms);  // real playback, not a jump
  EXPECT_NEAR(linear->mediaDuration(), 4.0, 0.05);
  // Each progress event at its media time, never before it and before the next point however late
  // a busy machine runs the reports; "complete" once from a progress report at the end of the
  // media and once more from the end itself. Reports after the last point hand over empty lists.
  const std::vector<std::pair<std::string, double>> expected{{"start", 0},    {"firstQuartile", 1},
                                                             {"midpoint", 2}, {"thirdQuartile", 3},
                                                             {"complete", 4}, {"complete", 4}};
  ASSERT_EQ(handedOver.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(handedOver[i].first, "http://track/" + expected[i].first);
    EXPECT_GE(handedOver[i].second, expected[i].second - 0.05) << expected[i].first;
    EXPECT_LT(handedOver[i].second, expected[i].second + 1) << expected[i].first;
  }
  EXPECT_FLOAT_EQ(linear->progressView()->progress(), 1.0f);

  std::string noise(16 * 1024, '\0');
  std::mt19937 random(10);
  std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
  server.respond("/corrupt.mp4", {.body = noise, .contentType = "video/mp4"});

  for (const auto& [path, domain] : {std::pair{"/missing.mp4", "gst-resource-error-quark"},
                                     std::pair{"/corrupt.mp4", "gst-stream-error-quark"}}) {
    SCOPED_TRACE(path);
    delegate->events.clear();
    playUntilDone(path);
    EXPECT_EQ(delegate->events, std::vector<std::string>{"fail:405"});
    ASSERT_TRUE(linear->playerItem()->error());
    EXPECT_EQ(linear->playerItem()->error()->domain, domain);
    EXPECT_EQ(handler->handedOverUrls().back(),
              std::vector<std::string>{"http://err/inline?code=405"});
  }
}

}  // namespace
}  // namespace zorva::platform
