#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zorva/platform/Value.h"

namespace zorva::platform {

/// True when `bytes` is well-formed UTF-8 (no overlong forms, no surrogates, nothing past
/// U+10FFFF).
bool isValidUTF8(std::string_view bytes);

/// The text of `data` decoded as UTF-8, or nothing when it is not valid UTF-8 (as the phone
/// platform's string-from-data initialiser answers).
std::optional<std::string> stringFromUTF8Data(const Data& data);

/// The decimal number at the start of `text` (leading white space skipped, as much of a number
/// read as there is, 0 when there is none; hexadecimal, "inf" and "nan" are no number and give
/// 0) with "." as the decimal point whatever the process locale is: a GTK host sets the locale
/// from the environment.
float floatFromText(const std::string& text);
double doubleFromText(const std::string& text);

/// How the platform prints an absent string in a formatted message: "(null)".
std::string describe(const std::optional<std::string>& text);

}  // namespace zorva::platform
