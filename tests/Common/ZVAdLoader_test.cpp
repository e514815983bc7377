// One ad load end to end: a request builder, the shared network handler, real libcurl, the
// loopback server, and the delegate on the documented thread.
#include <gtest/gtest.h>

#include <zorva/platform/MainQueue.h>

#include <limits>
#include <mutex>
#include <thread>

#include "Common/ZVAdLoader.h"
#include "Common/ZorvaAdBuilder.h"
#include "support/LoopbackServer.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using std::chrono::milliseconds;
using test::LoopbackServer;

class FixedRequestBuilder : public ZVRequestBuilding {
 public:
  explicit FixedRequestBuilder(std::string url) {
    request_.url = platform::URL::URLWithString(url);
    request_.HTTPMethod = "POST";
    request_.HTTPBody = R"({"id":"req"})";
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

class RecordingLoaderDelegate : public ZVAdLoaderDelegate {
 public:
  void didReceiveAd(std::shared_ptr<ZorvaAd> ad) override { record(std::move(ad), std::nullopt); }
  void didFailToReceivedAd(const Error& e) override { record(nullptr, e); }
  bool done() const {
    std::lock_guard lock(mutex);
    return calls > 0;
  }

  mutable std::mutex mutex;
  int calls = 0;
  std::shared_ptr<ZorvaAd> ad;
  std::optional<Error> error;
  bool onMainQueue = false;
  std::thread::id thread;

 private:
  void record(std::shared_ptr<ZorvaAd> heard, std::optional<Error> failure) {
    std::lock_guard lock(mutex);
    ++calls;
    ad = std::move(heard);
    error = std::move(failure);
    onMainQueue = platform::MainQueue::shared().isCurrent();
    thread = std::this_thread::get_id();
  }
};

struct Load {
  std::shared_ptr<ZVAdLoader> loader = ZVAdLoader::create(std::make_shared<ZVAdLoaderConfig>());
  std::shared_ptr<RecordingLoaderDelegate> delegate = std::make_shared<RecordingLoaderDelegate>();
  std::shared_ptr<FixedRequestBuilder> builder;

  explicit Load(std::shared_ptr<FixedRequestBuilder> b) : builder(std::move(b)) {
    loader->setDelegate(delegate);
    loader->setRequestBuilder(builder);
  }
};

constexpr const char* kBid =
    R"({"id":"r1","seatbid":[{"bid":[{"id":"b1","adm":"<p>ad</p>","price":2.25,"w":"300",)"
    R"("h":250,"ext":{"skadn":{"version":"2.0","network":"x.skadnetwork"}}}]}]})";

// The builder's request is POSTed as it is, and the delegate hears once, on the main queue, however
// large the answer. (Statuses, empty and unreadable answers are the app conventions' rows; the
// bodies themselves are read by the bid response tests.)
TEST(ZVAdLoader, EveryAnswerIsReadOnTheMainQueue) {
  LoopbackServer server;
  const std::string bigCreative(10u << 20, 'a');
  // 200 000 keys beside the bid (3 MB): a reader that looks back at every earlier key on each
  // insert needs half a minute for them, past the wait; bench_large_answer times a million.
  std::string manyKeys = "{";
  for (int i = 0; i < 200000; ++i) manyKeys += "\"k" + std::to_string(i) + "\":" + "0,";
  manyKeys += kBid + 1;
  for (const std::string& body :
       {R"({"seatbid":[{"bid":[{"adm":")" + bigCreative + R"("}]}]})", manyKeys}) {
    SCOPED_TRACE(body.substr(0, 40));
    server.respond("/bid", {.body = body});
    Load load(std::make_shared<FixedRequestBuilder>(server.url("/bid")));
    load.loader->load();
    ASSERT_TRUE(test::runMainQueueUntil([&] { return load.delegate->done(); }));
    EXPECT_EQ(server.requests().back().method, "POST");
    EXPECT_EQ(server.requests().back().body, R"({"id":"req"})");
    EXPECT_EQ(load.delegate->calls, 1);
    EXPECT_TRUE(load.delegate->onMainQueue);
    EXPECT_TRUE(load.delegate->ad);
  }
}

// A builder's failure is told on the builder's thread. (Transport failures, told on the network
// thread, are the ad formats' and the hostile servers' tests.)
TEST(ZVAdLoader, ABuildersFailureArrivesOnItsThread) {
  Load load(std::make_shared<FixedRequestBuilder>("http://127.0.0.1:1/"));
  load.builder->failure = Error::withDescription("ZorvaSDK", 1, "InternalError(1) : boom");
  load.loader->load();
  ASSERT_TRUE(load.delegate->done());  // delivered before load() returned
  EXPECT_EQ(load.delegate->error->code, 1);
  EXPECT_EQ(load.delegate->thread, load.builder->failureThread);
}

// A loader released in flight drops its late answer on the network thread; an owner released
// while its answer waits on the main queue is not called.
TEST(ZVAdLoader, WhatIsReleasedInFlightHearsNothing) {
  auto network = test::ObservingNetworkHandler::install();
  LoopbackServer server;
  server.respond("/slow", {.body = kBid, .delay = milliseconds(200)});
  server.respond("/bid", {.body = kBid});
  Load released(std::make_shared<FixedRequestBuilder>(server.url("/slow")));
  std::weak_ptr<ZVAdLoader> loader = released.loader;
  released.loader->load();
  ASSERT_TRUE(server.waitForRequests(1, milliseconds(5000)));
  released.loader.reset();
  EXPECT_TRUE(loader.expired());
  ASSERT_TRUE(network->waitForCompletedFetches(1, milliseconds(5000)));
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_FALSE(released.delegate->done());

  Load load(std::make_shared<FixedRequestBuilder>(server.url("/bid")));
  std::weak_ptr<RecordingLoaderDelegate> owner = load.delegate;
  load.loader->load();
  ASSERT_TRUE(network->waitForCompletedFetches(2, milliseconds(5000)));
  load.delegate.reset();
  EXPECT_TRUE(owner.expired());
  EXPECT_GT(platform::MainQueue::shared().runUntilIdle(), 0u);
}

ZVAdLoader::ResponseReading read(const std::string& body) { return ZVAdLoader::readResponse(body); }

TEST(BidResponse, TheFirstBidOfTheFirstSeatBidIsKeptAsTheResponseHeldIt) {
  auto r =
      read(R"({"seatbid":[{"bid":[{"id":7,"adm":{"not":"html"},"price":2,"w":"300","h":"12.5px",)"
           R"("ext":{"skadn":{"network":"n.skadnetwork"}}},{"id":"b2"}]},{"bid":[{"id":"b3"}]}]})");
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->bidId, 7);
  EXPECT_TRUE(r.ad->creative.is_object());
  EXPECT_TRUE(r.ad->price.is_number_integer());
  EXPECT_EQ(r.ad->size, (ZVAdSize{300, 12.5}));
  EXPECT_EQ(r.ad->skadn["network"], "n.skadnetwork");

  // Sizes are single precision and default to zero, as does a size that is no number, no string
  // or no decimal text; the ad is still made.
  const double inf = std::numeric_limits<double>::infinity();
  for (const auto& [bid, size] :
       {std::pair<const char*, ZVAdSize>{R"("w":0.1,"h":1e300)", {0.1f, inf}},
        {R"("adm":"x")", {0, 0}},
        {R"("adm":"x","w":null,"h":[1])", {0, 0}},
        {R"("adm":"x","w":{"v":2},"h":{})", {0, 0}},
        {R"("adm":"x","w":"0x140","h":" inf")", {0, 0}},
        {R"("adm":"x","w":"nan","h":"-.e2")", {0, 0}}}) {
    r = read(std::string(R"({"seatbid":[{"bid":[{)") + bid + "}]}]}");
    ASSERT_TRUE(r.ad) << bid;
    EXPECT_EQ(r.ad->size, size);
    EXPECT_TRUE(r.ad->bidId.is_null());
  }
  // A host that sets the locale from the environment must not turn "12.5" into 12.
  if (test::CommaDecimalLocale comma; comma.active()) {
    r = read(R"({"seatbid":[{"bid":[{"w":"12.5","h":" 0.25px"}]}]})");
    ASSERT_TRUE(r.ad);
    EXPECT_EQ(r.ad->size, (ZVAdSize{12.5, 0.25}));
  }
}

// The loader takes the ad's values out of the response it has no more use for; a builder asked
// through its own interface copies them and can be asked again.
TEST(BidResponse, BuildingCopiesAndBuildingTakingTheJsonMovesTheSameAd) {
  auto builder = ZorvaAdBuilder::create();
  builder->setJson(Value::parse(R"({"seatbid":[{"bid":[{"id":"b","adm":"<p>","price":1.5,)"
                                R"("w":320,"h":50,"ext":{"skadn":{"nonce":"n"}}}]}]})"));
  const Value before = builder->json();
  auto copied = builder->build();
  ASSERT_TRUE(copied);
  EXPECT_EQ(builder->json(), before);
  auto taken = builder->buildTakingJson();
  ASSERT_TRUE(taken);
  for (const auto* ad : {copied.get(), taken.get()}) {
    EXPECT_EQ(ad->bidId, "b");
    EXPECT_EQ(ad->creative, "<p>");
    EXPECT_EQ(ad->price, 1.5);
    EXPECT_EQ(ad->size, (ZVAdSize{320, 50}));
    EXPECT_EQ(ad->skadn, before["seatbid"][0]["bid"][0]["ext"]["skadn"]);
  }
}

// No seat bid or no bid is no ad; reading keys from what is no object is a NoAdsError, code 0,
// naming the exception and its reason; a body that is no JSON is a JSON error.
TEST(BidResponse, NoBidIsNoAdAndKeysOfWhatIsNoObjectAreANoAdsError) {
  for (const char* body :
       {R"({"seatbid":[{"bid":[]}]})", R"({"seatbid":[{}]})", R"({"seatbid":{}})"}) {
    auto r = read(body);
    EXPECT_FALSE(r.error || r.ad) << body;
  }
  for (const std::string body :
       {"[1,2]", "\"text\"", "null", R"({"seatbid":"x"})", R"({"seatbid":[1]})",
        R"({"seatbid":null})", R"({"seatbid":[{"bid":7}]})",
        R"({"seatbid":[{"bid":[{"ext":"e"}]}]})"}) {
    auto r = read(body);
    ASSERT_TRUE(r.error) << body.substr(0, 40);
    EXPECT_EQ(r.error->code, 0);
    EXPECT_EQ(r.error->domain, "ZorvaSDK");
    EXPECT_NE(r.error->localizedDescription().find("ExceptionName"), std::string::npos);
    EXPECT_NE(r.error->localizedDescription().find("ExceptionReason"), std::string::npos);
  }
  // Nesting is bounded while parsing, so nothing that copies or walks the tree can run out of
  // stack, and an unclosed body costs no more than the limit.
  const std::string deep(100000, '[');
  for (const std::string& body :
       {std::string("{\"a\":\"\xff\"}"), deep + std::string(100000, ']'),
        R"({"seatbid":[{"bid":[{"adm":)" + deep + std::string(100000, ']') + "}]}]}", deep}) {
    auto r = read(body);
    ASSERT_TRUE(r.error) << body.substr(0, 40);
    EXPECT_EQ(r.error->domain, "nlohmann::json");
    EXPECT_FALSE(r.ad);
  }
}

}  // namespace
}  // namespace zorva
