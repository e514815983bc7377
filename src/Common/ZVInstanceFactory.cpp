#include "Common/ZVInstanceFactory.h"

#include <mutex>

#include "Network/ZVNetworkHandler.h"

namespace zorva {

namespace {
// Made on first use. The lock only makes the first use and the test seam safe to meet from two
// threads; in practice the first use is on the main thread.
std::mutex instancesMutex;
std::shared_ptr<ZVNetworkHandler> networkHandler;
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

}  // namespace zorva
