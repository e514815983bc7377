#include "zorva/platform/TelephonyNetworkInfo.h"

#include <mutex>

namespace zorva::platform {

namespace {
std::mutex simMutex;
std::optional<Carrier> simCarrier;
}  // namespace

std::shared_ptr<TelephonyNetworkInfo> TelephonyNetworkInfo::create() {
  return std::shared_ptr<TelephonyNetworkInfo>(new TelephonyNetworkInfo());
}

std::shared_ptr<Carrier> TelephonyNetworkInfo::subscriberCellularProvider() const {
  std::lock_guard lock(simMutex);
  return simCarrier ? std::make_shared<Carrier>(*simCarrier) : nullptr;
}

void TelephonyNetworkInfo::setSubscriberCarrier(std::optional<Carrier> carrier) {
  std::lock_guard lock(simMutex);
  simCarrier = std::move(carrier);
}

}  // namespace zorva::platform
