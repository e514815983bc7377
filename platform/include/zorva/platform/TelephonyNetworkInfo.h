#pragma once

#include <memory>
#include <optional>

#include "zorva/platform/Carrier.h"

namespace zorva::platform {

/// A view of the phone's cellular subscription. Each object reads the process-wide SIM state
/// that the host or a test sets with `setSubscriberCarrier`. Thread-safe.
class TelephonyNetworkInfo {
 public:
  static std::shared_ptr<TelephonyNetworkInfo> create();

  /// The subscriber's provider, or null when there is no SIM.
  std::shared_ptr<Carrier> subscriberCellularProvider() const;

  /// Installs (or, with nothing, removes) the SIM's provider.
  static void setSubscriberCarrier(std::optional<Carrier> carrier);

 private:
  TelephonyNetworkInfo() = default;
};

}  // namespace zorva::platform
