// The session's own guarantees; what it carries (methods, bodies, query strings, statuses) is
// checked end to end by the loader's and the request builder's tests.
#include <zorva/platform/URLSession.h>

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "support/LoopbackServer.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;
using test::LoopbackServer;

struct Outcome {
  std::optional<Data> data;
  std::optional<Error> error;
  long status = 0;
  bool onWorker = false;
};

URLRequest get(const std::string& url) { return URLRequest(URL::URLWithString(url)); }

void start(URLSession& session, const URLRequest& request, URLSessionCompletionHandler handler) {
  session.dataTaskWithRequest(request, std::move(handler))->resume();
}

Outcome fetch(const std::string& url) {
  auto session = URLSession::sharedSession();
  std::promise<Outcome> done;
  start(*session, get(url), [&, caller = std::this_thread::get_id()](auto d, auto r, auto e) {
    done.set_value({std::move(d), std::move(e), r ? r->statusCode : 0,
                    session->isDelegateQueue() && std::this_thread::get_id() != caller});
  });
  auto future = done.get_future();
  EXPECT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  return future.get();
}

TEST(URLSession, EveryCompletionArrivesOnTheWorkerThreadAndAnyStatusWithABodyIsASuccess) {
  LoopbackServer server;
  server.respond("/err", {.status = 500, .body = "{\"a\":1}"});
  auto answered = fetch(server.url("/err"));
  EXPECT_FALSE(answered.error);
  EXPECT_EQ(answered.data, "{\"a\":1}");
  EXPECT_EQ(answered.status, 500);
  EXPECT_TRUE(answered.onWorker);

  auto refused = fetch("http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/");
  ASSERT_TRUE(refused.error);
  EXPECT_EQ(refused.error->domain, "libcurl");
  EXPECT_EQ(refused.error->code, 7);  // could not connect
  EXPECT_FALSE(refused.data);
  EXPECT_TRUE(refused.onWorker);
}

// The VAST parser's bookkeeping is unlocked: it relies on this.
TEST(URLSession, CompletionsRunOneAtATimeOnOneThread) {
  LoopbackServer server;
  server.respond("/a", {.body = "a"});
  auto session = URLSession::create();
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> inside{0};
  std::atomic<int> overlap{0};
  int finished = 0;
  std::promise<void> all;
  for (int i = 0; i < 20; ++i) {
    start(*session, get(server.url("/a")), [&](auto&&...) {
      if (inside.fetch_add(1) != 0) ++overlap;
      std::lock_guard lock(mutex);
      threads.insert(std::this_thread::get_id());
      inside.fetch_sub(1);
      if (++finished == 20) all.set_value();
    });
  }
  ASSERT_EQ(all.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(overlap.load(), 0);
  EXPECT_EQ(threads.size(), 1u);
}

// Handles are kept between exchanges: nothing of a POST may carry over into the GET that a
// completion handler starts next (on the worker, which takes the handle the POST just gave back).
TEST(URLSession, AnExchangeStartedFromACompletionCarriesNothingOfTheOneBefore) {
  LoopbackServer server;
  server.respond("/post", {.body = "posted"});
  server.respond("/get", {.body = "got"});
  auto session = URLSession::create();
  URLRequest post = get(server.url("/post"));
  post.HTTPMethod = "POST";
  post.HTTPBody = "{\"a\":1}";
  post.setValueForHTTPHeaderField("yes", "X-Only-Once");
  std::promise<std::optional<HTTPURLResponse>> second;
  start(*session, post, [&](auto&&...) {
    start(*session, get(server.url("/get")), [&](auto, auto r, auto) { second.set_value(r); });
  });
  auto answer = second.get_future();
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  const auto response = answer.get();
  ASSERT_TRUE(response && response->url);
  EXPECT_EQ(response->url->absoluteString(), server.url("/get"));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].headers.count("X-Only-Once"), 1u);
  EXPECT_EQ(requests[1].method, "GET");
  EXPECT_EQ(requests[1].body, "");
  EXPECT_EQ(requests[1].headers.count("X-Only-Once"), 0u);
}

TEST(URLSession, DestroyingASessionCancelsWhatIsStillRunning) {
  LoopbackServer server;
  server.respond("/slow", {.body = "late", .delay = milliseconds(5000)});
  std::optional<Error> error;
  {
    auto session = URLSession::create();
    start(*session, get(server.url("/slow")), [&](auto, auto, auto e) { error = e; });
    ASSERT_TRUE(server.waitForRequests(1, milliseconds(5000)));
  }
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, URLSession::kCancelledCode);
}

}  // namespace
}  // namespace zorva::platform
