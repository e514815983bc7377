#include "zorva/platform/AdvertisingIdentifierManager.h"

namespace zorva::platform {

AdvertisingIdentifierManager& AdvertisingIdentifierManager::sharedManager() {
  static AdvertisingIdentifierManager* manager = new AdvertisingIdentifierManager();
  return *manager;
}

AdvertisingIdentifierManager::AdvertisingIdentifierManager() : identifier_(UUID::create()) {}

UUID AdvertisingIdentifierManager::advertisingIdentifier() const {
  std::lock_guard lock(mutex_);
  return identifier_;
}

void AdvertisingIdentifierManager::setAdvertisingIdentifier(const UUID& identifier) {
  std::lock_guard lock(mutex_);
  identifier_ = identifier;
}

bool AdvertisingIdentifierManager::isAdvertisingTrackingEnabled() const {
  std::lock_guard lock(mutex_);
  return trackingEnabled_;
}

void AdvertisingIdentifierManager::setAdvertisingTrackingEnabled(bool enabled) {
  std::lock_guard lock(mutex_);
  trackingEnabled_ = enabled;
}

void AdvertisingIdentifierManager::reset() {
  std::lock_guard lock(mutex_);
  identifier_ = UUID::create();
  trackingEnabled_ = true;
}

}  // namespace zorva::platform
