#include "zorva/platform/NumberFormatter.h"

#include <charconv>
#include <cstdint>
#include <string>

namespace zorva::platform {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::optional<Value> NumberFormatter::numberFromString(std::string_view text) const {
  std::string_view body = text;
  bool negative = false;
  if (!body.empty() && (body.front() == '+' || body.front() == '-')) {
    negative = body.front() == '-';
    body.remove_prefix(1);
  }
  const auto point = body.find('.');
  const std::string_view whole = body.substr(0, point);
  const std::string_view fraction =
      point == std::string_view::npos ? std::string_view() : body.substr(point + 1);
  auto allDigits = [](std::string_view s) {
    for (char c : s) {
      if (!isDigit(c)) return false;
    }
    return true;
  };
  if (whole.empty() && fraction.empty()) return std::nullopt;
  if (!allDigits(whole) || !allDigits(fraction)) return std::nullopt;

  if (point == std::string_view::npos) {
    // from_chars takes no "+", so the sign is put back only when it is a minus.
    std::string digits = negative ? "-" + std::string(whole) : std::string(whole);
    std::int64_t integer = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), integer);
    if (error == std::errc() && end == digits.data() + digits.size()) return Value(integer);
  }
  std::string decimal = (negative ? "-" : "") + std::string(whole.empty() ? "0" : whole) + "." +
                        std::string(fraction.empty() ? "0" : fraction);
  double real = 0;
  auto [end, error] = std::from_chars(decimal.data(), decimal.data() + decimal.size(), real);
  if (error != std::errc() || end != decimal.data() + decimal.size()) return std::nullopt;
  return Value(real);
}

}  // namespace zorva::platform
