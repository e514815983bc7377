#pragma once

#include <mutex>

#include "zorva/platform/UUID.h"

namespace zorva::platform {

/// The advertising identifier and the user's tracking choice. A new random identifier with
/// tracking enabled at start and after `reset`. Thread-safe.
class AdvertisingIdentifierManager {
 public:
  static AdvertisingIdentifierManager& sharedManager();

  UUID advertisingIdentifier() const;
  void setAdvertisingIdentifier(const UUID& identifier);
  bool isAdvertisingTrackingEnabled() const;
  void setAdvertisingTrackingEnabled(bool enabled);

  void reset();

 private:
  AdvertisingIdentifierManager();
  mutable std::mutex mutex_;
  UUID identifier_;
  bool trackingEnabled_ = true;
};

}  // namespace zorva::platform
