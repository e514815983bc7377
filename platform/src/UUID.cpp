#include "zorva/platform/UUID.h"

#include <uuid/uuid.h>

#include <cstring>

namespace zorva::platform {

UUID UUID::create() {
  UUID uuid;
  uuid_generate_random(uuid.bytes_.data());
  return uuid;
}

std::optional<UUID> UUID::fromString(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  char buffer[37];
  std::memcpy(buffer, text.data(), 36);
  buffer[36] = '\0';
  UUID uuid;
  if (uuid_parse(buffer, uuid.bytes_.data()) != 0) return std::nullopt;
  return uuid;
}

std::string UUID::UUIDString() const {
  char buffer[37];
  uuid_unparse_upper(bytes_.data(), buffer);
  return std::string(buffer, 36);
}

}  // namespace zorva::platform
