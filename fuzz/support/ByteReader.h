// Reads typed values off the front of a fuzz input, so that one input describes a whole set of
// settings. Past the end every read gives zero, false or an empty text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <string>

namespace zorva::fuzz {

class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  std::uint8_t byte() { return offset_ < size_ ? data_[offset_++] : 0; }
  bool flag() { return (byte() & 1) != 0; }

  /// A length byte, then that many bytes (fewer at the end of the input).
  std::string text() {
    // The length byte is read first: as two arguments of one call, the order is unspecified
    // (GCC took the remaining size before the byte, and read one past the input).
    const std::size_t wanted = byte();
    const std::size_t length = std::min(wanted, size_ - offset_);
    std::string result(reinterpret_cast<const char*>(data_ + offset_), length);
    offset_ += length;
    return result;
  }
  std::optional<std::string> optionalText() {
    if (!flag()) return std::nullopt;
    return text();
  }

  /// A number that is often one a parser or writer finds awkward: zero, a sign, a fraction, a
  /// huge value, NaN or an infinity; else a small whole number or any 8 bytes.
  double number() {
    static constexpr double kAwkward[] = {0.0,
                                          -0.0,
                                          0.5,
                                          -1.0,
                                          1e308,
                                          std::numeric_limits<double>::quiet_NaN(),
                                          std::numeric_limits<double>::infinity(),
                                          -std::numeric_limits<double>::infinity()};
    const std::uint8_t selector = byte();
    switch (selector & 3u) {
      case 0:
        return kAwkward[(selector >> 2) % std::size(kAwkward)];
      case 1:
        return static_cast<double>(selector >> 2) * 10;
      default: {
        std::uint8_t bytes[sizeof(double)] = {};
        for (auto& b : bytes) b = byte();
        double value;
        std::memcpy(&value, bytes, sizeof value);
        return value;
      }
    }
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t offset_ = 0;
};

}  // namespace zorva::fuzz
