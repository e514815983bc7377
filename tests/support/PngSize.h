#pragma once

#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

namespace zorva::test {

/// Width and height from a PNG file's header; nothing when the file is not a PNG.
inline std::optional<std::pair<int, int>> pngSize(const std::string& path) {
  unsigned char header[24] = {};
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(header), sizeof header);
  if (std::memcmp(header, "\x89PNG\r\n\x1a\n", 8) || std::memcmp(header + 12, "IHDR", 4)) {
    return std::nullopt;
  }
  auto bigEndian = [&](int at) {
    return header[at] << 24 | header[at + 1] << 16 | header[at + 2] << 8 | header[at + 3];
  };
  return std::pair{bigEndian(16), bigEndian(20)};
}

}  // namespace zorva::test
