#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "zorva/platform/Clock.h"

namespace zorva::platform {

class MainQueue;

/// A timer on the main queue, one-shot or repeating. Like the phone platform's timers, a scheduled
/// timer is kept alive by the queue until it fires (one-shot) or is invalidated: dropping the
/// handle does not cancel it. Owners that must not be called back after they are gone invalidate
/// their timer in their destructor, or capture themselves weakly in the action.
class Timer {
 public:
  /// Cancels the timer; its action will not run again. Safe from any thread, idempotent.
  void invalidate();
  /// True until a one-shot timer has fired, or until the timer is invalidated.
  bool isValid() const;
  /// The next time the timer fires.
  TimePoint fireDate() const;
  /// The period of a repeating timer; zero for a one-shot one.
  Duration timeInterval() const { return interval_; }

 private:
  friend class MainQueue;
  Timer(TimePoint fireDate, Duration interval, std::function<void()> action)
      : fireDate_(fireDate), interval_(interval), action_(std::move(action)) {}

  // Moves forward as a repeating timer fires; changed under both the queue's and this mutex.
  TimePoint fireDate_;
  const Duration interval_;
  std::function<void()> action_;
  MainQueue* queue_ = nullptr;
  std::uint64_t sequence_ = 0;
  mutable std::mutex mutex_;
  bool valid_ = true;
};

/// An outside event loop the main queue waits in, so that the queue's tasks and timers and the
/// loop's own events (GLib's main context, where GStreamer and WebKit signal) interleave on one
/// thread. The loop is expected to run the queue's ready work itself as well, so a host may drive
/// either the queue (`run`, `runUntil`) or the loop.
class EventLoop {
 public:
  virtual ~EventLoop() = default;
  /// Main thread: lets the loop handle its events, returning once it has handled some, once
  /// `deadline` (on the steady clock) has passed, or once `wake` is called.
  virtual void waitUntil(TimePoint deadline) = 0;
  /// Any thread: makes the `waitUntil` in progress, or else the next one, return promptly.
  virtual void wake() = 0;
};

/// The one main queue of the process: tasks posted from any thread run one at a time, in order,
/// on the thread that drives the queue (the "main thread"); one-shot timers fire there too.
///
/// A host drives it with `run` (until `stop`) or `runUntil`, or bridges it into its own loop.
/// Tests and the demo may swap in a `VirtualClock`: timers then fire only when `advanceBy` moves
/// the time, so no test ever sleeps.
class MainQueue {
 public:
  /// The process-wide queue, bound at first use to the calling thread.
  static MainQueue& shared();

  MainQueue();
  ~MainQueue();
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;

  /// Queues `task` to run on the main thread after the tasks already queued. Any thread.
  void post(std::function<void()> task);

  /// Schedules `action` to run once on the main thread `delay` from now (on the queue's clock).
  std::shared_ptr<Timer> scheduleTimer(Duration delay, std::function<void()> action);
  /// Schedules `action` to run on the main thread every `interval` (at least
  /// `kMinimumTimerInterval`), first `interval` from now, until the timer is invalidated. Fire
  /// dates stay on the grid of the first one; fires missed while the thread was busy are
  /// skipped, not made up. A firing allocates nothing, so high-rate ticks stay cheap.
  std::shared_ptr<Timer> scheduleRepeatingTimer(Duration interval, std::function<void()> action);
  static constexpr Duration kMinimumTimerInterval = std::chrono::microseconds(100);

  /// True when called on the thread the queue is bound to.
  bool isCurrent() const;
  /// Makes the calling thread the main thread (a host whose loop runs elsewhere, a test).
  void bindToCurrentThread();

  /// Replaces the clock. Pending timers keep their fire dates on the old time line, so a clock
  /// is chosen before anything is scheduled (hosts at start-up, tests after `reset`).
  void setClock(std::shared_ptr<Clock> clock);
  const Clock& clock() const { return *clock_; }
  TimePoint now() const { return clock_->now(); }

  /// Makes `run` and `runUntil` wait in `loop` instead of sleeping, and wakes `loop` whenever work
  /// is posted or scheduled (null: sleep again). Installed once, at start-up, on the main thread.
  void setEventLoop(std::shared_ptr<EventLoop> loop);

  /// Drops every queued task and timer (for tests between cases). Main thread only.
  void reset();

  /// Runs tasks and timers until `stop` is called. Main thread only.
  void run();
  /// Makes `run` (or `runUntil`) return after the task in progress. Any thread.
  void stop();

  /// Runs tasks and due timers until `predicate` holds or `timeout` of real time has passed,
  /// waiting for work posted from other threads in between. The predicate is looked at every few
  /// milliseconds too, so it may watch work done on other threads. Returns its last value.
  /// On a virtual clock no time passes here: timers fire only through `advanceBy`.
  bool runUntil(const std::function<bool()>& predicate, Duration timeout);

  /// Runs every task that is ready and every timer that is due, including work those queue, and
  /// returns how many ran. Never waits.
  std::size_t runUntilIdle();

  /// Virtual clock only: moves the time forward by `delta`, firing due timers in fire-date order
  /// with the clock set to each one's fire date, and running the tasks they queue.
  void advanceBy(Duration delta);

  /// The fire date of the earliest pending timer, if any.
  std::optional<TimePoint> nextFireDate() const;
  /// The number of tasks waiting to run.
  std::size_t pendingTaskCount() const;

 private:
  friend class Timer;
  using TimerKey = std::pair<TimePoint, std::uint64_t>;

  bool runOneReadyItem();
  void cancel(const Timer& timer);
  // Called after work is added, without the lock held.
  void wakeWaiters();
  // Waits until `deadline`, in the event loop when there is one. Takes the locked `lock` and
  // returns with it locked again.
  void waitUntil(std::unique_lock<std::mutex>& lock, TimePoint deadline);

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> tasks_;
  std::map<TimerKey, std::shared_ptr<Timer>> timers_;
  std::uint64_t nextSequence_ = 0;
  std::shared_ptr<Clock> clock_;
  std::shared_ptr<EventLoop> eventLoop_;
  std::thread::id owner_;
  bool stopRequested_ = false;
};

}  // namespace zorva::platform
