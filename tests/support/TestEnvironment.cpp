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

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLinkResolver.h"
#include "Common/ZVLog.h"
#include "Common/ZVUtility.h"
#include "Network/ZVTrackingTransport.h"

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
  platform::DeviceProfile::forgetApplied();
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
  sdk->setSendRegulations(false);
  sdk->setUsPrivacy(std::nullopt);
  sdk->setGpp(std::nullopt);
  sdk->setGppSid({});
  sdk->setTestMode(false);
  sdk->setAppConventions(false);
  sdk->setVideoLoadTimeout(ZorvaSDK::kVideoLoadTimeout);
  sdk->setVastCdataText(false);
  sdk->setTrackingTransport(false);
  sdk->setTrackingQueuePath(std::nullopt);
  ZVTrackingTransport::setOptionsForTesting(std::nullopt);
}

std::shared_ptr<platform::VirtualClock> useVirtualClock() {
  auto clock = std::make_shared<platform::VirtualClock>();
  platform::MainQueue::shared().setClock(clock);
  return clock;
}

bool runMainQueueUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
  return platform::MainQueue::shared().runUntil(
      predicate, std::chrono::duration_cast<std::chrono::milliseconds>(timeout * timeScale()));
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

CommaDecimalLocale::CommaDecimalLocale() {
  static const std::string directory = [] {
    const std::string path = ::testing::TempDir() + "zorva-locales";
    const std::string command = "mkdir -p '" + path + "' && localedef -i de_DE -f UTF-8 '" + path +
                                "/de_DE.UTF-8' >/dev/null 2>&1";
    return std::system(command.c_str()) == 0 ? path : std::string();
  }();
  if (directory.empty()) return;
  ::setenv("LOCPATH", directory.c_str(), 1);
  active_ = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr &&
            std::string(std::localeconv()->decimal_point) == ",";
}

CommaDecimalLocale::~CommaDecimalLocale() {
  std::setlocale(LC_NUMERIC, "C");
  ::unsetenv("LOCPATH");
}

}  // namespace zorva::test
