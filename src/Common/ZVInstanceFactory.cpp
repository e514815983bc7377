#include "Common/ZVInstanceFactory.h"

#include <mutex>

#include "Common/ZVLocationManager.h"
#include "Network/ZVNetworkHandler.h"

namespace zorva {

namespace {
// Made on first use. The lock only makes the first use and the test seam safe to meet from two
// threads; in practice the first use is on the main thread.
std::mutex instancesMutex;
std::shared_ptr<ZVNetworkHandler> networkHandler;
std::shared_ptr<ZVLocationManager> locationManager;
}  // namespace

std::shared_ptr<ZVNetworkHandler> ZVInstanceFactory::sharedNetworkhandler() {
  std::lock_guard lock(instancesMutex);
  if (!networkHandler) networkHandler = ZVNetworkHandler::create();
  return networkHandler;
}

void ZVInstanceFactory::setSharedNetworkhandlerForTesting(
    std::shared_ptr<ZVNetworkHandler> handler) {
  std::lock_guard lock(instancesMutex);
  networkHandler = std::move(handler);
}

std::shared_ptr<ZVLocationManager> ZVInstanceFactory::sharedLocationManager() {
  std::lock_guard lock(instancesMutex);
  if (!locationManager) locationManager = ZVLocationManager::create();
  return locationManager;
}

void ZVInstanceFactory::setSharedLocationManagerForTesting(
    std::shared_ptr<ZVLocationManager> manager) {
  std::lock_guard lock(instancesMutex);
  locationManager = std::move(manager);
}

}  // namespace zorva
