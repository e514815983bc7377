// The loading spine: reading a bid response, and a whole ad load over loopback beside a bare
// libcurl POST to the same server, made on the calling thread and handed to a thread of its own
// (the limit a loader that answers on the main thread can approach).
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>

#include <atomic>

#include "Common/ZVAdLoader.h"
#include "support/CurlBody.h"
#include "support/HandOff.h"
#include "support/LoopbackServer.h"
#include "support/ProcessCpu.h"
#include "support/Ratio.h"

namespace {

const std::string kBid =
    R"({"id":"r1","seatbid":[{"seat":"s","bid":[{"id":"b1","impid":"1","price":1.25,)"
    R"("adm":"<div><a href=\"https://example.com/landing\">Ad</a><img src=\"https://cdn.example.com/a.png\"></div>",)"
    R"("w":320,"h":50,"ext":{"skadn":{"version":"2.0","network":"abc.skadnetwork","campaign":"4",)"
    R"("itunesitem":"880047117","nonce":"473b1a16-b4ef-43ad-9591-fcf3aefa82a7","sourceapp":"123",)"
    R"("timestamp":"1594406341","signature":"MEQCIEQlmZRNfYzKBSE8QnhLTIHZZZWCFgZpRqRxHss65KoFAiAJgJKjdrWdkLUOCCjuEx2RmFS7daRzSVZRVZ8RyMyUXg=="}}}]}]})";

void BM_ReadBidResponse(benchmark::State& state) {
  for (auto _ : state) {
    auto reading = zorva::ZVAdLoader::readResponse(kBid);
    benchmark::DoNotOptimize(reading.ad);
  }
}
BENCHMARK(BM_ReadBidResponse);

zorva::test::LoopbackServer& server() {
  static auto* s = [] {
    auto* created = new zorva::test::LoopbackServer();
    created->respond("/bid", {.body = kBid});
    return created;
  }();
  return *s;
}

// The bid request every side of the comparison sends.
constexpr const char* kRequestBody =
    R"({"id":"bench","imp":[{"id":"1","banner":{"w":320,"h":50}}]})";

zorva::platform::URLRequest bidRequest() {
  zorva::platform::URLRequest request(zorva::platform::URL::URLWithString(server().url("/bid")));
  request.HTTPMethod = "POST";
  request.HTTPBody = kRequestBody;
  return request;
}

class FixedBuilder : public zorva::ZVRequestBuilding {
 public:
  void build(Completion completion) override { completion(bidRequest(), std::nullopt); }
};

class CountingDelegate : public zorva::ZVAdLoaderDelegate {
 public:
  void didReceiveAd(std::shared_ptr<zorva::ZorvaAd>) override { ++received; }
  void didFailToReceivedAd(const zorva::Error&) override { ++failed; }
  std::atomic<int> received{0};
  std::atomic<int> failed{0};
};

// One ad load per iteration: build, POST, response read on the worker, ad on the main queue.
void BM_LoaderRoundTrip(benchmark::State& state) {
  auto& queue = zorva::platform::MainQueue::shared();
  queue.bindToCurrentThread();
  auto loader = zorva::ZVAdLoader::create(std::make_shared<zorva::ZVAdLoaderConfig>());
  auto delegate = std::make_shared<CountingDelegate>();
  loader->setDelegate(delegate);
  loader->setRequestBuilder(std::make_shared<FixedBuilder>());
  const zorva::bench::ProcessCpu cpu;
  for (auto _ : state) {
    const int before = delegate->received + delegate->failed;
    loader->load();
    queue.runUntil([&] { return delegate->received + delegate->failed > before; },
                   std::chrono::seconds(10));
  }
  cpu.report(state);
  if (delegate->failed > 0) state.SkipWithError("a load failed");
}
BENCHMARK(BM_LoaderRoundTrip)->UseRealTime();

