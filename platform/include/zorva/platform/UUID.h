#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zorva::platform {

/// A 128-bit universally unique identifier (libuuid).
class UUID {
 public:
  /// A new random (version 4) identifier.
  static UUID create();
  /// The identifier written in `text` (hyphenated form, either case), or nothing.
  static std::optional<UUID> fromString(std::string_view text);

  /// Upper-case hyphenated form, e.g. "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
  std::string UUIDString() const;

  friend bool operator==(const UUID&, const UUID&) = default;

 private:
  UUID() = default;
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace zorva::platform
