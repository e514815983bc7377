// The builder's choice, and a video bid from the loopback server played end to end.
#include <gtest/gtest.h>

#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Window.h>

#include "Common/ZVAdLoader.h"
#include "Common/ZVRTBRequestBuilder.h"
#include "Players/ZVDisplayAdPlayer.h"
#include "Players/ZVPlayerBuilder.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/AdFormatTesting.h"
#include "support/AdLoaderTesting.h"
#include "support/ObservingNetworkHandler.h"
#include "support/RecordingAdDelegate.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using test::RecordingAdDelegate;

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

TEST(ZVPlayerBuilder, TheVideoFlagAloneChoosesThePlayerAndOnlyDisplayGetsASessionTracker) {
  auto delegate = std::make_shared<RecordingAdDelegate>();
  EXPECT_TRUE(std::dynamic_pointer_cast<ZVVastPlayer>(build(true, 30, "<p>html</p>", delegate)));
  auto display =
      std::dynamic_pointer_cast<ZVDisplayAdPlayer>(build(false, 0, test::linearVast(), delegate));
  ASSERT_TRUE(display);
  EXPECT_FALSE(display->adPlayTracker());
  EXPECT_EQ(display->delegate(), delegate);
  display = std::dynamic_pointer_cast<ZVDisplayAdPlayer>(build(false, 30, "<p>ad</p>", delegate));
  ASSERT_TRUE(display && display->adPlayTracker());
  EXPECT_EQ(display->adPlayTracker()->sessionTime(), 30u);
}

TEST(ZVPlayerBuilder, AVideoBidWhoseFirstAdIsAnEmptyWrapperPlaysTheInLineLinearAd) {
  test::useVirtualClock();
  auto handler = test::ObservingNetworkHandler::install();
  test::LoopbackServer server;
  const std::string vast =
      R"(<VAST version="3.0"><Ad id="w"><Wrapper><AdSystem>S</AdSystem><VASTAdTagURI>)" +
      server.url("/empty") + R"(</VASTAdTagURI></Wrapper></Ad>)" +
      test::linearVast().substr(std::string(R"(<VAST version="3.0">)").size());
  server.respond(test::kServadPath, {.body = test::bidWithMarkup(vast)});
  server.respond("/empty", {.body = R"(<VAST version="3.0"/>)", .contentType = "text/xml"});

  auto loader = ZVAdLoader::create(std::make_shared<ZVAdLoaderConfig>());
  auto received = std::make_shared<test::RecordingLoaderDelegate>();
  loader->setDelegate(received);
  loader->setRequestBuilder(ZVRTBRequestBuilder::create(test::requestFor(server)));
  loader->load();
  ASSERT_TRUE(received->waitForCall());
  ASSERT_TRUE(received->ad);

  auto delegate = std::make_shared<RecordingAdDelegate>();
  auto player =
      std::dynamic_pointer_cast<ZVVastPlayer>(build(true, 0, received->ad->creative, delegate));
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
  for (const char* event : test::kProgressEvents)
    handedOver.push_back({"http://track/" + std::string(event)});
  handedOver.push_back(handedOver.back());
  EXPECT_EQ(handler->handedOverUrls(), handedOver);
  EXPECT_GE(server.requests().size(), 2u) << "the bid and the wrapper's target";
}

}  // namespace
}  // namespace zorva
