#include "zorva/platform/TimeZone.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>

namespace zorva::platform {

struct TimeZone::Transitions {
  int initialOffset = 0;
  // (moment in seconds since 1970, offset from then on), ascending.
  std::vector<std::pair<std::int64_t, int>> changes;
};

namespace {

constexpr const char* kZoneDirectory = "/usr/share/zoneinfo/";

std::int64_t readBigEndian(const std::string& bytes, std::size_t at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) {
    value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
  }
  if (width == 4) return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
  return static_cast<std::int64_t>(value);
}

// Reads the 64-bit block of a TZif file (version 2 and later; every tzdata file is). Nothing
// when the bytes are not such a file.
std::optional<std::pair<int, std::vector<std::pair<std::int64_t, int>>>> parseTZif(
    const std::string& bytes) {
  constexpr std::size_t kHeader = 44;
  auto counts = [&](std::size_t at) {
    std::array<std::size_t, 6> c{};
    for (std::size_t i = 0; i < 6; ++i) {
      c[i] = static_cast<std::size_t>(readBigEndian(bytes, at + 20 + 4 * i, 4));
    }
    return c;  // isutcnt, isstdcnt, leapcnt, timecnt, typecnt, charcnt
  };
  if (bytes.size() < kHeader || bytes.compare(0, 4, "TZif") != 0 || bytes[4] < '2') {
    return std::nullopt;
  }
  auto v1 = counts(0);
  std::size_t at = kHeader + v1[3] * 5 + v1[4] * 6 + v1[5] + v1[2] * 8 + v1[1] + v1[0];
  if (bytes.size() < at + kHeader || bytes.compare(at, 4, "TZif") != 0) return std::nullopt;
  auto v2 = counts(at);
  at += kHeader;
  const std::size_t timecnt = v2[3], typecnt = v2[4];
  if (typecnt == 0 || bytes.size() < at + timecnt * 9 + typecnt * 6) return std::nullopt;
  const std::size_t indices = at + timecnt * 8, types = indices + timecnt;
  auto offsetOfType = [&](std::size_t type) {
    return static_cast<int>(readBigEndian(bytes, types + 6 * std::min(type, typecnt - 1), 4));
  };
  std::vector<std::pair<std::int64_t, int>> changes;
  changes.reserve(timecnt);
  for (std::size_t i = 0; i < timecnt; ++i) {
    changes.emplace_back(readBigEndian(bytes, at + 8 * i, 8),
                         offsetOfType(static_cast<unsigned char>(bytes[indices + i])));
  }
  return std::pair{offsetOfType(0), std::move(changes)};
}

std::string fixedName(int seconds) {
  if (seconds == 0) return "GMT";
  const int magnitude = std::abs(seconds);
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "GMT%c%02d%02d", seconds < 0 ? '-' : '+', magnitude / 3600,
                magnitude / 60 % 60);
  return buffer;
}

std::string machineZoneName() {
  if (const char* tz = std::getenv("TZ"); tz && *tz) return tz[0] == ':' ? tz + 1 : tz;
  char target[512];
  auto length = ::readlink("/etc/localtime", target, sizeof target - 1);
  if (length > 0) {
    std::string path(target, static_cast<std::size_t>(length));
    if (auto at = path.find("zoneinfo/"); at != std::string::npos) return path.substr(at + 9);
  }
  return "UTC";
}

TimeZone machineZone() {
  if (auto zone = TimeZone::timeZoneWithName(machineZoneName())) return *zone;
  return TimeZone::timeZoneForSecondsFromGMT(0);
}

std::mutex systemMutex;
std::optional<TimeZone> systemZone;

}  // namespace

TimeZone TimeZone::timeZoneForSecondsFromGMT(int seconds) {
  return TimeZone(fixedName(seconds), seconds, nullptr);
}

std::optional<TimeZone> TimeZone::timeZoneWithName(std::string_view name) {
  if (name == "UTC" || name == "GMT") return TimeZone(std::string(name), 0, nullptr);
  // Only names inside the database: no absolute paths, no climbing out of it.
  if (name.empty() || name.front() == '/' || name.find("..") != std::string_view::npos) {
    return std::nullopt;
  }
  std::ifstream file(kZoneDirectory + std::string(name), std::ios::binary);
  if (!file) return std::nullopt;
  std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  auto parsed = parseTZif(bytes);
  if (!parsed) return std::nullopt;
  auto transitions = std::make_shared<Transitions>();
  transitions->initialOffset = parsed->first;
  transitions->changes = std::move(parsed->second);
  return TimeZone(std::string(name), 0, std::move(transitions));
}

TimeZone TimeZone::systemTimeZone() {
  std::lock_guard lock(systemMutex);
  if (!systemZone) systemZone = machineZone();
  return *systemZone;
}

void TimeZone::setSystemTimeZone(const TimeZone& zone) {
  std::lock_guard lock(systemMutex);
  systemZone = zone;
}

void TimeZone::resetSystemTimeZone() {
  std::lock_guard lock(systemMutex);
  systemZone.reset();
}

int TimeZone::secondsFromGMTForDate(Date date) const {
  if (!transitions_) return fixedOffset_;
  const auto moment =
      std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
  const auto& changes = transitions_->changes;
  auto after =
      std::upper_bound(changes.begin(), changes.end(), moment,
                       [](std::int64_t t, const auto& change) { return t < change.first; });
  return after == changes.begin() ? transitions_->initialOffset : std::prev(after)->second;
}

}  // namespace zorva::platform
