#include "Common/ZVLocationManager.h"

namespace zorva {

std::shared_ptr<ZVLocationManager> ZVLocationManager::create() {
  auto manager = std::shared_ptr<ZVLocationManager>(new ZVLocationManager());
  manager->locationManager_ = platform::LocationManager::create();
  manager->locationManager_->setDelegate(manager);
  return manager;
}

bool ZVLocationManager::locationAccessAllowed() const {
  const auto status = platform::LocationManager::authorizationStatus();
  return status == platform::AuthorizationStatus::AuthorizedAlways ||
         status == platform::AuthorizationStatus::AuthorizedWhenInUse;
}

void ZVLocationManager::fetchLocation(LocationCallback callback) {
  locationUpdateBlock_ = std::move(callback);
  if (!locationAccessAllowed()) {
    // A copy: the callback stays stored, and may replace itself from inside.
    auto now = locationUpdateBlock_;
    if (now) now(std::nullopt);
    return;
  }
  locationManager_->requestLocation();
}

void ZVLocationManager::locationManagerDidUpdateLocations(
    platform::LocationManager&, const std::vector<platform::Location>& locations) {
  if (!locationUpdateBlock_) return;
  auto callback = std::move(locationUpdateBlock_);
  locationUpdateBlock_ = nullptr;
  // An update without a fix answers with nothing, so that whoever waits goes on.
  callback(locations.empty() ? std::nullopt : std::optional(locations.front()));
}

void ZVLocationManager::locationManagerDidFailWithError(platform::LocationManager&, const Error&) {}

}  // namespace zorva
