#include "Common/ZVInstanceFactory.h"

#include <mutex>

#include "Common/ZVLocationManager.h"
#include "Network/ZVNetworkHandler.h"

namespace zorva {

namespace {
// Made on first use. The lock only makes the first use and the test seam safe to meet from two
// threads; in practice the first use is on the main thread. Never destroyed: a fetch that ends
// on the network thread while the process exits may still ask for the handler.
struct Instances {
  std::mutex mutex;
  std::shared_ptr<ZVNetworkHandler> networkHandler;
  std::shared_ptr<ZVLocationManager> locationManager;
};

Instances& instances() {
  static auto* shared = new Instances();
  return *shared;
}
}  // namespace

std::shared_ptr<ZVNetworkHandler> ZVInstanceFactory::sharedNetworkhandler() {
  auto& in = instances();
  std::lock_guard lock(in.mutex);
  if (!in.networkHandler) in.networkHandler = ZVNetworkHandler::create();
  return in.networkHandler;
}

void ZVInstanceFactory::setSharedNetworkhandlerForTesting(
    std::shared_ptr<ZVNetworkHandler> handler) {
  auto& in = instances();
  std::lock_guard lock(in.mutex);
  in.networkHandler = std::move(handler);
}

std::shared_ptr<ZVLocationManager> ZVInstanceFactory::sharedLocationManager() {
  auto& in = instances();
  std::lock_guard lock(in.mutex);
  if (!in.locationManager) in.locationManager = ZVLocationManager::create();
  return in.locationManager;
}

void ZVInstanceFactory::setSharedLocationManagerForTesting(
    std::shared_ptr<ZVLocationManager> manager) {
  auto& in = instances();
  std::lock_guard lock(in.mutex);
  in.locationManager = std::move(manager);
}

}  // namespace zorva
