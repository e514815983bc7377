#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
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

  void fetchRequest(const platform::URLRequest& request, Completion completion) override;
  void fetchUrls(const std::vector<std::string>& urls, Completion completion) override;

  /// Fetches whose completion (and everything it called) has returned.
  int completedFetches() const;
  /// Waits (in real time, without running the main queue) for `count` completed fetches.
  bool waitForCompletedFetches(int count, std::chrono::milliseconds timeout) const;
  std::vector<std::vector<std::string>> handedOverUrls() const;

 private:
  ObservingNetworkHandler();
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  int completed_ = 0;
  std::vector<std::vector<std::string>> handedOver_;
};

}  // namespace zorva::test
