#include "Common/ZVUtility.h"

#include <zorva/platform/Bundle.h>

namespace zorva {

std::string ZVUtility::sdkVersion() { return "1.3.0"; }

std::string ZVUtility::sdkName() { return "ZorvaSDK"; }

Error ZVUtility::errorWithCode(std::int64_t code, const std::string& description) {
  return errorWithDomain(sdkName(), code, description);
}

Error ZVUtility::errorWithDomain(const std::string& domain, std::int64_t code,
                                 const std::string& description) {
  // Compared unsigned, so negative codes fall through to "InternalError" with the large ones.
  const char* name = "InternalError";
  switch (static_cast<std::uint64_t>(code)) {
    case 0:
      name = "NoAdsError";
      break;
    case 2:
      name = "RenderError";
      break;
    case 4:
      name = "InterstitialAlreadyShown";
      break;
    case 5:
      name = "InterstitialNotReady";
      break;
    default:
      break;
  }
  const std::string message = std::string(name) + "(" + std::to_string(code) + ") : " + description;
  const std::string localized =
      platform::Bundle::mainBundle().localizedStringForKey(message, "", "");
  return Error::withDescription(domain, code, localized);
}

}  // namespace zorva
