// One ad load end to end: a request builder, the shared network handler, real libcurl, the
// loopback server, and the delegate on the documented thread.
#include <gtest/gtest.h>

#include <zorva/platform/MainQueue.h>

#include <thread>
#include <tuple>

#include "Common/ZVAdLoader.h"
#include "support/LoopbackServer.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using std::chrono::milliseconds;
using test::LoopbackServer;

// Hands the loader a fixed POST, or fails on a thread of its own.
class FixedRequestBuilder : public ZVRequestBuilding {
 public:
  explicit FixedRequestBuilder(std::string url, double timeout = 10) {
    request_.url = platform::URL::URLWithString(url);
    request_.HTTPMethod = "POST";
    request_.HTTPBody = R"({"id":"req"})";
    request_.timeoutInterval = timeout;
  }
  std::optional<Error> failure;
  std::thread::id failureThread;

  void build(Completion completion) override {
    if (!failure) {
      completion(request_, std::nullopt);
      return;
    }
    std::thread worker([this, completion] {
      failureThread = std::this_thread::get_id();
      completion(std::nullopt, failure);
    });
    worker.join();
  }

 private:
  platform::URLRequest request_;
};

class RecordingDelegate : public ZVAdLoaderDelegate {
 public:
  void didReceiveAd(std::shared_ptr<ZorvaAd> ad) override {
    record([&] { this->ad = std::move(ad); });
  }
  void didFailToReceivedAd(const Error& e) override {
    record([&] { error = e; });
  }

  bool done() const {
    std::lock_guard lock(mutex);
    return calls > 0;
  }
  // Waits for the first call, running the main queue meanwhile.
  bool waitForCall() {
    return test::runMainQueueUntil([this] { return done(); });
  }

  mutable std::mutex mutex;
  int calls = 0;
  std::shared_ptr<ZorvaAd> ad;
  std::optional<Error> error;
  bool onMainQueue = false;
  std::thread::id thread;

 private:
  template <typename F>
  void record(F&& f) {
    std::lock_guard lock(mutex);
    ++calls;
    onMainQueue = platform::MainQueue::shared().isCurrent();
    thread = std::this_thread::get_id();
    f();
  }
};

struct Load {
  std::shared_ptr<ZVAdLoader> loader = ZVAdLoader::create(std::make_shared<ZVAdLoaderConfig>());
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<FixedRequestBuilder> builder;

  explicit Load(std::shared_ptr<FixedRequestBuilder> b) : builder(std::move(b)) {
    loader->setDelegate(delegate);
    loader->setRequestBuilder(builder);
  }
};

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

TEST(ZVAdLoader, ABidArrivesOnTheMainQueueAsAnAd) {
  LoopbackServer server;
  auto load = loadFrom(server, "/bid", {.body = kBid});
  EXPECT_TRUE(load.delegate->onMainQueue);
  ASSERT_TRUE(load.delegate->ad);
  const ZorvaAd& ad = *load.delegate->ad;
  EXPECT_EQ(std::tie(ad.creative, ad.bidId, ad.price), std::tuple("<p>ad</p>", "b1", 2.25));
  EXPECT_EQ(ad.size, (ZVAdSize{300, 250}));  // "300" read as a number
  EXPECT_EQ(ad.skadn["network"], "x.skadnetwork");
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].body, R"({"id":"req"})");
}

// Whatever the server answers, the status is not looked at and the delegate hears once, on the
// main queue. The odd bodies themselves are read by the bid response tests.
TEST(ZVAdLoader, EveryAnswerIsReadOnTheMainQueue) {
  LoopbackServer server;
  const std::string bigCreative(10u << 20, 'a');
  struct Case {
    int status;
    std::string body;
    std::string expected;  // "ad", "no ad", or the error's domain
  };
  const Case cases[] = {
      {500, kBid, "ad"},
      {200, R"({"seatbid":[{"bid":[{"adm":")" + bigCreative + R"("}]}]})", "ad"},
      {200, "{}", "no ad"},
      {200, R"({"seatbid":[]})", "no ad"},
      {200, R"(<VAST version="3.0"><Ad/></VAST>)", "nlohmann::json"},
      {200, "", "nlohmann::json"},
      {200, "1", "ZorvaSDK"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body.substr(0, 40));
    auto load = loadFrom(server, "/bid", {.status = c.status, .body = c.body});
    EXPECT_EQ(load.delegate->calls, 1);
    EXPECT_TRUE(load.delegate->onMainQueue);
    const auto& error = load.delegate->error;
    if (c.expected == "ad" || c.expected == "no ad") {
      EXPECT_FALSE(error);
      EXPECT_EQ(load.delegate->ad != nullptr, c.expected == "ad");
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
TEST(ZVAdLoader, TransportFailuresArriveOnTheNetworkThreadAndAreLogged) {
  LoopbackServer server;
  server.respond("/slow", {.body = kBid, .delay = milliseconds(5000)});
  const std::pair<std::string, int> cases[] = {
      {"http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/bid", 7},
      {server.url("/slow"), 28}};
  for (const auto& [url, curlCode] : cases) {
    test::LogCapture log;
    Load load(std::make_shared<FixedRequestBuilder>(url, 1));
    load.loader->load();
    ASSERT_TRUE(load.delegate->waitForCall());
    ASSERT_TRUE(load.delegate->error);
    EXPECT_EQ(load.delegate->error->domain, "libcurl");
    EXPECT_EQ(load.delegate->error->code, curlCode);
    EXPECT_FALSE(load.delegate->onMainQueue);
    auto lines = log.entriesContaining("\nError - ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("- E -"), std::string::npos);
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
  std::weak_ptr<RecordingDelegate> watch = load.delegate;
  load.loader->load();
  ASSERT_TRUE(network->waitForCompletedFetches(1, milliseconds(5000)));
  load.delegate.reset();  // the ad object goes away while its answer waits on the main queue
  EXPECT_TRUE(watch.expired());
  EXPECT_GT(platform::MainQueue::shared().runUntilIdle(), 0u);
}

}  // namespace
}  // namespace zorva
