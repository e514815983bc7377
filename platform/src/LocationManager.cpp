#include "zorva/platform/LocationManager.h"

#include <algorithm>
#include <mutex>

#include "zorva/platform/MainQueue.h"

namespace zorva::platform {

namespace {
std::mutex stateMutex;
AuthorizationStatus status = AuthorizationStatus::NotDetermined;
std::optional<Location> simulated;
// Managers alive, to find the pending ones; each removes itself when destroyed.
std::vector<LocationManager*> managers;
}  // namespace

std::shared_ptr<LocationManager> LocationManager::create() {
  auto manager = std::shared_ptr<LocationManager>(new LocationManager());
  std::lock_guard lock(stateMutex);
  managers.push_back(manager.get());
  return manager;
}

LocationManager::~LocationManager() {
  std::lock_guard lock(stateMutex);
  std::erase(managers, this);
}

void LocationManager::requestLocation() {
  requesting_ = true;
  std::optional<Location> fix;
  {
    std::lock_guard lock(stateMutex);
    fix = simulated;
  }
  if (fix) answer(std::vector<Location>{*fix}, std::nullopt);
}

void LocationManager::answer(std::optional<std::vector<Location>> locations,
                             std::optional<Error> error) {
  requesting_ = false;
  MainQueue::shared().post(
      [weak = weak_from_this(), locations = std::move(locations), error = std::move(error)] {
        auto self = weak.lock();
        if (!self) return;
        auto delegate = self->delegate();
        if (!delegate) return;
        if (locations) {
          delegate->locationManagerDidUpdateLocations(*self, *locations);
        } else if (error) {
          delegate->locationManagerDidFailWithError(*self, *error);
        }
      });
}

AuthorizationStatus LocationManager::authorizationStatus() {
  std::lock_guard lock(stateMutex);
  return status;
}

void LocationManager::setAuthorizationStatus(AuthorizationStatus newStatus) {
  std::lock_guard lock(stateMutex);
  status = newStatus;
}

void LocationManager::deliverLocations(const std::vector<Location>& locations) {
  std::vector<std::shared_ptr<LocationManager>> pending;
  {
    std::lock_guard lock(stateMutex);
    for (auto* manager : managers) {
      if (!manager->requesting_) continue;
      if (auto alive = manager->weak_from_this().lock()) pending.push_back(std::move(alive));
    }
  }
  for (const auto& manager : pending) manager->answer(locations, std::nullopt);
}

void LocationManager::failPendingRequests(const Error& error) {
  std::vector<std::shared_ptr<LocationManager>> pending;
  {
    std::lock_guard lock(stateMutex);
    for (auto* manager : managers) {
      if (!manager->requesting_) continue;
      if (auto alive = manager->weak_from_this().lock()) pending.push_back(std::move(alive));
    }
  }
  for (const auto& manager : pending) manager->answer(std::nullopt, error);
}

void LocationManager::setSimulatedLocation(std::optional<Location> location) {
  std::lock_guard lock(stateMutex);
  simulated = location;
}

void LocationManager::reset() {
  std::lock_guard lock(stateMutex);
  status = AuthorizationStatus::NotDetermined;
  simulated.reset();
}

}  // namespace zorva::platform
