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

TEST(DemoOptions, ReadsEveryFlagInBothSpellings) {
  auto options = parse({"--server", "https://bids.example.com/rtb", "--pid=p7", "--aid", "u9",
                        "--verbose", "--json", "--real-time"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->server, "https://bids.example.com/rtb");
  EXPECT_EQ(options->publisherId, "p7");
  EXPECT_EQ(options->adunitId, "u9");
  EXPECT_TRUE(options->verbose && options->json && options->realTime && options->probes());

  auto defaults = parse({});
  ASSERT_TRUE(defaults);
  EXPECT_FALSE(defaults->probes());
  EXPECT_FALSE(defaults->json || defaults->verbose || defaults->realTime);
  EXPECT_TRUE(parse({"--aid", "banner"})->probes());
}

TEST(DemoOptions, RefusesBadCommandLinesWithOneClearLine) {
  const std::pair<std::vector<std::string>, std::string> bad[] = {
      {{"--port", "80"}, "unknown option '--port'"},
      {{"--server"}, "option '--server' needs a value"},
      {{"--server", "ftp://example.com/x"}, "--server wants an http or https URL, not 'ftp://"},
      {{"--server", "not a url"}, "--server wants an http or https URL"},
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

TEST_F(SdkEntries, SplitsTheLoggersEntriesIntoLevelFunctionAndMessage) {
  auto entry = logged(2, "-[ZVBannerView loadAd]", "%s%s%s", "Ad Not in loadable state");
  EXPECT_EQ(entry.level, 2u);
  EXPECT_EQ(entry.function, "-[ZVBannerView loadAd]");
  EXPECT_EQ(entry.file, "DemoParts_test.cpp");
  EXPECT_EQ(entry.message, "Ad Not in loadable state");
  EXPECT_FALSE(SdkLog::parseEntry("something else entirely"));
  EXPECT_FALSE(SdkLog::parseEntry("Zorva SDK: - I - no separator"));
}

TEST_F(SdkEntries, ReadsTheBidRequestLineWithItsJsonBody) {
  const std::string body =
      R"({"id":"r1","imp":[{"video":{"w":320,"h":480},"instl":1,"ext":{"skadn":{"skadnetids":["a","b"]}}}],)"
      R"("app":{"name":"Zorva Demo","bundle":"1234"},"device":{"model":"iPhone","os":"iOS","osv":"17.0"}})";
  auto entry = logged(3, "-[ZVRTBRequestBuilder build:]_block_invoke", "\nURL - %s\n Data - %s\n%s",
                      "http://127.0.0.1:5/zorva/servad?pid=p&aid=video", body);
  auto request = SdkLog::parseBidRequest(entry);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->url, "http://127.0.0.1:5/zorva/servad?pid=p&aid=video");
  ASSERT_TRUE(request->json);
  EXPECT_EQ(SdkLog::summarizeBidRequest(*request->json),
            "video 320x480, interstitial · app Zorva Demo (1234) · device iPhone iOS 17.0 · "
            "2 SKAdNetwork ids");

  auto unserialisable = logged(3, "f", "\nURL - %s\n Data - %s\n%s", "http://h/x", "(null)");
  auto noBody = SdkLog::parseBidRequest(unserialisable);
  ASSERT_TRUE(noBody);
  EXPECT_EQ(noBody->body, "(null)");
  EXPECT_FALSE(noBody->json);
}

TEST_F(SdkEntries, ReadsVastEventsWithTheirTrackingUrls) {
  auto entry = logged(3, "-[ZVVastPlayer playerDidProgress:]",
                      "\nTime - %s Event - %s, Tracks - %s\n", "1.002500", "firstQuartile",
                      "[\"http://t/track?doc=inline&event=firstQuartile\","
                      "\"https://t/track?doc=wrapper1&event=firstQuartile\"]");
  auto event = SdkLog::parseVastEvent(entry);
  ASSERT_TRUE(event);
  EXPECT_DOUBLE_EQ(event->time, 1.0025);
  EXPECT_EQ(event->event, "firstQuartile");
  EXPECT_EQ(event->trackers,
            (std::vector<std::string>{"http://t/track?doc=inline&event=firstQuartile",
                                      "https://t/track?doc=wrapper1&event=firstQuartile"}));
  // The platform's list description: one URL per line, in parentheses.
  EXPECT_EQ(SdkLog::urlsIn("(\n    \"http://a/1\",\n    http://b/2\n)"),
            (std::vector<std::string>{"http://a/1", "http://b/2"}));
  EXPECT_FALSE(SdkLog::parseVastEvent(logged(3, "f", "Time%s%s%s", " - 1")));
}

TEST(DemoTimeline, WritesReadableLinesAndValidJsonLines) {
  std::ostringstream text, json;
  Timeline readable(text, Timeline::Format::Text, false);
  Timeline machine(json, Timeline::Format::Json, false);
  for (Timeline* timeline : {&readable, &machine}) {
    timeline->setScenario("banner");
    timeline->emit("callback", "bannerViewDidReceiveAd", {{"callback", "bannerViewDidReceiveAd"}});
    timeline->emit("vast", "start", {{"trackers", {"http://t/1"}}}, {"http://t/1"});
    timeline->progress(2, 4);
  }
  EXPECT_EQ(text.str(),
            "   0.000  main     callback  bannerViewDidReceiveAd\n"
            "   0.000  main     vast      start\n"
            "                             http://t/1\n"
            "   0.000  main     progress  [############------------]  50%  2.0 / 4.0 s\n");
  std::istringstream lines(json.str());
  std::vector<Value> objects;
  for (std::string line; std::getline(lines, line);) objects.push_back(Value::parse(line));
  ASSERT_EQ(objects.size(), 3u);
  EXPECT_EQ(objects[0]["kind"], "callback");
  EXPECT_EQ(objects[0]["thread"], "main");
  EXPECT_EQ(objects[0]["scenario"], "banner");
  EXPECT_EQ(objects[1]["trackers"][0], "http://t/1");
  EXPECT_EQ(objects[2]["position"], 2);
  EXPECT_EQ(readable.eventsOf("banner").size(), 3u);
  EXPECT_TRUE(readable.eventsOf("other").empty());

  // Bytes a server sent that are not UTF-8 still make a valid line.
  std::ostringstream odd;
  Timeline(odd, Timeline::Format::Json, false).emit("sdk", "bad \xff byte");
  EXPECT_NO_THROW(Value::parse(odd.str()));
  EXPECT_EQ(Timeline::progressBar(-1, 4), "[----]");
  EXPECT_EQ(Timeline::progressBar(7, 4), "[####]");
}

TEST(DemoTimeline, NamesTheThreadEachEventHappenedOn) {
  test::LoopbackServer server;
  server.respond("/x", {.body = "{}"});
  std::atomic<bool> done{false};
  std::string onNetwork;
  auto task = platform::URLSession::sharedSession()->dataTaskWithRequest(
      platform::URLRequest(platform::URL::URLWithString(server.url("/x"))), [&](auto&&...) {
        onNetwork = Timeline::threadName();
        done = true;
      });
  task->resume();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return done.load(); }));
  EXPECT_EQ(onNetwork, "network");
  EXPECT_EQ(Timeline::threadName(), "main");
  std::string other;
  std::thread([&] {
    other = Timeline::threadName();
    Timeline::nameThisThread("server");
    other += "/" + Timeline::threadName();
  }).join();
  EXPECT_TRUE(other.starts_with("thread-") && other.ends_with("/server")) << other;
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
