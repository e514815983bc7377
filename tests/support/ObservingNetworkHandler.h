#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Network/ZVNetworkHandler.h"

namespace zorva::test {

/// The real network handler, on the real shared session, that also records what it is handed:
/// how many fetches have fully returned (so a test knows a late answer has been dealt with) and
/// every list of tracking URLs given to `fetchUrls`. Installed through the factory's test seam.
class ObservingNetworkHandler : public ZVNetworkHandler {
 public:
  /// Makes one and installs it as the shared network handler.
  static std::shared_ptr<ObservingNetworkHandler> install();

  void fetchRequestWithStatus(const platform::URLRequest& request,
                              StatusCompletion completion) override;
  void fetchUrls(const std::vector<std::string>& urls, Completion completion) override;

  /// Waits (in real time, without running the main queue) for `count` fetches whose completion
  /// (and everything it called) has returned.
  bool waitForCompletedFetches(int count, std::chrono::milliseconds timeout) const;
  std::vector<std::vector<std::string>> handedOverUrls() const;
  /// Requests that keep the platform's default time-out (the VAST wrapper fetches) get this one
  /// instead, so a server that never answers fails in test time.
  void setDefaultTimeout(double seconds) { defaultTimeout_ = seconds; }

 private:
  ObservingNetworkHandler();
  // Shared with completions in flight: a test may drop the handler while the network thread is
  // still counting a fetch.
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    int completed = 0;
    std::vector<std::vector<std::string>> handedOver;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
  std::optional<double> defaultTimeout_;
};

}  // namespace zorva::test
