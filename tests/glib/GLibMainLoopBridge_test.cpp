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

TEST_F(GLibMainLoopBridgeTest, QueueWaitsServeGLibAHostRunningGLibServesTheQueueAndPostsWakeIt) {
  static std::vector<std::string> order;  // reached by GLib's plain-function callbacks
  order.clear();
  // A tenth of a second apart, so that a busy machine's late wake-ups keep the order.
  g_idle_add_once([](gpointer) { order.push_back("glib idle"); }, nullptr);
  g_timeout_add_once(
      200, [](gpointer) { order.push_back("glib 200ms"); }, nullptr);
  queue().scheduleTimer(std::chrono::milliseconds(100), [&] { order.push_back("queue 100ms"); });
  queue().scheduleTimer(std::chrono::milliseconds(300), [&] { order.push_back("queue 300ms"); });

  ASSERT_TRUE(test::runMainQueueUntil([&] { return order.size() == 4; }));
  EXPECT_EQ(order,
            (std::vector<std::string>{"glib idle", "queue 100ms", "glib 200ms", "queue 300ms"}));

  // A host runs GLib itself: the queue's tasks and timers run there, and a task that waits again
  // (a nested `runUntil`) is still served inside its own dispatch.
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  std::vector<int> seen;
  queue().post([&] {
    queue().scheduleTimer(std::chrono::milliseconds(5), [&] { seen.push_back(1); });
    test::runMainQueueUntil([&] { return !seen.empty(); }, std::chrono::seconds(5));
    seen.push_back(2);
  });
  queue().scheduleTimer(std::chrono::milliseconds(500), [&] {
    seen.push_back(3);
    g_main_loop_quit(loop);
  });
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));

  // Work posted from another thread wakes a queue waiting in GLib. The post comes once the queue
  // sits in GLib's poll with no time-out and nothing pending: only the wake-up can end that wait.
  static std::atomic<bool> polling;
  polling = false;
  g_main_context_set_poll_func(nullptr, [](GPollFD* fds, guint count, gint timeout) {
    if (timeout != 0) polling = true;
    return g_poll(fds, count, timeout);
  });
  std::atomic<bool> ran{false};
  std::thread poster([&] {
    while (!polling) std::this_thread::yield();
    queue().post([&] {
      ran = true;
      queue().stop();
    });
  });
  queue().run();  // returns only through `stop`, which the posted task asks for
  poster.join();
  g_main_context_set_poll_func(nullptr, g_poll);
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace zorva::platform
