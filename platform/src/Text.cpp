#include "zorva/platform/Text.h"

#include <locale.h>
#include <stdlib.h>

#include <string>

namespace zorva::platform {

namespace {

// The "C" locale, made once and kept for the process.
locale_t cLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

// The decimal number at the start of `text` (white space, a sign, digits with an optional
// fraction, an optional exponent), or an empty string when there is none: hexadecimal, "inf" and
// "nan", which the C library would read, are not decimal numbers.
std::string decimalPrefix(const std::string& text) {
  auto digit = [&](std::size_t at) {
    return at < text.size() && text[at] >= '0' && text[at] <= '9';
  };
  std::size_t end = 0;
  while (end < text.size() && (text[end] == ' ' || (text[end] >= '\t' && text[end] <= '\r'))) ++end;
  if (end < text.size() && (text[end] == '+' || text[end] == '-')) ++end;
  bool digits = false;
  for (; digit(end); ++end) digits = true;
  if (end < text.size() && text[end] == '.') {
    for (++end; digit(end); ++end) digits = true;
  }
  if (!digits) return std::string();
  if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
    std::size_t exponent = end + 1;
    if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) ++exponent;
    if (digit(exponent)) {
      for (end = exponent; digit(end); ++end) {
      }
    }
  }
  return text.substr(0, end);
}

}  // namespace

float floatFromText(const std::string& text) {
  return strtof_l(decimalPrefix(text).c_str(), nullptr, cLocale());
}

double doubleFromText(const std::string& text) {
  return strtod_l(decimalPrefix(text).c_str(), nullptr, cLocale());
}

bool isValidUTF8(std::string_view bytes) {
  const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  std::size_t i = 0;
  while (i < n) {
    const unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    std::size_t length = 0;
    std::uint32_t cp = 0;
    if ((c & 0xE0) == 0xC0) {
      length = 2;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      length = 3;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      length = 4;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (i + length > n) return false;
    for (std::size_t k = 1; k < length; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (s[i + k] & 0x3F);
    }
    static constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kSmallest[length] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

std::optional<std::string> stringFromUTF8Data(const Data& data) {
  if (!isValidUTF8(data)) return std::nullopt;
  return data;
}

std::string describe(const std::optional<std::string>& text) { return text ? *text : "(null)"; }

}  // namespace zorva::platform
