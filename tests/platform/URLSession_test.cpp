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

URLRequest get(const std::string& url) { return URLRequest(URL::URLWithString(url)); }

void start(URLSession& session, const URLRequest& request, URLSessionCompletionHandler handler) {
  session.dataTaskWithRequest(request, std::move(handler))->resume();
}

// The VAST parser's bookkeeping is unlocked: it relies on completions running one at a time, all
// on the session's worker thread.
TEST(URLSession, CompletionsRunOneAtATimeOnTheWorkerAndAnyStatusWithABodyIsASuccess) {
  LoopbackServer server;
  server.respond("/err", {.status = 500, .body = "{\"a\":1}"});
  const auto refused = "http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/";
  auto session = URLSession::sharedSession();
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> inside{0}, overlap{0}, finished{0};
  std::promise<void> all;
  for (int i = 0; i < 20; ++i) {
    start(*session, get(i ? server.url("/err") : refused), [&, i](auto data, auto r, auto error) {
      if (inside.fetch_add(1) != 0) ++overlap;
      {
        // Released before the last completion lets the test end, which destroys the mutex.
        std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
        EXPECT_TRUE(session->isDelegateQueue());
        if (i == 0) {
          ASSERT_TRUE(error);
          EXPECT_EQ(error->domain + " " + std::to_string(error->code), "libcurl 7");
          EXPECT_FALSE(data);
        } else {
          EXPECT_FALSE(error);
          EXPECT_EQ(data, "{\"a\":1}");
          EXPECT_EQ(r->statusCode, 500);
        }
      }
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
// Destroying a session cancels what is still running.
TEST(URLSession, AnExchangeStartedFromACompletionCarriesNothingOfTheOneBefore) {
  LoopbackServer server;
  server.respond("/post", {.body = "posted"});
  server.respond("/get", {.body = "got"});
  server.respond("/slow", {.body = "late", .delay = milliseconds(5000)});
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

  std::optional<Error> error;
  start(*session, get(server.url("/slow")), [&](auto, auto, auto e) { error = e; });
  ASSERT_TRUE(server.waitForRequests(3, milliseconds(5000)));
  session.reset();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, URLSession::kCancelledCode);
}

}  // namespace
}  // namespace zorva::platform
