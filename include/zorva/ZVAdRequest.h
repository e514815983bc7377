#pragma once

#include <optional>
#include <string>

#include <zorva/ZorvaExport.h>

namespace zorva {

/// What one ad object asks the ad server for. The publisher fills it and hands it (shared) to a
/// banner view, interstitial or in-banner video, which reads it afresh at every load.
/// `publisherId` and `adunitId` must both be set before a load.
struct ZORVA_EXPORT ZVAdRequest {
  /// The default ad server endpoint: "http://<ad host>/zorva/servad".
  static std::string defaultServerUrl();

  std::optional<std::string> publisherId;
  /// Spelt with a lower-case u.
  std::optional<std::string> adunitId;
  /// Where bid requests are posted. When cleared, the next load puts the default back.
  std::optional<std::string> serverUrl = defaultServerUrl();
  /// Seconds before a bid request times out. (Spelt so on purpose.)
  unsigned long netoworkTimeout = 10;
};

}  // namespace zorva
