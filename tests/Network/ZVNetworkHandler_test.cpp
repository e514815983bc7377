#include <gtest/gtest.h>

#include <future>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"
#include "Network/ZVNetworkHandler.h"
#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

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

}  // namespace
}  // namespace zorva
