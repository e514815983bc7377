#include "zorva/engines/GLibMainLoopBridge.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/TestEnvironment.h"
#include "zorva/platform/MainQueue.h"

namespace zorva::platform {
namespace {

class GLibMainLoopBridgeTest : public testing::Test {
 protected:
  void SetUp() override { GLibMainLoopBridge::install(); }
  MainQueue& queue() { return MainQueue::shared(); }
};

TEST_F(GLibMainLoopBridgeTest, QueueWaitsServeGLibSourcesAndQueueWorkInOrder) {
  std::vector<std::string> order;
  g_idle_add_once(
      [](gpointer data) { static_cast<std::vector<std::string>*>(data)->push_back("glib idle"); },
      &order);
  g_timeout_add_once(
      20,
      [](gpointer data) { static_cast<std::vector<std::string>*>(data)->push_back("glib 20ms"); },
      &order);
  queue().scheduleTimer(std::chrono::milliseconds(5), [&] { order.push_back("queue 5ms"); });
  queue().scheduleTimer(std::chrono::milliseconds(40), [&] { order.push_back("queue 40ms"); });

  ASSERT_TRUE(test::runMainQueueUntil([&] { return order.size() == 4; }));
  EXPECT_EQ(order, (std::vector<std::string>{"glib idle", "queue 5ms", "glib 20ms", "queue 40ms"}));
}

TEST_F(GLibMainLoopBridgeTest, WorkPostedFromAnotherThreadWakesAQueueWaitingInGLib) {
  std::atomic<bool> ran{false};
  // Nothing else is pending: without the wake-up the wait would only end at the time-out.
  std::thread poster([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    queue().post([&] {
      ran = true;
      queue().stop();
    });
  });
  queue().run();  // returns only through `stop`, which the posted task asks for
  poster.join();
  EXPECT_TRUE(ran);
}

TEST_F(GLibMainLoopBridgeTest, AHostRunningGLibGetsTheQueuesTasksAndTimers) {
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  std::vector<int> seen;
  queue().post([&] { seen.push_back(1); });
  queue().scheduleTimer(std::chrono::milliseconds(10), [&] {
    seen.push_back(2);
    g_main_loop_quit(loop);
  });
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  EXPECT_EQ(seen, (std::vector<int>{1, 2}));
}

TEST_F(GLibMainLoopBridgeTest, ANestedWaitInsideATaskStillServesTheQueue) {
  bool innerDone = false;
  bool outerDone = false;
  queue().post([&] {
    queue().scheduleTimer(std::chrono::milliseconds(5), [&] { innerDone = true; });
    test::runMainQueueUntil([&] { return innerDone; }, std::chrono::seconds(5));
    outerDone = true;
  });
  ASSERT_TRUE(test::runMainQueueUntil([&] { return outerDone; }));
  EXPECT_TRUE(innerDone);
}

TEST_F(GLibMainLoopBridgeTest, AVirtualClockStillFiresOnlyThroughAdvanceBy) {
  test::useVirtualClock();
  int fired = 0;
  queue().scheduleTimer(std::chrono::seconds(30), [&] { ++fired; });
  // A real-time wait must neither fire the virtual timer nor spin on its (virtual) due date.
  EXPECT_FALSE(test::runMainQueueUntil([&] { return fired > 0; }, std::chrono::milliseconds(30)));
  queue().advanceBy(std::chrono::seconds(30));
  EXPECT_EQ(fired, 1);
}

}  // namespace
}  // namespace zorva::platform
