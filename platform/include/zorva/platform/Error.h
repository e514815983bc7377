#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zorva/platform/Value.h"

namespace zorva::platform {

/// User-info key under which an error carries its human-readable description.
inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";

/// The one error value of the platform and the SDK: a domain, a signed code and a user-info
/// dictionary. Platform errors keep the domain and code of the library that raised them
/// (`libcurl`, `nlohmann::json`, `expat`); the SDK's own errors use the domain "ZorvaSDK".
struct Error {
  std::string domain;
  std::int64_t code = 0;
  Value userInfo = Value::object();

  Error() = default;
  Error(std::string domain, std::int64_t code, Value userInfo = Value::object());

  /// An error whose user-info holds only `description` under the localized-description key.
  static Error withDescription(std::string domain, std::int64_t code,
                               const std::string& description);

  /// The localized description from the user-info, or a generic sentence naming the domain and
  /// code when the user-info has none.
  std::string localizedDescription() const;

  friend bool operator==(const Error&, const Error&) = default;
};

}  // namespace zorva::platform
