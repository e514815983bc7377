#include <zorva/platform/URLSession.h>

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "support/LoopbackServer.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;
using test::LoopbackServer;

struct Outcome {
  std::optional<Data> data;
  std::optional<HTTPURLResponse> response;
  std::optional<Error> error;
  bool onWorker = false;
  std::thread::id thread;
};

Outcome fetch(const std::shared_ptr<URLSession>& session, const URLRequest& request) {
  std::promise<Outcome> done;
  auto task = session->dataTaskWithRequest(
      request,
      [&](std::optional<Data> d, std::optional<HTTPURLResponse> r, std::optional<Error> e) {
        done.set_value({std::move(d), std::move(r), std::move(e), session->isDelegateQueue(),
                        std::this_thread::get_id()});
      });
  task->resume();
  auto future = done.get_future();
  EXPECT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  return future.get();
}

URLRequest requestFor(const std::string& url) { return URLRequest(URL::URLWithString(url)); }

TEST(URLSession, AnyHttpStatusWithABodyIsASuccessDeliveredOnTheWorkerThread) {
  LoopbackServer server;
  server.respond("/err", {.status = 500, .body = "{\"a\":1}"});
  auto outcome = fetch(URLSession::sharedSession(), requestFor(server.url("/err")));
  EXPECT_FALSE(outcome.error);
  ASSERT_TRUE(outcome.data);
  EXPECT_EQ(*outcome.data, "{\"a\":1}");
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, 500);
  EXPECT_TRUE(outcome.onWorker);
  EXPECT_NE(outcome.thread, std::this_thread::get_id());
}

TEST(URLSession, PostSendsMethodBodyAndHeaders) {
  LoopbackServer server;
  server.respond("/bid", {.body = "ok"});
  URLRequest request = requestFor(server.url("/bid?pid=1&aid=2"));
  request.HTTPMethod = "POST";
  request.HTTPBody = std::string(2 << 20, 'x');  // large enough to tempt "Expect: 100-continue"
  request.setValueForHTTPHeaderField("yes", "X-Zorva-Test");
  request.setValueForHTTPHeaderField("application/octet-stream", "Content-Type");
  auto outcome = fetch(URLSession::sharedSession(), request);
  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  EXPECT_EQ(outcome.response->statusCode, 200);
  auto received = server.requests();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].method, "POST");
  EXPECT_EQ(received[0].body.size(), std::size_t{2} << 20);
  EXPECT_EQ(received[0].params.find("aid")->second, "2");
  EXPECT_EQ(received[0].headers["X-Zorva-Test"], "yes");
}

TEST(URLSession, TransportFailuresCarryCurlsDomainAndCode) {
  auto refused =
      fetch(URLSession::sharedSession(),
            requestFor("http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/"));
  ASSERT_TRUE(refused.error);
  EXPECT_EQ(refused.error->domain, "libcurl");
  EXPECT_EQ(refused.error->code, 7);  // could not connect
  EXPECT_FALSE(refused.data);
  EXPECT_TRUE(refused.onWorker);

  auto noUrl = fetch(URLSession::sharedSession(), URLRequest());
  ASSERT_TRUE(noUrl.error);
  EXPECT_EQ(noUrl.error->code, 3);  // malformed URL
}

TEST(URLSession, CancelEndsARunningTaskWithTheCancellationError) {
  LoopbackServer server;
  server.respond("/slow", {.body = "late", .delay = milliseconds(5000)});
  std::promise<std::optional<Error>> done;
  auto task = URLSession::sharedSession()->dataTaskWithRequest(
      requestFor(server.url("/slow")), [&](std::optional<Data>, std::optional<HTTPURLResponse>,
                                           std::optional<Error> e) { done.set_value(e); });
  task->resume();
  ASSERT_TRUE(server.waitForRequests(1, milliseconds(5000)));
  task->cancel();
  auto future = done.get_future();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(3)), std::future_status::ready);
  auto error = future.get();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, URLSession::kCancelledCode);
  EXPECT_EQ(task->state(), URLSessionDataTask::State::Completed);
}

TEST(URLSession, BodiesUpToTheLimitArriveWholeAndLargerOnesFail) {
  LoopbackServer server;
  server.respond("/big", {.body = std::string(10u << 20, 'b')});
  server.respond("/huge", {.body = std::string(URLSession::kMaximumBodySize + 1, 'h')});
  auto big = fetch(URLSession::sharedSession(), requestFor(server.url("/big")));
  ASSERT_TRUE(big.data);
  EXPECT_EQ(big.data->size(), 10u << 20);
  auto huge = fetch(URLSession::sharedSession(), requestFor(server.url("/huge")));
  ASSERT_TRUE(huge.error);
  EXPECT_EQ(huge.error->code, 63);  // file too large
}

TEST(URLSession, CompletionsRunOneAtATime) {
  LoopbackServer server;
  server.respond("/a", {.body = "a"});
  auto session = URLSession::create();
  std::atomic<int> inside{0};
  std::atomic<int> overlap{0};
  std::atomic<int> finished{0};
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 20; ++i) {
    tasks.push_back(session->dataTaskWithRequest(
        requestFor(server.url("/a")),
        [&](std::optional<Data>, std::optional<HTTPURLResponse>, std::optional<Error>) {
          if (inside.fetch_add(1) != 0) ++overlap;
          std::this_thread::sleep_for(milliseconds(2));
          inside.fetch_sub(1);
          ++finished;
        }));
    tasks.back()->resume();
  }
  for (int i = 0; i < 500 && finished < 20; ++i) std::this_thread::sleep_for(milliseconds(10));
  EXPECT_EQ(finished.load(), 20);
  EXPECT_EQ(overlap.load(), 0);
}

TEST(URLSession, DestroyingASessionCancelsWhatIsStillRunning) {
  LoopbackServer server;
  server.respond("/slow", {.body = "late", .delay = milliseconds(5000)});
  std::optional<Error> error;
  {
    auto session = URLSession::create();
    session
        ->dataTaskWithRequest(requestFor(server.url("/slow")),
                              [&](std::optional<Data>, std::optional<HTTPURLResponse>,
                                  std::optional<Error> e) { error = e; })
        ->resume();
    ASSERT_TRUE(server.waitForRequests(1, milliseconds(5000)));
  }
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, URLSession::kCancelledCode);
}

}  // namespace
}  // namespace zorva::platform
