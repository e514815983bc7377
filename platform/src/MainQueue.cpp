#include "zorva/platform/MainQueue.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace zorva::platform {

namespace {
[[noreturn]] void misuse(const char* what) {
  std::fprintf(stderr, "zorva::platform::MainQueue: %s\n", what);
  std::abort();
}

// Wakes the main thread after work was added, without the queue's lock held: the loop is read
// in the same locked section that added the work, so a waiter woken here does not find the lock
// taken again by the thread that woke it and sleep a second time.
void wakeUp(std::condition_variable& wake, const std::shared_ptr<EventLoop>& loop) {
  wake.notify_all();
  if (loop) loop->wake();
}
}  // namespace

void Timer::invalidate() {
  MainQueue* queue = nullptr;
  std::function<void()> released;  // what the action captured goes as soon as we return
  {
    std::lock_guard lock(mutex_);
    if (!valid_) return;
    valid_ = false;
    queue = queue_;
    released = std::move(action_);
  }
  if (queue != nullptr) queue->cancel(*this);
}

bool Timer::isValid() const {
  std::lock_guard lock(mutex_);
  return valid_;
}

TimePoint Timer::fireDate() const {
  std::lock_guard lock(mutex_);
  return fireDate_;
}

MainQueue& MainQueue::shared() {
  // Never destroyed: work posted by other threads during process exit must find a live queue.
  static MainQueue* queue = new MainQueue();
  return *queue;
}

MainQueue::MainQueue()
    : clock_(std::make_shared<RealClock>()), owner_(std::this_thread::get_id()) {}

MainQueue::~MainQueue() = default;

void MainQueue::post(std::function<void()> task) {
  std::shared_ptr<EventLoop> loop;
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    loop = eventLoop_;
  }
  wakeUp(wake_, loop);
}

std::shared_ptr<Timer> MainQueue::scheduleTimer(Duration delay, std::function<void()> action) {
  if (delay < Duration::zero()) delay = Duration::zero();
  const TimePoint now = clock_->now();
  // A delay past the end of the clock's range means the end of it, not an overflow into the past.
  const TimePoint fireDate = delay < TimePoint::max() - now ? now + delay : TimePoint::max();
  std::shared_ptr<Timer> timer(new Timer(fireDate, Duration::zero(), std::move(action)));
  std::shared_ptr<EventLoop> loop;
  {
    std::lock_guard lock(mutex_);
    timer->queue_ = this;
    timer->sequence_ = nextSequence_++;
    timers_.emplace(TimerKey{timer->fireDate_, timer->sequence_}, timer);
    loop = eventLoop_;
  }
  wakeUp(wake_, loop);
  return timer;
}

std::shared_ptr<Timer> MainQueue::scheduleRepeatingTimer(Duration interval,
                                                         std::function<void()> action) {
  interval = std::max(interval, kMinimumTimerInterval);
  std::shared_ptr<Timer> timer(new Timer(clock_->now() + interval, interval, std::move(action)));
  std::shared_ptr<EventLoop> loop;
  {
    std::lock_guard lock(mutex_);
    timer->queue_ = this;
    timer->sequence_ = nextSequence_++;
    timers_.emplace(TimerKey{timer->fireDate_, timer->sequence_}, timer);
    loop = eventLoop_;
  }
  wakeUp(wake_, loop);
  return timer;
}

void MainQueue::wakeWaiters() {
  std::shared_ptr<EventLoop> loop;
  {
    std::lock_guard lock(mutex_);
    loop = eventLoop_;
  }
  wakeUp(wake_, loop);
}

void MainQueue::waitUntil(std::unique_lock<std::mutex>& lock, TimePoint deadline) {
  if (!eventLoop_) {
    if (deadline == TimePoint::max()) {
      wake_.wait(lock);
    } else {
      wake_.wait_until(lock, deadline);
    }
    return;
  }
  std::shared_ptr<EventLoop> loop = eventLoop_;
  lock.unlock();
  loop->waitUntil(deadline);
  lock.lock();
}

void MainQueue::setEventLoop(std::shared_ptr<EventLoop> loop) {
  {
    std::lock_guard lock(mutex_);
    eventLoop_ = std::move(loop);
  }
  wake_.notify_all();
}

void MainQueue::cancel(const Timer& timer) {
  std::shared_ptr<Timer> removed;  // released outside the lock: its action may own anything
  {
    std::lock_guard lock(mutex_);
    auto it = timers_.find(TimerKey{timer.fireDate_, timer.sequence_});
    if (it == timers_.end()) return;
    removed = std::move(it->second);
    timers_.erase(it);
  }
}

bool MainQueue::isCurrent() const {
  std::lock_guard lock(mutex_);
  return owner_ == std::this_thread::get_id();
}

void MainQueue::bindToCurrentThread() {
  std::lock_guard lock(mutex_);
  owner_ = std::this_thread::get_id();
}

void MainQueue::setClock(std::shared_ptr<Clock> clock) {
  std::lock_guard lock(mutex_);
  clock_ = std::move(clock);
}

