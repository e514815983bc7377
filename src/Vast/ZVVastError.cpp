#include "Vast/ZVVastError.h"

#include <zorva/platform/Bundle.h>

#include <string>
#include <string_view>

#include "Common/ZVUtility.h"

namespace zorva {

namespace {

struct Entry {
  std::int64_t code;
  std::string_view name;
  std::string_view message;
};

constexpr Entry kEntries[] = {
    {100, "XML_PARSING_ERROR", "Failed to parse vast response."},
    {101, "UNSUPPORTED_VAST_VERSION", ""},
    {200, "TRAFFICKING_ERROR", ""},
    {201, "INCORRECT_LINEARITY", ""},
    {300, "GENERAL_WRAPPER_ERROR", ""},
    {301, "WRAPPER_TIMEOUT", ""},
    {302, "WRAPPER_THRESHOLD", ""},
    {303, "NO_VAST_RESPONSE", ""},
    {304, "AD_DISPLAY_TIMEOUT", ""},
    {400, "GENERAL_LINEAR_ERROR", ""},
    {401, "MEDIA_FILE_NOT_FOUND", ""},
    {402, "MEDIA_FILE_TIMEOUT", ""},
    {403, "NO_SUPPORTED_MEDIA_FILE", ""},
    {405, "MEDIA_FILE_DISPLAY_ERROR", ""},
    {410, "VERIFICATION_EXECUTION_ERROR", ""},
    {500, "GENERAL_NONLINEAR_AD_ERROR", ""},
    {501, "UNSUPPORTED_NONLINEAR_AD", ""},
    {502, "NO_NONLINEAR_AD", ""},
    {503, "NO_SUPPORTED_NONLINEAR_RESOURCE", ""},
    {600, "GENERAL_COMPANION_AD_ERROR", ""},
    {601, "UNSUPPORTED_COMPANION_AD", ""},
    {602, "COMPANION_AD_DISPLAY_ERROR", ""},
    {603, "NO_COMPANION_AD_ERROR", ""},
    {604, "NO_SUPPORTED_COMPANION_AD_RESOURCE", ""},
    {900, "UNDEFINED_ERROR", ""},
};

}  // namespace

Error ZVVastError::vastErrorForErrorCode(std::int64_t code) {
  std::string_view name;
  std::string_view message;
  for (const Entry& entry : kEntries) {
    if (entry.code == code) {
      name = entry.name;
      message = entry.message;
      break;
    }
  }
  std::string text = "VAST error: ";
  text.append(name).append(", Message: ").append(message);
  const std::string description =
      platform::Bundle::mainBundle().localizedStringForKey(text, "", "");
  return Error::withDescription(ZVUtility::sdkName(), code, description);
}

}  // namespace zorva
