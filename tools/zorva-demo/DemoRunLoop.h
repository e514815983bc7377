#pragma once

#include <zorva/platform/Clock.h>

#include <functional>

namespace zorva::platform {
class MainQueue;
}

namespace zorva::demo {

/// Drives the main queue the way the demo needs: ready work runs at once; while network requests
/// are in flight it waits for them in real time; when nothing is ready and nothing is in flight,
/// a virtual clock jumps straight to the next timer. So a 30-second banner refresh takes no time,
/// while real answers from a real server are never overtaken by virtual time. On a real clock the
/// queue simply runs, timers firing when they are due.
class DemoRunLoop {
 public:
  /// What counts as "work in flight off the main thread" (default: the shared URL session's
  /// tasks, each counted until its completion handler has returned).
  using Busy = std::function<bool()>;

  explicit DemoRunLoop(platform::MainQueue& queue, Busy busy = networkBusy);

  /// Runs until `predicate` holds. Gives up (answering the predicate's last value) after
  /// `realTimeout` of real time, or when a virtual clock reaches `virtualLimit` from now; when
  /// nothing is left that could change anything before the limit (no work, no timer before it,
  /// nothing in flight), the clock goes straight to the limit. The observer, if set, runs after
  /// every step (to watch state).
  bool runUntil(const std::function<bool()>& predicate, platform::Duration realTimeout,
                platform::Duration virtualLimit);
  /// Lets `duration` pass on the queue's clock while serving whatever happens meanwhile.
  void wait(platform::Duration duration);

  void setObserver(std::function<void()> observer) { observer_ = std::move(observer); }

  static bool networkBusy();

 private:
  platform::MainQueue& queue_;
  Busy busy_;
  std::function<void()> observer_;
};

}  // namespace zorva::demo
