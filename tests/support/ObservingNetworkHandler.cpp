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

void ObservingNetworkHandler::fetchRequestWithStatus(const platform::URLRequest& request,
                                                     StatusCompletion completion) {
  platform::URLRequest sent = request;
  if (defaultTimeout_ && sent.timeoutInterval == platform::URLRequest::kDefaultTimeoutInterval) {
    sent.timeoutInterval = *defaultTimeout_;
  }
  ZVNetworkHandler::fetchRequestWithStatus(
      sent, [state = state_, completion = std::move(completion)](
                std::optional<Data> data, long status, std::optional<Error> error) {
        if (completion) completion(std::move(data), status, std::move(error));
        std::lock_guard lock(state->mutex);
        ++state->completed;
        state->changed.notify_all();
      });
}

void ObservingNetworkHandler::fetchUrls(const std::vector<std::string>& urls,
                                        Completion completion) {
  {
    std::lock_guard lock(state_->mutex);
    state_->handedOver.push_back(urls);
  }
  ZVNetworkHandler::fetchUrls(urls, std::move(completion));
}

bool ObservingNetworkHandler::waitForCompletedFetches(int count,
                                                      std::chrono::milliseconds timeout) const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, timeout, [&] { return state_->completed >= count; });
}

std::vector<std::vector<std::string>> ObservingNetworkHandler::handedOverUrls() const {
  std::lock_guard lock(state_->mutex);
  return state_->handedOver;
}

}  // namespace zorva::test
