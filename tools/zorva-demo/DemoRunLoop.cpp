#include "zorva-demo/DemoRunLoop.h"

#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>

#include <algorithm>

namespace zorva::demo {

namespace {
// How long a wait in real time lasts before the loop looks at everything again.
constexpr platform::Duration kSlice = std::chrono::milliseconds(20);
// When nothing is queued, scheduled or in flight, a little real time for a straggler posted
// from another thread before the loop concludes that nothing more will happen.
constexpr platform::Duration kQuietGrace = std::chrono::milliseconds(30);
}  // namespace

DemoRunLoop::DemoRunLoop(platform::MainQueue& queue, Busy busy)
    : queue_(queue), busy_(std::move(busy)) {}

bool DemoRunLoop::networkBusy() {
  return platform::URLSession::sharedSession()->tasksInFlight() > 0;
}

bool DemoRunLoop::runUntil(const std::function<bool()>& predicate, platform::Duration realTimeout,
                           platform::Duration virtualLimit) {
  const auto realDeadline = std::chrono::steady_clock::now() + realTimeout;
  const auto virtualDeadline = queue_.now() + virtualLimit;
  const bool isVirtual = queue_.clock().isVirtual();
  auto check = [&] {
    if (observer_) observer_();
    return predicate();
  };
  auto remaining = [&] {
    return std::max(
        platform::Duration::zero(),
        std::min<platform::Duration>(kSlice, realDeadline - std::chrono::steady_clock::now()));
  };
  // Ready work, or a change the predicate sees, ends a real-time wait early.
  auto somethingToDo = [&] { return queue_.pendingTaskCount() > 0 || check(); };

  for (;;) {
    queue_.runUntilIdle();
    if (check()) return true;
    if (std::chrono::steady_clock::now() >= realDeadline) return false;
    if (!isVirtual) {
      if (queue_.now() >= virtualDeadline) return check();
      queue_.runUntil(somethingToDo, remaining());
      continue;
    }
    if (busy_()) {
      queue_.runUntil([&] { return !busy_() || somethingToDo(); }, remaining());
      continue;
    }
    const auto next = queue_.nextFireDate();
    if (next && *next <= virtualDeadline) {
      queue_.advanceBy(std::max(platform::Duration::zero(), *next - queue_.now()));
      continue;
    }
    // Nothing will happen on the virtual clock before the limit: give other threads a last
    // chance, then let the time run out (as a user waiting would) and stop.
    if (queue_.runUntil([&] { return busy_() || somethingToDo(); }, kQuietGrace)) continue;
    queue_.advanceBy(std::max(platform::Duration::zero(), virtualDeadline - queue_.now()));
    return check();
  }
}

void DemoRunLoop::wait(platform::Duration duration) {
  const auto until = queue_.now() + duration;
  runUntil([&] { return queue_.now() >= until; }, duration + std::chrono::seconds(30), duration);
}

}  // namespace zorva::demo
