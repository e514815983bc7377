// Bytes → several VAST documents, split at NUL bytes (which XML cannot hold). The first is the ad
// server's answer; each Wrapper's "VASTAdTagURI" fetch, in the order the parser asks, is answered
// with the next document by an in-process network handler, and with a transport error once they
// run out. The parse must report once (or never, for a first answer without Ad), with a
// document of one ad no deeper than the chain allows, and let go of everything afterwards.
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <zorva/platform/MainQueue.h>

#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"
#include "Vast/ZVVastParser.h"

namespace {

using namespace zorva;

void check(bool condition) {
  if (!condition) __builtin_trap();
}

// Answers fetches from a list of bodies, one at a time when told to, as the session's worker
// thread would.
class ScriptedNetworkHandler : public ZVNetworkHandler {
 public:
  explicit ScriptedNetworkHandler(std::deque<std::string> bodies)
      : ZVNetworkHandler(nullptr), bodies_(std::move(bodies)) {}

  void fetchRequest(const platform::URLRequest& request, Completion completion) override {
    pending_.emplace_back(request.url.has_value(), std::move(completion));
  }

  // Answers the oldest pending fetch; false when none is pending.
  bool answerOne() {
    if (pending_.empty()) return false;
    auto [hasURL, completion] = std::move(pending_.front());
    pending_.pop_front();
    if (!hasURL || bodies_.empty()) {
      completion(std::nullopt, Error("libcurl", hasURL ? 7 : 3));
    } else {
      std::string body = std::move(bodies_.front());
      bodies_.pop_front();
      completion(std::move(body), std::nullopt);
    }
    return true;
  }

 private:
  std::deque<std::string> bodies_;
  std::deque<std::pair<bool, Completion>> pending_;
};

int chainLength(std::shared_ptr<ZVVastAd> ad) {
  int length = 0;
  for (; ad; ad = ad->parent()) ++length;
  return length;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto& queue = platform::MainQueue::shared();
  queue.bindToCurrentThread();
  std::deque<std::string> documents;
  const std::string input(reinterpret_cast<const char*>(data), size);
  for (std::size_t start = 0;;) {
    const std::size_t end = input.find('\0', start);
    documents.push_back(input.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  const std::string answer = std::move(documents.front());
  documents.pop_front();
  const auto network = std::make_shared<ScriptedNetworkHandler>(std::move(documents));
  ZVInstanceFactory::setSharedNetworkhandlerForTesting(network);

  int calls = 0;
  std::shared_ptr<ZVVast> result;
  std::optional<Error> error;
  std::weak_ptr<ZVVastParser> parser;
  {
    auto strong = ZVVastParser::create();
    parser = strong;
    strong->parse(answer, [&](std::shared_ptr<ZVVast> vast, std::optional<Error> failure) {
      ++calls;
      check((vast != nullptr) != failure.has_value());
      result = std::move(vast);
      error = std::move(failure);
    });
  }
  while (network->answerOne()) {
  }
  queue.runUntilIdle();
  ZVInstanceFactory::setSharedNetworkhandlerForTesting(nullptr);
  check(calls <= 1);
  check(parser.expired());
  if (error) {
    const auto code = error->code;
    check(code == 100 || code == 101 || code == 302 || code == 303);
    return 0;
  }
  if (!result) return 0;
  check(result->ads.size() == 1);
  const auto& ad = result->ads.front();
  check(chainLength(ad) <= ZVVastParser::kMaximumWrapperDepth + 1);
  (void)ad->aggregatedErrorUrlsbyReplacingErrorWithValue("303");
  (void)ad->aggregatedImpressionUrl();
  for (const char* event : {"start", "midpoint", "complete", "pause", "creativeView"}) {
    (void)ad->aggregatedTrackersForEvent(event);
  }
  return 0;
}
