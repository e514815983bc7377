#include "support/ObservingNetworkHandler.h"

#include "Common/ZVInstanceFactory.h"

namespace zorva::test {

ObservingNetworkHandler::ObservingNetworkHandler()
    : ZVNetworkHandler(platform::URLSession::sharedSession()) {}

std::shared_ptr<ObservingNetworkHandler> ObservingNetworkHandler::install() {
  std::shared_ptr<ObservingNetworkHandler> handler(new ObservingNetworkHandler());
  ZVInstanceFactory::setSharedNetworkhandlerForTesting(handler);
  return handler;
}

void ObservingNetworkHandler::fetchRequest(const platform::URLRequest& request,
                                           Completion completion) {
  ZVNetworkHandler::fetchRequest(
      request, [this, completion = std::move(completion)](std::optional<Data> data,
                                                          std::optional<Error> error) {
        if (completion) completion(std::move(data), std::move(error));
        std::lock_guard lock(mutex_);
        ++completed_;
        changed_.notify_all();
      });
}

void ObservingNetworkHandler::fetchUrls(const std::vector<std::string>& urls,
                                        Completion completion) {
  {
    std::lock_guard lock(mutex_);
    handedOver_.push_back(urls);
  }
  ZVNetworkHandler::fetchUrls(urls, std::move(completion));
}

int ObservingNetworkHandler::completedFetches() const {
  std::lock_guard lock(mutex_);
  return completed_;
}

bool ObservingNetworkHandler::waitForCompletedFetches(int count,
                                                      std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return completed_ >= count; });
}

std::vector<std::vector<std::string>> ObservingNetworkHandler::handedOverUrls() const {
  std::lock_guard lock(mutex_);
  return handedOver_;
}

}  // namespace zorva::test
