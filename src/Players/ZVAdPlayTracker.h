#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <zorva/platform/MainQueue.h>

namespace zorva {

/// Tells the display player when its session is over: a one-shot timer of `sessionTime` seconds
/// on the main queue.
///
/// A scheduled timer holds its tracker until it fires or is invalidated, so a tracker its owner
/// has let go of (or replaced) still runs its callback when the time comes. A second
/// `trackCompletion` replaces the callback and the stored timer without cancelling the first
/// timer, which still fires and so runs the newer callback. An owner that must end the session
/// with itself invalidates `timer()`. Main thread only.
class ZVAdPlayTracker : public std::enable_shared_from_this<ZVAdPlayTracker> {
 public:
  using Completion = std::function<void()>;

  static std::shared_ptr<ZVAdPlayTracker> create(std::uint64_t sessionTime = 0);
  ~ZVAdPlayTracker();

  std::uint64_t sessionTime() const { return sessionTime_; }
  void setSessionTime(std::uint64_t seconds) { sessionTime_ = seconds; }
  const std::shared_ptr<platform::Timer>& timer() const { return timer_; }
  const Completion& completionBlock() const { return completionBlock_; }

  /// Keeps `completion` (replacing any earlier one) and starts a new timer.
  void trackCompletion(Completion completion);
  /// The timer's action: runs the stored callback, if any.
  void onCompletion();

 private:
  explicit ZVAdPlayTracker(std::uint64_t sessionTime) : sessionTime_(sessionTime) {}

  std::uint64_t sessionTime_;
  std::shared_ptr<platform::Timer> timer_;
  Completion completionBlock_;
};

}  // namespace zorva
