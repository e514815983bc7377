// The GStreamer engine on real media from the loopback server: what it reports and when, in real
// time, on the main thread; stalls from a source that dries up; silence after it is destroyed.
#include "zorva/engines/GStreamerMediaEngine.h"

#include <gtest/gtest.h>

#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "zorva-adserver/Media.h"

namespace zorva::platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Every report, with whether it came on the main thread.
class RecordingClient : public MediaEngineClient {
 public:
  void mediaEngineDidLoadDuration(const MediaTime& d) override {
    note("duration");
    duration = d;
  }
  void mediaEngineDidBecomeReady() override { note("ready"); }
  void mediaEngineDidLoadTimeRanges(const std::vector<TimeRange>& r) override {
    note("ranges");
    ranges.push_back(r);
  }
  void mediaEngineDidPlayToEnd() override { note("end"); }
  void mediaEngineDidStall() override { note("stall"); }
  void mediaEngineDidFail(const Error&) override { note("fail"); }

  std::size_t count(const std::string& name) const {
    return static_cast<std::size_t>(std::count(events.begin(), events.end(), name));
  }

  std::vector<std::string> events;
  bool allOnMainThread = true;
  MediaTime duration;
  std::vector<std::vector<TimeRange>> ranges;

 private:
  void note(std::string name) {
    allOnMainThread = allOnMainThread && MainQueue::shared().isCurrent();
    events.push_back(std::move(name));
  }
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

TEST_F(GStreamerMediaEngineTest, NothingIsReportedOnceTheEngineOrItsItemIsGone) {
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
}

// A screen asks for the frames: each rendered frame arrives converted, as the main thread is
// told; dropped mid-play, the engine stops its pipeline and nothing arrives afterwards.
TEST_F(GStreamerMediaEngineTest, FramesForAScreenArriveWhilePlayingAndStopWithTheEngine) {
  server.respond("/zorva.mp4", {.body = media, .contentType = "video/mp4"});
  auto engine = load("/zorva.mp4");
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

}  // namespace
}  // namespace zorva::platform
