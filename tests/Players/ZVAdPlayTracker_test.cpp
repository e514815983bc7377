#include <gtest/gtest.h>

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

  // Neither the tracker's timer nor one it replaced runs anything once the tracker is gone.
  tracker->trackCompletion([&] { runs.push_back("third"); });
  tracker->trackCompletion([&] { runs.push_back("fourth"); });
  tracker.reset();
  MainQueue::shared().advanceBy(seconds(60));
  EXPECT_EQ(runs.size(), 2u);
}

}  // namespace
}  // namespace zorva
