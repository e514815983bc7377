#include <gtest/gtest.h>

#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Window.h>

#include "Players/ZVDisplayAdPlayer.h"
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
  EXPECT_EQ(linear->ad()->title(), "Linear");
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
