#pragma once

#include <chrono>
#include <mutex>

namespace zorva::platform {

using Duration = std::chrono::nanoseconds;
using TimePoint = std::chrono::steady_clock::time_point;

/// Converts seconds, as the SDK counts them, to a duration. Beyond the duration's range (about
/// 292 years) it saturates: a publisher's "never" stays never instead of wrapping into the past.
constexpr Duration seconds(double s) {
  constexpr double kLongest = std::chrono::duration<double>(Duration::max()).count();
  if (s >= kLongest) return Duration::max();
  if (s <= -kLongest) return Duration::min();
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(s));
}

/// The time source of the main queue. The real clock follows the machine; the virtual clock
/// moves only when told to, so a test or the demo can run thirty seconds of ad life at once.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual TimePoint now() const = 0;
  virtual bool isVirtual() const = 0;
};

class RealClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::steady_clock::now(); }
  bool isVirtual() const override { return false; }
};

class VirtualClock final : public Clock {
 public:
  TimePoint now() const override;
  bool isVirtual() const override { return true; }
  /// Moves the time to `t`; time never goes backwards.
  void setNow(TimePoint t);

 private:
  mutable std::mutex mutex_;
  TimePoint now_{};
};

}  // namespace zorva::platform
