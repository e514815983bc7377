#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <numeric>
#include <thread>
#include <vector>

#include "support/TestEnvironment.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;

// The handles are dropped at once: the queue keeps its timers alive until they fire. An
// invalidated timer never runs and releases its action at once.
TEST(MainQueue, VirtualTimersFireOnlyWhenTimeIsAdvancedInFireDateOrderAndRepeatUntilInvalidated) {
  auto clock = test::useVirtualClock();
  auto& queue = MainQueue::shared();
  std::vector<std::string> fired;
  queue.scheduleTimer(seconds(30), [&] { fired.push_back("30"); });
  queue.scheduleTimer(seconds(10), [&] {
    fired.push_back("10");
    // A timer scheduled while firing counts from the fire date of the one that scheduled it.
    queue.scheduleTimer(seconds(15), [&] { fired.push_back("10+15"); });
  });
  auto owned = std::make_shared<int>(7);
  std::weak_ptr<int> watch = owned;
  auto invalidated = queue.scheduleTimer(seconds(1), [&fired, owned] { fired.push_back("1"); });
  owned.reset();
  EXPECT_TRUE(invalidated->isValid());
  invalidated->invalidate();
  EXPECT_FALSE(invalidated->isValid());
  EXPECT_TRUE(watch.expired());
  queue.runUntilIdle();
  EXPECT_TRUE(fired.empty());
  queue.advanceBy(seconds(29.999));
  EXPECT_EQ(fired, (std::vector<std::string>{"10", "10+15"}));
  queue.advanceBy(milliseconds(1));
  EXPECT_EQ(fired, (std::vector<std::string>{"10", "10+15", "30"}));

  // A repeating timer fires every interval until invalidated from its own action.
  std::vector<TimePoint> times;
  auto captured = std::make_shared<int>();
  std::shared_ptr<Timer> timer;
  timer = queue.scheduleRepeatingTimer(std::chrono::microseconds(2500), [&, captured] {
    times.push_back(queue.now());
    if (times.size() == 5) timer->invalidate();
  });
  const TimePoint start = queue.now();
  watch = captured;
  captured.reset();
  queue.advanceBy(milliseconds(10));
  ASSERT_EQ(times.size(), 4u);
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_EQ(times[i] - start, std::chrono::microseconds(2500) * static_cast<int>(i + 1));
  }
  queue.advanceBy(milliseconds(100));
  EXPECT_EQ(times.size(), 5u);
  EXPECT_FALSE(timer->isValid());
  EXPECT_TRUE(watch.expired());  // the action, released with the timer
  EXPECT_FALSE(queue.nextFireDate().has_value());

  // The clock jumps past twenty fire dates at once, as if the thread had been busy: one fire.
  int count = 0;
  auto busy = queue.scheduleRepeatingTimer(milliseconds(1), [&] { ++count; });
  const auto firstDate = busy->fireDate();
  clock->setNow(clock->now() + std::chrono::microseconds(20500));
  queue.runUntilIdle();
  EXPECT_EQ(count, 1);
  EXPECT_GT(busy->fireDate(), queue.now());
  EXPECT_EQ((busy->fireDate() - firstDate) % milliseconds(1), Duration::zero());
  busy->invalidate();
}

// A real-clock timer fires in runUntil, which otherwise gives up. Tasks posted from another thread
// run in order on the main thread, and stop ends run from there.
TEST(MainQueue, RealClockTimersFireAndOtherThreadsPostInOrderAndStopRun) {
  auto& queue = MainQueue::shared();
  bool fired = false;
  auto timer = queue.scheduleTimer(milliseconds(20), [&] { fired = true; });
  EXPECT_TRUE(test::runMainQueueUntil([&] { return fired; }, milliseconds(2000)));
  EXPECT_FALSE(timer->isValid());
  EXPECT_FALSE(test::runMainQueueUntil([] { return false; }, milliseconds(30)));
  // It gives up even when the queue is never idle.
  bool spin = true;
  std::function<void()> busy = [&] {
    if (spin) queue.post(busy);
  };
  queue.post(busy);
  EXPECT_FALSE(test::runMainQueueUntil([] { return false; }, milliseconds(30)));
  spin = false;
  queue.runUntilIdle();

  std::vector<int> order, expected(100);
  std::iota(expected.begin(), expected.end(), 0);
  std::atomic<int> offMain{0};
  std::thread poster([&] {
    for (int i : expected) {
      queue.post([&, i] {
        offMain += !queue.isCurrent();
        order.push_back(i);
      });
    }
    queue.stop();
  });
  queue.run();
  poster.join();
  queue.runUntilIdle();
  EXPECT_EQ(offMain.load(), 0);
  EXPECT_EQ(order, expected);
}

}  // namespace
}  // namespace zorva::platform
