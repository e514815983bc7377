#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorva::platform {

/// A moment in calendar time.
using Date = std::chrono::system_clock::time_point;

/// A time zone: a fixed offset from GMT, or a region of the tz database ("Asia/Kolkata") whose
/// offset at a date comes from its transitions in /usr/share/zoneinfo (tzdata). Past the last
/// recorded transition (the files carry them to 2037) the last offset holds.
class TimeZone {
 public:
  /// A fixed zone; named "GMT" at 0, else "GMT+0530" / "GMT-0800".
  static TimeZone timeZoneForSecondsFromGMT(int seconds);
  /// The zone of that tz-database name ("UTC" and "GMT" included), or nothing when there is none.
  static std::optional<TimeZone> timeZoneWithName(std::string_view name);

  /// The zone the system runs in: the machine's (TZ, else /etc/localtime, else UTC) unless a host
  /// or a test set another. Thread-safe.
  static TimeZone systemTimeZone();
  static void setSystemTimeZone(const TimeZone& zone);
  /// Back to the machine's zone.
  static void resetSystemTimeZone();

  const std::string& name() const { return name_; }
  int secondsFromGMTForDate(Date date) const;

 private:
  struct Transitions;
  TimeZone(std::string name, int fixedOffset, std::shared_ptr<const Transitions> transitions)
      : name_(std::move(name)), fixedOffset_(fixedOffset), transitions_(std::move(transitions)) {}

  std::string name_;
  int fixedOffset_ = 0;
  std::shared_ptr<const Transitions> transitions_;
};

}  // namespace zorva::platform