// The loader's exchange without the loader: the same POST as a data task of the URL session,
// answered on the main queue. Beside the handed-over baseline it shows what the session's own
// hand-overs cost; beside the loader, what building the request and reading the bid cost.
void BM_SessionRoundTrip(benchmark::State& state) {
  auto& queue = zorva::platform::MainQueue::shared();
  queue.bindToCurrentThread();
  auto session = zorva::platform::URLSession::sharedSession();
  const auto request = bidRequest();
  int done = 0;
  const zorva::bench::ProcessCpu cpu;
  for (auto _ : state) {
    const int before = done;
    session
        ->dataTaskWithRequest(
            request,
            [&](auto, auto, auto) { zorva::platform::MainQueue::shared().post([&] { ++done; }); })
        ->resume();
    queue.runUntil([&] { return done > before; }, std::chrono::seconds(10));
  }
  cpu.report(state);
}
BENCHMARK(BM_SessionRoundTrip)->UseRealTime();

// The same POST with a bare curl handle, reused as a tight client would, asking for the encodings
// the SDK asks for, so that both exchanges are the same on the wire. The body is kept, as any
// client keeps what it is going to read.
class BarePost {
 public:
  BarePost() : url_(server().url("/bid")), easy_(curl_easy_init()) {
    curl_easy_setopt(easy_, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, kRequestBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, zorva::bench::appendToString);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
    curl_easy_setopt(easy_, CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
  }
  ~BarePost() { curl_easy_cleanup(easy_); }
  BarePost(const BarePost&) = delete;
  BarePost& operator=(const BarePost&) = delete;

  bool perform() {
    body_.clear();
    return curl_easy_perform(easy_) == CURLE_OK;
  }
  const std::string& body() const { return body_; }

 private:
  std::string url_;
  std::string body_;
  CURL* easy_;
};

void BM_BareCurlPost(benchmark::State& state) {
  BarePost post;
  const zorva::bench::ProcessCpu cpu;
  for (auto _ : state) {
    if (!post.perform()) state.SkipWithError("curl failed");
  }
  cpu.report(state);
}
BENCHMARK(BM_BareCurlPost)->UseRealTime();

// The bare POST made on a thread of its own while the calling thread sleeps; `parseBid` has that
// thread parse the bid with nlohmann too, as the loader must before it can answer.
void handedOverPosts(benchmark::State& state, bool parseBid) {
  BarePost post;
  zorva::bench::HandOff handOff;
  bool ok = true;
  const zorva::bench::ProcessCpu cpu;
  for (auto _ : state) {
    handOff.run([&] {
      ok = post.perform() && ok;
      if (parseBid) ok = !zorva::Value::parse(post.body(), nullptr, false).is_discarded() && ok;
    });
  }
  cpu.report(state);
  if (!ok) state.SkipWithError("curl or the parse failed");
}

// The two wake-ups an exchange on a network thread answered on the main thread costs, with no
// SDK around them.
void BM_BareCurlPostHandedOver(benchmark::State& state) { handedOverPosts(state, false); }
BENCHMARK(BM_BareCurlPostHandedOver)->UseRealTime();

// The least a loader reading the bid on its network thread can cost.
void BM_BareCurlPostParsedHandedOver(benchmark::State& state) { handedOverPosts(state, true); }
BENCHMARK(BM_BareCurlPostParsedHandedOver)->UseRealTime();

[[maybe_unused]] const bool kRatio =
    zorva::bench::reportRatio("BM_LoaderRoundTrip/real_time", "BM_BareCurlPost/real_time") &&
    zorva::bench::reportRatio("BM_LoaderRoundTrip/real_time",
                              "BM_BareCurlPostHandedOver/real_time") &&
    zorva::bench::reportRatio("BM_LoaderRoundTrip/real_time",
                              "BM_BareCurlPostParsedHandedOver/real_time") &&
    zorva::bench::reportRatio("BM_SessionRoundTrip/real_time",
                              "BM_BareCurlPostHandedOver/real_time") &&
    zorva::bench::reportRatio("BM_BareCurlPostParsedHandedOver/real_time",
                              "BM_BareCurlPost/real_time") &&
    zorva::bench::reportRatio("BM_BareCurlPostHandedOver/real_time", "BM_BareCurlPost/real_time");

}  // namespace
