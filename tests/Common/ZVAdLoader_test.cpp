// One ad load end to end: a request builder, the shared network handler, real libcurl, the
// loopback server, and the delegate on the documented thread.
#include <gtest/gtest.h>

#include <zorva/platform/MainQueue.h>

#include "support/AdLoaderTesting.h"
#include "support/LoopbackServer.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using std::chrono::milliseconds;
using test::FixedRequestBuilder;
using test::Load;
using test::LoopbackServer;
using test::RecordingLoaderDelegate;

Load loadFrom(LoopbackServer& server, const std::string& path, LoopbackServer::Response response) {
  server.respond(path, std::move(response));
  Load load(std::make_shared<FixedRequestBuilder>(server.url(path)));
  load.loader->load();
  EXPECT_TRUE(load.delegate->waitForCall());
  return load;
}

constexpr const char* kBid =
    R"({"id":"r1","seatbid":[{"bid":[{"id":"b1","adm":"<p>ad</p>","price":2.25,"w":"300",)"
    R"("h":250,"ext":{"skadn":{"version":"2.0","network":"x.skadnetwork"}}}]}]})";

// The builder's request is POSTed as it is. Whatever the server answers, the status is not looked
// at and the delegate hears once, on the main queue. The bodies themselves are read by the bid
// response tests.
TEST(ZVAdLoader, EveryAnswerIsReadOnTheMainQueue) {
  LoopbackServer server;
  const std::string bigCreative(10u << 20, 'a');
  // 200 000 keys beside the bid (3 MB): a reader that looks back at every earlier key on each
  // insert needs half a minute for them, past the wait; bench_large_answer times a million.
  std::string manyKeys = "{";
  for (int i = 0; i < 200000; ++i) manyKeys += "\"k" + std::to_string(i) + "\":" + "0,";
  manyKeys += kBid + 1;
  struct Case {
    int status;
    std::string body;
    std::string expected;  // "ad", "no ad", or the error's domain
  };
  const Case cases[] = {
      {500, kBid, "ad"},
      {200, R"({"seatbid":[{"bid":[{"adm":")" + bigCreative + R"("}]}]})", "ad"},
      {200, manyKeys, "ad"},
      {200, "{}", "no ad"},
      {200, R"({"seatbid":[]})", "no ad"},
      {200, R"(<VAST version="3.0"><Ad/></VAST>)", "nlohmann::json"},
      {200, "", "nlohmann::json"},
      {200, "1", "ZorvaSDK"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body.substr(0, 40));
    auto load = loadFrom(server, "/bid", {.status = c.status, .body = c.body});
    EXPECT_EQ(server.requests().back().method, "POST");
    EXPECT_EQ(server.requests().back().body, R"({"id":"req"})");
    EXPECT_EQ(load.delegate->calls, 1);
    EXPECT_TRUE(load.delegate->onMainQueue);
    const auto& error = load.delegate->error;
    if (c.expected == "ad" || c.expected == "no ad") {
      EXPECT_FALSE(error);
      ASSERT_EQ(load.delegate->ad != nullptr, c.expected == "ad");
      if (c.status == 500) {
        EXPECT_EQ(load.delegate->ad->bidId, "b1");
      }
      continue;
    }
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, c.expected);
    if (c.expected == "ZorvaSDK") {  // JSON, but no dictionary: code 0 naming the exception
      EXPECT_EQ(error->code, 0);
      EXPECT_NE(error->localizedDescription().find("ExceptionName"), std::string::npos);
      EXPECT_NE(error->localizedDescription().find("ExceptionReason"), std::string::npos);
    }
  }
}

// A refused connection, and a server slower than the request's timeout.
TEST(ZVAdLoader, TransportFailuresArriveOnTheNetworkThread) {
  LoopbackServer server;
  server.respond("/slow", {.body = kBid, .delay = milliseconds(5000)});
  const std::pair<std::string, int> cases[] = {
      {"http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/bid", 7},
      {server.url("/slow"), 28}};
  for (const auto& [url, curlCode] : cases) {
    Load load(std::make_shared<FixedRequestBuilder>(url, 1));
    load.loader->load();
    ASSERT_TRUE(load.delegate->waitForCall());
    ASSERT_TRUE(load.delegate->error);
    EXPECT_EQ(load.delegate->error->domain, "libcurl");
    EXPECT_EQ(load.delegate->error->code, curlCode);
    EXPECT_FALSE(load.delegate->onMainQueue);
  }
}

TEST(ZVAdLoader, BuildingFailuresArriveOnTheBuildersThread) {
  auto builder = std::make_shared<FixedRequestBuilder>("http://127.0.0.1:1/");
  builder->failure = Error::withDescription("ZorvaSDK", 1, "InternalError(1) : boom");
  Load load(builder);
  load.loader->load();
  ASSERT_TRUE(load.delegate->done());  // delivered before load() returned
  EXPECT_EQ(load.delegate->error->code, 1);
  EXPECT_EQ(load.delegate->thread, builder->failureThread);
}

TEST(ZVAdLoader, ALoaderReleasedInFlightDeliversNothing) {
  auto network = test::ObservingNetworkHandler::install();
  LoopbackServer server;
  server.respond("/slow", {.body = kBid, .delay = milliseconds(200)});
  Load load(std::make_shared<FixedRequestBuilder>(server.url("/slow")));
  std::weak_ptr<ZVAdLoader> watch = load.loader;
  load.loader->load();
  ASSERT_TRUE(server.waitForRequests(1, milliseconds(5000)));
  load.loader.reset();
  EXPECT_TRUE(watch.expired());
  // The late answer is dropped on the network thread, and nothing reaches the main queue.
  ASSERT_TRUE(network->waitForCompletedFetches(1, milliseconds(5000)));
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_FALSE(load.delegate->done());
}

TEST(ZVAdLoader, AnOwnerReleasedBeforeTheMainQueueRunsIsNotCalled) {
  LoopbackServer server;
  server.respond("/bid", {.body = kBid});
  auto network = test::ObservingNetworkHandler::install();
  Load load(std::make_shared<FixedRequestBuilder>(server.url("/bid")));
  std::weak_ptr<RecordingLoaderDelegate> watch = load.delegate;
  load.loader->load();
  ASSERT_TRUE(network->waitForCompletedFetches(1, milliseconds(5000)));
  load.delegate.reset();  // the ad object goes away while its answer waits on the main queue
  EXPECT_TRUE(watch.expired());
  EXPECT_GT(platform::MainQueue::shared().runUntilIdle(), 0u);
}

}  // namespace
}  // namespace zorva
