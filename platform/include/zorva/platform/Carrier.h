#pragma once

#include <optional>
#include <string>

namespace zorva::platform {

/// The cellular provider of the SIM: each fact absent when the network does not give it.
struct Carrier {
  std::optional<std::string> carrierName;
  /// ISO 3166-1 alpha-2 code of the provider's country, lower case ("in").
  std::optional<std::string> isoCountryCode;
  std::optional<std::string> mobileCountryCode;
  std::optional<std::string> mobileNetworkCode;
};

}  // namespace zorva::platform
