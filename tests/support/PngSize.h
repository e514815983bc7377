#pragma once

#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

namespace zorva::test {

/// Width and height from a PNG file's header; nothing when the file is not a PNG.
inline std::optional<std::pair<int, int>> pngSize(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() < 24 || bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") ||
      bytes.compare(12, 4, "IHDR")) {
    return std::nullopt;
  }
  auto bigEndian = [&](std::size_t at) {
    int value = 0;
    for (std::size_t i = 0; i < 4; ++i)
      value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
  };
  return std::pair{bigEndian(16), bigEndian(20)};
}

}  // namespace zorva::test
