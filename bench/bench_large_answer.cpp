// Hostile answers: reading a bid object of a million keys beside nlohmann's own parse of the same
// text, and the memory one ad load takes while it reads a 50 MB answer.
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/MainQueue.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <string>

#include "Common/ZVAdLoader.h"
#include "support/Ratio.h"

namespace {

using zorva::platform::JSONSerialization;

std::string manyKeys() {
  std::string text = "{";
  for (int i = 0; i < 1000000; ++i) text += "\"key" + std::to_string(i) + "\":" + "1,";
  text.back() = '}';
  return text;
}

const std::string& manyKeysText() {
  static const auto* text = new std::string(manyKeys());
  return *text;
}

void BM_ReadMillionKeys(benchmark::State& state) {
  for (auto _ : state) {
    auto value = JSONSerialization::JSONObjectWithData(manyKeysText(), 0, nullptr);
    if (!value || value->size() != 1000000) state.SkipWithError("not read");
  }
  state.counters["MB"] = static_cast<double>(manyKeysText().size()) / 1e6;
}
BENCHMARK(BM_ReadMillionKeys)->Unit(benchmark::kMillisecond);

// nlohmann's parse into its unordered object (a sorted map): the reader's own builder keeps the
// keys in order, and nlohmann's ordered parse of this text takes minutes.
void BM_NlohmannParseMillionKeys(benchmark::State& state) {
  for (auto _ : state) {
    auto value = nlohmann::json::parse(manyKeysText());
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(BM_NlohmannParseMillionKeys)->Unit(benchmark::kMillisecond);

[[maybe_unused]] const bool kRatio =
    zorva::bench::reportRatio("BM_ReadMillionKeys", "BM_NlohmannParseMillionKeys");

// A kilobyte figure of /proc/self/status ("VmRSS", "VmHWM").
long statusKb(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string name;
  long kb = 0;
  while (status >> name) {
    if (name == field + ":" && status >> kb) return kb;
  }
  return -1;
}

// Serves `body` to every connection from a child process, whose memory is its own.
class ChildServer {
 public:
  explicit ChildServer(const std::string& body) {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(listener_, reinterpret_cast<sockaddr*>(&address), length);
    listen(listener_, 4);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    const std::string head =
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
        std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n";
    child_ = fork();
    if (child_ != 0) return;
    for (;;) {
      const int client = accept(listener_, nullptr, nullptr);
      char request[4096];
      (void)read(client, request, sizeof request);  // the bid request: small, sent whole
      for (const std::string* part : {&head, &body}) {
        for (std::size_t sent = 0; sent < part->size();) {
          const ssize_t n = write(client, part->data() + sent, part->size() - sent);
          if (n <= 0) break;
          sent += static_cast<std::size_t>(n);
        }
      }
      close(client);
    }
  }
  ~ChildServer() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    close(listener_);
  }
  ChildServer(const ChildServer&) = delete;
  ChildServer& operator=(const ChildServer&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/bid"; }

 private:
  int listener_ = -1;
  int port_ = 0;
  pid_t child_ = -1;
};

class Builder : public zorva::ZVRequestBuilding {
 public:
  explicit Builder(std::string url) : url_(std::move(url)) {}
  void build(Completion completion) override {
    zorva::platform::URLRequest request(zorva::platform::URL::URLWithString(url_));
    request.HTTPMethod = "POST";
    request.HTTPBody = R"({"id":"bench"})";
    completion(request, std::nullopt);
  }

 private:
  std::string url_;
};

class Delegate : public zorva::ZVAdLoaderDelegate {
 public:
  void didReceiveAd(std::shared_ptr<zorva::ZorvaAd>) override { done = true; }
  void didFailToReceivedAd(const zorva::Error&) override { done = true; }
  std::atomic<bool> done{false};
};

// One ad load of a 50 MB answer: the process's peak resident memory during the load (reset
// before it) over its resident memory before it, per byte of answer ("x_body").
void peakWhileReading(benchmark::State& state, const std::string& body) {
  auto& queue = zorva::platform::MainQueue::shared();
  queue.bindToCurrentThread();
  const ChildServer server(body);
  for (auto _ : state) {
    auto loader = zorva::ZVAdLoader::create(std::make_shared<zorva::ZVAdLoaderConfig>());
    auto delegate = std::make_shared<Delegate>();
    loader->setDelegate(delegate);
    loader->setRequestBuilder(std::make_shared<Builder>(server.url()));
    const long before = statusKb("VmRSS");
    std::ofstream("/proc/self/clear_refs") << "5";  // the high-water mark starts again here
    loader->load();
    queue.runUntil([&] { return delegate->done.load(); }, std::chrono::seconds(60));
    const long peak = statusKb("VmHWM");
    state.counters["x_body"] =
        static_cast<double>(peak - before) * 1024.0 / static_cast<double>(body.size());
    state.counters["peak_MB"] = static_cast<double>(peak - before) / 1024.0;
  }
}

constexpr std::size_t kLargeBody = 50u << 20;

void BM_PeakReadingWhitespace(benchmark::State& state) {
  peakWhileReading(state, std::string(kLargeBody, ' '));
}
BENCHMARK(BM_PeakReadingWhitespace)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_PeakReadingLargeBid(benchmark::State& state) {
  const std::string head = R"({"seatbid":[{"bid":[{"id":"b","w":320,"h":50,"adm":")";
  const std::string tail = R"("}]}]})";
  peakWhileReading(state, head + std::string(kLargeBody - head.size() - tail.size(), 'a') + tail);
}
BENCHMARK(BM_PeakReadingLargeBid)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
