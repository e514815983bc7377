#pragma once

#include <cstdint>

#include <zorva/ZVTypes.h>

namespace zorva {

/// Errors for the VAST standard's numeric error codes.
class ZVVastError {
 public:
  /// The error for `code`: domain "ZorvaSDK", the code unchanged, and the description
  /// "VAST error: <name>, Message: <message>" passed through the main bundle's string table so an
  /// app may translate it. Only 100 has a message; codes outside the standard's list have an
  /// empty name too.
  static Error vastErrorForErrorCode(std::int64_t code);
};

}  // namespace zorva
