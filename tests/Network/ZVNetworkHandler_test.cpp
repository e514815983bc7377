#include <gtest/gtest.h>

#include <future>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"
#include "Network/ZVNetworkHandler.h"
#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using std::chrono::milliseconds;

TEST(ZVNetworkHandler, FetchesByGetAndLogsTheBodyAtInfoLevel) {
  test::LoopbackServer server;
  server.respond("/wrapper", {.body = "<VAST/>", .contentType = "text/xml"});
  ZVLog::setLevel(3);
  test::LogCapture log;
  std::promise<std::pair<std::optional<Data>, std::optional<Error>>> done;
  ZVInstanceFactory::sharedNetworkhandler()->fetchUrlString(
      server.url("/wrapper"), [&](std::optional<Data> d, std::optional<Error> e) {
        done.set_value({d, e});
      });
  auto [data, error] = done.get_future().get();
  EXPECT_FALSE(error);
  EXPECT_EQ(data, "<VAST/>");
  EXPECT_EQ(server.requests().at(0).method, "GET");
  EXPECT_EQ(log.entriesContaining("<VAST/>").size(), 1u);
}

TEST(ZVNetworkHandler, TrackingHandOverSendsNothingAndNeverCallsBack) {
  test::LoopbackServer server;
  server.respond("/track", {.body = "ok"});
  bool called = false;
  ZVInstanceFactory::sharedNetworkhandler()->fetchUrls(
      {server.url("/track"), server.url("/track?e=2")},
      [&](std::optional<Data>, std::optional<Error>) { called = true; });
  // A request would arrive within this window if one had been sent.
  EXPECT_FALSE(server.waitForRequests(1, milliseconds(300)));
  test::runMainQueueUntil([] { return false; }, milliseconds(50));
  EXPECT_FALSE(called);
}

}  // namespace
}  // namespace zorva