void MainQueue::reset() {
  std::deque<std::function<void()>> tasks;
  std::map<TimerKey, std::shared_ptr<Timer>> timers;
  {
    std::lock_guard lock(mutex_);
    tasks.swap(tasks_);
    timers.swap(timers_);
    stopRequested_ = false;
  }
  for (auto& [key, timer] : timers) {
    std::function<void()> released;
    std::lock_guard timerLock(timer->mutex_);
    timer->valid_ = false;
    released = std::move(timer->action_);
  }
}

bool MainQueue::runOneReadyItem() {
  std::function<void()> work;
  std::shared_ptr<Timer> repeating;
  {
    std::lock_guard lock(mutex_);
    const TimePoint now = clock_->now();
    if (!tasks_.empty()) {
      work = std::move(tasks_.front());
      tasks_.pop_front();
    } else if (!timers_.empty() && timers_.begin()->first.first <= now) {
      auto node = timers_.extract(timers_.begin());
      std::shared_ptr<Timer> timer = node.mapped();
      std::lock_guard timerLock(timer->mutex_);
      if (!timer->valid_) return true;
      if (timer->interval_ > Duration::zero()) {
        // The node goes back under its next fire date: re-arming costs no allocation.
        const auto missed = (now - timer->fireDate_) / timer->interval_;
        timer->fireDate_ += timer->interval_ * (missed + 1);
        timer->sequence_ = nextSequence_++;
        node.key() = TimerKey{timer->fireDate_, timer->sequence_};
        timers_.insert(std::move(node));
        // Run outside the lock with the action moved out, so that an invalidation from inside
        // it cannot destroy the function while it runs; it goes back afterwards.
        work = std::move(timer->action_);
        repeating = std::move(timer);
      } else {
        timer->valid_ = false;
        // The timer object stays alive for the caller's handle; the action moves out so that
        // what it captured is released as soon as it has run.
        work = std::move(timer->action_);
      }
    } else {
      return false;
    }
  }
  if (work) work();
  if (repeating) {
    std::lock_guard timerLock(repeating->mutex_);
    if (repeating->valid_) repeating->action_ = std::move(work);
  }
  return true;
}

std::size_t MainQueue::runUntilIdle() {
  if (!isCurrent()) misuse("runUntilIdle called off the main thread");
  std::size_t count = 0;
  while (runOneReadyItem()) ++count;
  return count;
}

void MainQueue::run() {
  if (!isCurrent()) misuse("run called off the main thread");
  for (;;) {
    while (runOneReadyItem()) {
      std::lock_guard lock(mutex_);
      if (stopRequested_) break;
    }
    std::unique_lock lock(mutex_);
    if (stopRequested_) {
      stopRequested_ = false;
      return;
    }
    if (!tasks_.empty()) continue;
    // Real clock: sleep until the next timer is due, or until new work is posted.
    const bool timed = !timers_.empty() && !clock_->isVirtual();
    waitUntil(lock, timed ? timers_.begin()->first.first : TimePoint::max());
  }
}

void MainQueue::stop() {
  {
    std::lock_guard lock(mutex_);
    stopRequested_ = true;
  }
  wakeWaiters();
}

bool MainQueue::runUntil(const std::function<bool()>& predicate, Duration timeout) {
  if (!isCurrent()) misuse("runUntil called off the main thread");
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (predicate()) return true;
    // Checked before each item: a queue that is never idle (a timer due again by the time the
    // predicate has looked) must not hold the caller past its deadline.
    if (std::chrono::steady_clock::now() >= deadline) return false;
    // With an outside loop, the loop runs the queue's ready work between its own events (a
    // screen to draw, a pipeline's message), so that neither starves while the other is busy;
    // alone, the queue runs one item and looks again. (The loop is set and read on this thread.)
    if (!eventLoop_ && runOneReadyItem()) continue;
    std::unique_lock lock(mutex_);
    if (stopRequested_) {
      stopRequested_ = false;
      return predicate();
    }
    if (!eventLoop_ && !tasks_.empty()) continue;
    // The predicate may watch other threads, which do not wake the queue: look again often.
    auto wakeAt =
        std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(2));
    if (!timers_.empty() && !clock_->isVirtual()) {
      // Both sides are on the steady clock when the clock is real.
      wakeAt = std::min(wakeAt, timers_.begin()->first.first);
    }
    waitUntil(lock, wakeAt);
  }
}

void MainQueue::advanceBy(Duration delta) {
  if (!isCurrent()) misuse("advanceBy called off the main thread");
  auto* virtualClock = dynamic_cast<VirtualClock*>(clock_.get());
  if (virtualClock == nullptr) misuse("advanceBy needs a virtual clock");
  const TimePoint target = virtualClock->now() + delta;
  for (;;) {
    runUntilIdle();
    std::optional<TimePoint> next;
    {
      std::lock_guard lock(mutex_);
      if (!timers_.empty() && timers_.begin()->first.first <= target) {
        next = timers_.begin()->first.first;
      }
    }
    if (!next) break;
    virtualClock->setNow(*next);
  }
  virtualClock->setNow(target);
  runUntilIdle();
}

std::optional<TimePoint> MainQueue::nextFireDate() const {
  std::lock_guard lock(mutex_);
  if (timers_.empty()) return std::nullopt;
  return timers_.begin()->first.first;
}

std::size_t MainQueue::pendingTaskCount() const {
  std::lock_guard lock(mutex_);
  return tasks_.size();
}

}  // namespace zorva::platform
