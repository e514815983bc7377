// The demo's parts where the tour alone cannot show a fault: its timeline given odd input, and its
// virtual-time run loop racing a real answer.
#include <gtest/gtest.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>

#include <sstream>

#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "zorva-demo/DemoRunLoop.h"
#include "zorva-demo/Timeline.h"

namespace zorva::demo {
namespace {

using platform::Value;

TEST(DemoTimeline, OddBytesStillMakeAValidJsonLineAndTheBarStaysInItsBox) {
  std::ostringstream odd;
  Timeline timeline(odd, Timeline::Format::Json, false);
  timeline.setScenario("banner");
  timeline.emit("sdk", "bad \xff byte");
  EXPECT_EQ(Value::parse(odd.str())["scenario"], "banner");
  EXPECT_EQ(Timeline::progressBar(-1, 4), "[----]");
  EXPECT_EQ(Timeline::progressBar(7, 4), "[####]");
}

// The tour shows that virtual time jumps to timers and stops at its limits; a jump while an
// answer is on its way shows only as a flaky scenario there.
TEST(DemoRunLoop, NeverLetsVirtualTimeOvertakeAnAnswerInFlight) {
  test::useVirtualClock();
  auto& queue = platform::MainQueue::shared();
  test::LoopbackServer server;
  server.respond("/slow", {.body = "late", .delay = std::chrono::milliseconds(150)});
  DemoRunLoop loop(queue);
  bool timerFired = false, answered = false, timerFiredFirst = false;
  queue.scheduleTimer(platform::seconds(0.001), [&] { timerFired = true; });
  std::size_t inFlightInsideHandler = 0;
  auto session = platform::URLSession::sharedSession();
  session
      ->dataTaskWithRequest(platform::URLRequest(platform::URL::URLWithString(server.url("/slow"))),
                            [&](auto&&...) {
                              inFlightInsideHandler = session->tasksInFlight();
                              queue.post([&] {
                                timerFiredFirst = timerFired;
                                answered = true;
                              });
                            })
      ->resume();
  EXPECT_TRUE(loop.runUntil([&] { return answered && timerFired; }, std::chrono::seconds(10),
                            platform::seconds(1)));
  // The task counted until its handler returned, and the 1 ms timer waited for the answer.
  EXPECT_EQ(inFlightInsideHandler, 1u);
  EXPECT_FALSE(timerFiredFirst);
}

}  // namespace
}  // namespace zorva::demo
