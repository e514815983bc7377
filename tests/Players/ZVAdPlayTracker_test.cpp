#include <gtest/gtest.h>

#include <limits>

#include "Players/ZVAdPlayTracker.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::MainQueue;
using platform::seconds;

TEST(ZVAdPlayTracker, AReplacedTimerStillFiresAndRunsTheNewerCallbackUntilTheTrackerIsGone) {
  test::useVirtualClock();
  auto tracker = ZVAdPlayTracker::create(30);
  std::vector<std::string> runs;
  tracker->trackCompletion([&] { runs.push_back("first"); });
  MainQueue::shared().advanceBy(seconds(10));
  tracker->trackCompletion([&] { runs.push_back("second"); });
  MainQueue::shared().advanceBy(seconds(20));  // the first timer, due at 30 s
  EXPECT_EQ(runs, (std::vector<std::string>{"second"}));
  MainQueue::shared().advanceBy(seconds(10));  // the second, due at 40 s
  EXPECT_EQ(runs, (std::vector<std::string>{"second", "second"}));

  // A pending timer keeps its tracker: let go of by its owner, it still runs the last callback.
  tracker->trackCompletion([&] { runs.push_back("third"); });
  tracker->trackCompletion([&] { runs.push_back("fourth"); });
  std::weak_ptr<ZVAdPlayTracker> watch = tracker;
  tracker.reset();
  MainQueue::shared().advanceBy(seconds(60));
  EXPECT_EQ(runs, (std::vector<std::string>{"second", "second", "fourth", "fourth"}));
  EXPECT_TRUE(watch.expired());
}

TEST(ZVAdPlayTracker, TheLongestSessionTimeMeansPracticallyNever) {
  test::useVirtualClock();
  MainQueue::shared().advanceBy(seconds(1));
  auto tracker = ZVAdPlayTracker::create(std::numeric_limits<std::uint64_t>::max());
  bool ran = false;
  tracker->trackCompletion([&] { ran = true; });
  MainQueue::shared().advanceBy(std::chrono::hours(24 * 365 * 100));
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace zorva
