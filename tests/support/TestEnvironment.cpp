#include "support/TestEnvironment.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/AdvertisingIdentifierManager.h>
#include <zorva/platform/Application.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/LocationManager.h>
#include <zorva/platform/LogSink.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/MediaEngine.h>
#include <zorva/platform/ProcessInfo.h>
#include <zorva/platform/TimeZone.h>
#include <zorva/platform/UUID.h>
#include <zorva/platform/WebEngine.h>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLinkResolver.h"
#include "Common/ZVLog.h"
#include "Common/ZVUtility.h"

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
  ZVInstanceFactory::setSharedLocationManagerForTesting(nullptr);
  ZVUtility::resetCachesForTesting();
  ZVResetAppSuitabilityForTesting();
  // The platform: no windows, a phone in portrait, the machine's time zone, a headless engine
  // that finishes loads by itself, a headless media engine that plays 15 s media by itself,
  // location services not yet authorized.
  platform::Application::shared().reset();
  platform::DeviceProfile::phone().apply();
  platform::Device::currentDevice().setIdentifierForVendor(platform::UUID::create());
  platform::AdvertisingIdentifierManager::sharedManager().reset();
  platform::TimeZone::resetSystemTimeZone();
  platform::ProcessInfo::setProcessName("");
  platform::WebEngine::setFactory(nullptr);
  platform::HeadlessWebEngine::setAutomaticByDefault(true);
  platform::MediaEngine::setFactory(nullptr);
  platform::HeadlessMediaEngine::setAutomaticByDefault(true);
  platform::HeadlessMediaEngine::setAutomaticDuration(15);
  platform::LocationManager::reset();
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
