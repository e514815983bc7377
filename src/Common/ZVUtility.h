#pragma once

#include <cstdint>
#include <string>

#include <zorva/ZVTypes.h>

namespace zorva {

/// Stateless facts and helpers of the SDK: its name and version, its error records, and (below)
/// what it knows of the app, the device, the operator, the locale and the screen.
class ZVUtility {
 public:
  /// "1.3.0".
  static std::string sdkVersion();
  /// "ZorvaSDK", also the domain of the SDK's errors.
  static std::string sdkName();

  /// An SDK error: domain "ZorvaSDK", `code`, and the localized description
  /// "<code name>(<code>) : <description>" (code names: 0 NoAdsError, 1 InternalError,
  /// 2 RenderError, 3 InternalError, 4 InterstitialAlreadyShown, 5 InterstitialNotReady, any
  /// other InternalError).
  static Error errorWithCode(std::int64_t code, const std::string& description);
  static Error errorWithDomain(const std::string& domain, std::int64_t code,
                               const std::string& description);
};

}  // namespace zorva
