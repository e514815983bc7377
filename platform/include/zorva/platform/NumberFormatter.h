#pragma once

#include <optional>
#include <string_view>

#include "zorva/platform/Value.h"

namespace zorva::platform {

/// Reads numbers written in text, with the default settings: a plain decimal number, an
/// optional leading sign and an optional fraction after a ".", nothing else (no grouping, no
/// exponent, no surrounding space). Stateless, so one formatter may be shared.
class NumberFormatter {
 public:
  /// The number in `text`: an integer when it has no fraction and fits 64 bits, otherwise a
  /// double. Nothing when the text is not such a number.
  std::optional<Value> numberFromString(std::string_view text) const;
};

}  // namespace zorva::platform
