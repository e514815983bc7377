#include "support/TestEnvironment.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/LogSink.h>
#include <zorva/platform/MainQueue.h>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"

namespace zorva::test {

void resetProcessState() {
  auto& queue = platform::MainQueue::shared();
  queue.bindToCurrentThread();
  queue.reset();
  queue.setClock(std::make_shared<platform::RealClock>());
  platform::Bundle::mainBundle().reset();
  platform::LogSink::shared().setHandler(nullptr);
  ZVLog::setLevel(1);
  ZVInstanceFactory::setSharedNetworkhandlerForTesting(nullptr);
  auto sdk = ZorvaSDK::shared();
  sdk->setAppDomain(std::nullopt);
  sdk->setStoreURL(std::nullopt);
  sdk->setAppCategories(std::nullopt);
  sdk->setAppkeywords(std::nullopt);
  sdk->setUserKeywords(std::nullopt);
  sdk->setLocation(std::nullopt);
  sdk->setCoppa(false);
  sdk->setGdpr(false);
  sdk->setGdprConsent(std::nullopt);
}

std::shared_ptr<platform::VirtualClock> useVirtualClock() {
  auto clock = std::make_shared<platform::VirtualClock>();
  platform::MainQueue::shared().setClock(clock);
  return clock;
}

bool runMainQueueUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
  return platform::MainQueue::shared().runUntil(predicate, timeout);
}

LogCapture::LogCapture() : state_(std::make_shared<State>()) {
  platform::LogSink::shared().setHandler([state = state_](std::string_view entry) {
    std::lock_guard lock(state->mutex);
    state->entries.emplace_back(entry);
  });
}

LogCapture::~LogCapture() { platform::LogSink::shared().setHandler(nullptr); }

std::vector<std::string> LogCapture::entries() const {
  std::lock_guard lock(state_->mutex);
  return state_->entries;
}

std::vector<std::string> LogCapture::entriesContaining(const std::string& text) const {
  std::vector<std::string> found;
  for (auto& entry : entries()) {
    if (entry.find(text) != std::string::npos) found.push_back(entry);
  }
  return found;
}

}  // namespace zorva::test
