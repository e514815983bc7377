#include "zorva/platform/Locale.h"

#include <mutex>

namespace zorva::platform {

namespace {
std::mutex languagesMutex;
std::vector<std::string> languages{"en-US"};
}  // namespace

std::optional<std::string> Locale::languageCode() const {
  auto code = identifier_.substr(0, identifier_.find_first_of("-_@"));
  if (code.empty()) return std::nullopt;
  return code;
}

std::vector<std::string> Locale::preferredLanguages() {
  std::lock_guard lock(languagesMutex);
  return languages;
}

void Locale::setPreferredLanguages(std::vector<std::string> preferred) {
  std::lock_guard lock(languagesMutex);
  languages = std::move(preferred);
}

}  // namespace zorva::platform
