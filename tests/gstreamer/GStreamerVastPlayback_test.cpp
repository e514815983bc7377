// A VAST linear ad decoded by GStreamer end to end: the markup's media comes from the loopback
// server and plays in real time; the tracking the VAST player does from real progress, and the
// 405 path for media that cannot be played.
#include <gtest/gtest.h>

#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Window.h>

#include <algorithm>
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
#include "zorva/engines/GStreamerMediaEngine.h"

namespace zorva {
namespace {

using namespace std::chrono_literals;

using test::RecordingAdDelegate;

class GStreamerVastPlaybackTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(platform::GStreamerMediaEngine::install(&whyNot)) << whyNot;
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

  test::LoopbackServer server;
  std::shared_ptr<test::ObservingNetworkHandler> handler;
  std::shared_ptr<RecordingAdDelegate> delegate = std::make_shared<RecordingAdDelegate>();
  std::shared_ptr<platform::Window> window = platform::Window::create({0, 0, 320, 480});
  std::shared_ptr<ZVVastPlayer> player;
  std::shared_ptr<ZVVastLinearAdPlayer> linear;
  // The first address of each list handed over, and the media position when it was seen.
  std::vector<std::pair<std::string, double>> handedOver;
};

TEST_F(GStreamerVastPlaybackTest, TheAdPlaysToTheEndFiringEachProgressEventInOrder) {
  server.respond("/media/zorva.mp4",
                 {.body = std::string(tools::media::zorvaMp4()), .contentType = "video/mp4"});
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
}

TEST_F(GStreamerVastPlaybackTest, MediaThatCannotBePlayedEndsInA405) {
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
}  // namespace zorva
