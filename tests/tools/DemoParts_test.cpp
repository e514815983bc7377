// The demo's parts: its command line, its reading of the SDK's log, its timeline and its
// virtual-time run loop.
#include <gtest/gtest.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>

#include <atomic>
#include <sstream>

#include "Common/ZVLog.h"
#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "zorva-demo/DemoOptions.h"
#include "zorva-demo/DemoRunLoop.h"
#include "zorva-demo/SdkLog.h"
#include "zorva-demo/Timeline.h"

namespace zorva::demo {
namespace {

using platform::Value;

std::optional<DemoOptions> parse(std::vector<std::string> args, std::string* error = nullptr) {
  std::string ignored;
  return DemoOptions::parse(args, error ? error : &ignored);
}

TEST(DemoOptions, ReadsEveryFlagInBothSpellingsAndRefusesBadOnesWithOneClearLine) {
  auto options = parse({"--server", "https://bids.example.com/rtb", "--pid=p7", "--aid", "u9",
                        "--verbose", "--json", "--real-time"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->server, "https://bids.example.com/rtb");
  EXPECT_EQ(options->publisherId, "p7");
  EXPECT_EQ(options->adunitId, "u9");
  EXPECT_TRUE(options->verbose && options->json && options->realTime && options->probes());
  EXPECT_FALSE(parse({})->probes());

  const std::pair<std::vector<std::string>, std::string> bad[] = {
      {{"--server"}, "option '--server' needs a value"},
      {{"--server", "ftp://example.com/x"}, "--server wants an http or https URL, not 'ftp://"},
      {{"--pid="}, "option '--pid' needs a non-empty value"},
      {{"--json=yes"}, "option '--json' takes no value"},
      {{"banner"}, "unknown option 'banner'"},
  };
  for (const auto& [args, message] : bad) {
    std::string error;
    EXPECT_FALSE(parse(args, &error)) << args[0];
    EXPECT_NE(error.find(message), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
}

/// What the SDK's own logger writes, as the demo's log handler receives it.
class SdkEntries : public ::testing::Test {
 protected:
  SdkLogEntry logged(unsigned long level, const char* function, const char* format,
                     const std::string& a, const std::string& b = "", const std::string& c = "") {
    test::LogCapture capture;
    ZVLog::setLevel(3);
    ZV_LOG(level, function, format, a.c_str(), b.c_str(), c.c_str());
    auto entries = capture.entries();
    EXPECT_EQ(entries.size(), 1u);
    auto entry = SdkLog::parseEntry(entries.at(0));
    EXPECT_TRUE(entry) << entries.at(0);
    return entry.value_or(SdkLogEntry{});
  }
};

// The tour's own timeline shows the bid request summary, the VAST events and their trackers;
// these are the entries it must not misread.
TEST_F(SdkEntries, SplitsEntriesAndRejectsWhatIsNotTheLoggersOwn) {
  auto entry = logged(2, "-[ZVBannerView loadAd]", "%s%s%s", "Ad Not in loadable state");
  EXPECT_EQ(entry.level, 2u);
  EXPECT_EQ(entry.function, "-[ZVBannerView loadAd]");
  EXPECT_EQ(entry.file, "DemoParts_test.cpp");
  EXPECT_EQ(entry.message, "Ad Not in loadable state");
  EXPECT_FALSE(SdkLog::parseEntry("something else entirely"));
  EXPECT_FALSE(SdkLog::parseEntry("Zorva SDK: - I - no separator"));

  auto unserialisable = logged(3, "f", "\nURL - %s\n Data - %s\n%s", "http://h/x", "(null)");
  auto noBody = SdkLog::parseBidRequest(unserialisable);
  ASSERT_TRUE(noBody);
  EXPECT_EQ(noBody->body, "(null)");
  EXPECT_FALSE(noBody->json);
  EXPECT_FALSE(SdkLog::parseVastEvent(logged(3, "f", "Time%s%s%s", " - 1")));
}

TEST(DemoTimeline, OddBytesStillMakeAValidJsonLineAndTheBarStaysInItsBox) {
  std::ostringstream odd;
  Timeline timeline(odd, Timeline::Format::Json, false);
  timeline.setScenario("banner");
  timeline.emit("sdk", "bad \xff byte");
  EXPECT_EQ(Value::parse(odd.str())["scenario"], "banner");
  EXPECT_EQ(timeline.eventsOf("banner").size(), 1u);
  EXPECT_TRUE(timeline.eventsOf("other").empty());
  EXPECT_EQ(Timeline::progressBar(-1, 4), "[----]");
  EXPECT_EQ(Timeline::progressBar(7, 4), "[####]");
}

class DemoRunLoopTest : public ::testing::Test {
 protected:
  void SetUp() override { clock_ = test::useVirtualClock(); }
  platform::MainQueue& queue() { return platform::MainQueue::shared(); }
  double virtualSeconds() const {
    return std::chrono::duration<double>(clock_->now().time_since_epoch()).count();
  }
  std::shared_ptr<platform::VirtualClock> clock_;
};

TEST_F(DemoRunLoopTest, JumpsToTheNextTimerWhenNothingElseIsGoingOn) {
  DemoRunLoop loop(queue());
  bool fired = false;
  queue().scheduleTimer(platform::seconds(30), [&] { fired = true; });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(loop.runUntil([&] { return fired; }, std::chrono::seconds(5), platform::seconds(60)));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_DOUBLE_EQ(virtualSeconds(), 30);

  // A timer beyond the limit is not reached: the loop stops at the limit.
  queue().scheduleTimer(platform::seconds(100), [&] { fired = false; });
  EXPECT_FALSE(
      loop.runUntil([&] { return !fired; }, std::chrono::seconds(5), platform::seconds(10)));
  EXPECT_DOUBLE_EQ(virtualSeconds(), 40);
  // With nothing left to happen, the clock goes to the limit at once instead of the loop waiting
  // out the real time-out.
  queue().reset();
  const auto idle = std::chrono::steady_clock::now();
  EXPECT_FALSE(loop.runUntil([] { return false; }, std::chrono::seconds(5), platform::seconds(10)));
  EXPECT_LT(std::chrono::steady_clock::now() - idle, std::chrono::seconds(1));
  EXPECT_DOUBLE_EQ(virtualSeconds(), 50);
}

TEST_F(DemoRunLoopTest, NeverLetsVirtualTimeOvertakeAnAnswerInFlight) {
  test::LoopbackServer server;
  server.respond("/slow", {.body = "late", .delay = std::chrono::milliseconds(150)});
  DemoRunLoop loop(queue());
  bool timerFired = false, answered = false, timerFiredFirst = false;
  queue().scheduleTimer(platform::seconds(0.001), [&] { timerFired = true; });
  std::size_t inFlightInsideHandler = 0;
  platform::URLSession::sharedSession()
      ->dataTaskWithRequest(platform::URLRequest(platform::URL::URLWithString(server.url("/slow"))),
                            [&](auto&&...) {
                              inFlightInsideHandler =
                                  platform::URLSession::sharedSession()->tasksInFlight();
                              platform::MainQueue::shared().post([&] {
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

TEST_F(DemoRunLoopTest, WaitLetsTimePassAndTellsTheObserverOfEveryStep) {
  DemoRunLoop loop(queue());
  int steps = 0, fired = 0;
  loop.setObserver([&] { ++steps; });
  for (double at : {0.5, 1.0, 1.5}) queue().scheduleTimer(platform::seconds(at), [&] { ++fired; });
  loop.wait(platform::seconds(2));
  EXPECT_EQ(fired, 3);
  EXPECT_DOUBLE_EQ(virtualSeconds(), 2);
  EXPECT_GE(steps, 4);
}

}  // namespace
}  // namespace zorva::demo
