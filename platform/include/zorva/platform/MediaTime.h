#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "zorva/platform/Clock.h"

namespace zorva::platform {

/// A media time as a rational number of seconds (value / timescale), the platform's `CMTime`.
/// A time with no positive timescale is invalid; an indefinite time stands for a duration not
/// known (a live stream). Both give NaN as seconds, so arithmetic on them never passes a test.
struct MediaTime {
  std::int64_t value = 0;
  std::int32_t timescale = 0;
  bool indefinite = false;

  /// `value` / `timescale` seconds (`CMTimeMake`).
  static constexpr MediaTime make(std::int64_t value, std::int32_t timescale) {
    return MediaTime{value, timescale, false};
  }
  /// `seconds` rounded to the nearest tick of `timescale`.
  static MediaTime makeWithSeconds(double seconds, std::int32_t timescale) {
    if (!std::isfinite(seconds) || timescale <= 0) return invalid();
    return make(std::llround(seconds * timescale), timescale);
  }
  /// The time of a main-queue duration, in nanoseconds.
  static constexpr MediaTime fromDuration(Duration duration) {
    return make(duration.count(), 1'000'000'000);
  }
  static constexpr MediaTime zero() { return make(0, 1); }
  static constexpr MediaTime invalid() { return MediaTime{}; }
  static constexpr MediaTime indefiniteTime() { return MediaTime{0, 0, true}; }

  constexpr bool isNumeric() const { return timescale > 0 && !indefinite; }

  /// The time in seconds (`CMTimeGetSeconds`); NaN for an invalid or indefinite time.
  constexpr double seconds() const {
    if (!isNumeric()) return std::numeric_limits<double>::quiet_NaN();
    return static_cast<double>(value) / timescale;
  }
  /// The time as a main-queue duration; zero for a time that is not numeric.
  constexpr Duration duration() const {
    if (!isNumeric()) return Duration::zero();
    // Split so that nanosecond values of long media do not overflow the multiplication.
    return Duration((value / timescale) * 1'000'000'000 +
                    (value % timescale) * 1'000'000'000 / timescale);
  }

  friend constexpr bool operator==(const MediaTime&, const MediaTime&) = default;
};

/// A span of media time (`CMTimeRange`): where it starts and how long it lasts.
struct TimeRange {
  MediaTime start;
  MediaTime duration;

  static TimeRange fromSeconds(double start, double duration) {
    return TimeRange{MediaTime::makeWithSeconds(start, 1'000'000'000),
                     MediaTime::makeWithSeconds(duration, 1'000'000'000)};
  }

  friend constexpr bool operator==(const TimeRange&, const TimeRange&) = default;
};

}  // namespace zorva::platform
