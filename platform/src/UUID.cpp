#include "zorva/platform/UUID.h"

#include <pthread.h>
#include <sys/random.h>
#include <uuid/uuid.h>

#include <atomic>
#include <cstring>
#include <mutex>

namespace zorva::platform {

namespace {

// Counts forks, so that a child never hands out the identifiers its parent's pools still hold.
std::atomic<unsigned> forks{0};

// Random bytes drawn from the kernel 32 identifiers at a time: the system call costs far more
// than the identifier, and a bid request needs two of them.
struct RandomPool {
  unsigned forksSeen = 0;
  std::size_t used = sizeof bytes;
  std::uint8_t bytes[32 * 16];

  // 16 fresh random bytes, or false when the kernel gives none.
  bool take(std::uint8_t* out) {
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, [] { ++forks; }); });
    const unsigned now = forks.load(std::memory_order_relaxed);
    if (forksSeen != now || used + 16 > sizeof bytes) {
      if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) return false;
      forksSeen = now;
      used = 0;
    }
    std::memcpy(out, bytes + used, 16);
    used += 16;
    return true;
  }
};

}  // namespace

UUID UUID::create() {
  thread_local RandomPool pool;
  UUID uuid;
  if (!pool.take(uuid.bytes_.data())) {
    uuid_generate_random(uuid.bytes_.data());
    return uuid;
  }
  // Version 4 (random) and the RFC 4122 variant, as libuuid marks them.
  uuid.bytes_[6] = static_cast<std::uint8_t>((uuid.bytes_[6] & 0x0F) | 0x40);
  uuid.bytes_[8] = static_cast<std::uint8_t>((uuid.bytes_[8] & 0x3F) | 0x80);
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
