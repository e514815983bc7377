#include <gtest/gtest.h>

#include "Players/ZVAdPlayTracker.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::MainQueue;
using platform::seconds;

TEST(ZVAdPlayTracker, AReplacedTimerStillFiresAndRunsTheNewerCallback) {
  test::useVirtualClock();
  auto tracker = ZVAdPlayTracker::create(30);
  std::vector<std::string> runs;
  tracker->trackCompletion([&] { runs.push_back("first"); });
  MainQueue::shared().advanceBy(seconds(10));
  auto firstTimer = tracker->timer();
  tracker->trackCompletion([&] { runs.push_back("second"); });
  EXPECT_NE(tracker->timer(), firstTimer);
  EXPECT_TRUE(firstTimer->isValid());
  MainQueue::shared().advanceBy(seconds(20));  // the first timer, due at 30 s
  EXPECT_EQ(runs, (std::vector<std::string>{"second"}));
  MainQueue::shared().advanceBy(seconds(10));  // the second, due at 40 s
  EXPECT_EQ(runs, (std::vector<std::string>{"second", "second"}));
}

TEST(ZVAdPlayTracker, NothingRunsAfterTheTrackerIsGone) {
  test::useVirtualClock();
  auto tracker = ZVAdPlayTracker::create(5);
  int runs = 0;
  tracker->trackCompletion([&] { ++runs; });
  tracker->trackCompletion([&] { ++runs; });  // leaves a replaced timer behind
  tracker.reset();
  MainQueue::shared().advanceBy(seconds(60));
  EXPECT_EQ(runs, 0);
}

}  // namespace
}  // namespace zorva
