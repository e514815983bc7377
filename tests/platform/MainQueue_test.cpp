#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "support/TestEnvironment.h"

namespace zorva::platform {
namespace {

using std::chrono::milliseconds;

TEST(MainQueue, TasksPostedFromOtherThreadsRunInOrderOnTheMainThread) {
  auto& queue = MainQueue::shared();
  std::vector<int> order;
  std::atomic<int> offMain{0};
  std::thread poster([&] {
    for (int i = 0; i < 100; ++i) {
      queue.post([&, i] {
        if (!queue.isCurrent()) ++offMain;
        order.push_back(i);
      });
    }
  });
  poster.join();
  EXPECT_TRUE(test::runMainQueueUntil([&] { return order.size() == 100; }));
  EXPECT_EQ(offMain.load(), 0);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[i], i);
}

// The handles are dropped at once: the queue keeps its timers alive until they fire. An
// invalidated timer never runs and releases its action at once.
TEST(MainQueue, VirtualTimersFireOnlyWhenTimeIsAdvancedInFireDateOrder) {
  test::useVirtualClock();
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
}

// A real-clock timer fires in runUntil, which otherwise gives up; stop ends run from another
// thread.
TEST(MainQueue, RealClockTimersFireAndStopEndsRunFromAnotherThread) {
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

  int ran = 0;
  queue.post([&] { ++ran; });
  std::thread stopper([&] {
    queue.post([&] { ++ran; });
    queue.stop();
  });
  queue.run();
  stopper.join();
  queue.runUntilIdle();
  EXPECT_EQ(ran, 2);
}

TEST(MainQueue, RepeatingTimerFiresEveryIntervalUntilInvalidatedFromItsOwnAction) {
  auto clock = test::useVirtualClock();
  auto& queue = MainQueue::shared();
  std::vector<TimePoint> fired;
  auto captured = std::make_shared<int>();
  std::shared_ptr<Timer> timer;
  timer = queue.scheduleRepeatingTimer(std::chrono::microseconds(2500), [&, captured] {
    fired.push_back(queue.now());
    if (fired.size() == 5) timer->invalidate();
  });
  const TimePoint start = queue.now();
  const std::weak_ptr<int> watch = captured;
  captured.reset();
  queue.advanceBy(milliseconds(10));
  ASSERT_EQ(fired.size(), 4u);
  for (std::size_t i = 0; i < fired.size(); ++i) {
    EXPECT_EQ(fired[i] - start, std::chrono::microseconds(2500) * static_cast<int>(i + 1));
  }
  queue.advanceBy(milliseconds(100));
  EXPECT_EQ(fired.size(), 5u);
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

}  // namespace
}  // namespace zorva::platform
