// The zorva-demo executable, run as a user runs it: its tour with the production settings, its
// probe of a server given on the command line in JSON lines (asked for in a window where there is
// no display), and its refusal of bad command lines. Then its parts where the tour alone cannot
// show a fault: its timeline given odd input, and its virtual-time run loop racing a real answer.
#include <gtest/gtest.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>
#include <zorva/platform/Value.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "tools/Subprocess.h"
#include "zorva-adserver/AdServer.h"
#include "zorva-demo/DemoRunLoop.h"
#include "zorva-demo/Timeline.h"
#include "zorva-demo/Tour.h"

namespace zorva::demo {
namespace {

using platform::Value;

/// Runs the demo to its end, on the headless engines: by default it takes the real ones when a
/// display is there, and their tour is the WebKit suite's to run.
struct DemoRun {
  explicit DemoRun(std::vector<std::string> args)
      : process(ZORVA_DEMO_EXECUTABLE, headless(std::move(args))), status(process.finish()) {}
  static std::vector<std::string> headless(std::vector<std::string> args) {
    if (std::find(args.begin(), args.end(), "--engines") == args.end()) {
      args.insert(args.end(), {"--engines", "headless"});
    }
    return args;
  }
  test::Subprocess process;
  int status;
  const std::string& out = process.out;
  const std::string& err = process.err;
};

/// The index of the first line at or after `from` that contains every one of `parts`.
std::size_t find(const std::vector<std::string>& lines, std::size_t from,
                 std::initializer_list<std::string> parts) {
  for (std::size_t i = from; i < lines.size(); ++i) {
    bool all = true;
    for (const auto& part : parts) all = all && lines[i].find(part) != std::string::npos;
    if (all) return i;
  }
  ADD_FAILURE() << "no line after " << from << " with " << *parts.begin();
  return lines.size();
}

// The tour with the production settings, over CDATA-style VAST: the video scenarios pass only
// when every tracker of every document of their chain arrived at the server as a GET.
TEST(DemoExecutable, ProductionTourPrintsItsTimelineAndSendsEveryTrackerOfTheVideos) {
  const DemoRun run({"--production"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  const auto lines = run.process.outLines();
  // A line of each kind in its columns (time, thread, kind, text); the tour judges the SDK itself.
  std::size_t at = find(lines, 0, {"against the embedded ad server at http://127.0.0.1:"});
  at = find(lines, at, {"production settings: CDATA text and the tracking transport"});
  at = find(lines, at, {"main", "request", "POST http://127.0.0.1:", "aid=banner"});
  at = find(lines, at + 1, {"banner 320x50", "SKAdNetwork ids"});
  at = find(lines, at, {"server", "POST /zorva/servad?pid=zorva-demo&aid=banner"});
  at = find(lines, at, {"user", "taps the banner's link https://example.com/zorva/banner"});
  at = find(lines, at, {"click", "store sheet", "adNetworkIdentifier"});
  at = find(lines, at, {"   5.000  main     callback  bannerViewDidReceiveAd"});
  at = find(lines, at, {"state", "-> 2 (loaded)"});
  at = find(lines, at, {"vast", "start at", "tracking URL"});
  at = find(lines, at, {"progress", "[########################] 100%  4.0 / 4.0 s"});
  find(lines, 0, {"server", "GET /track?doc=inline&event=impression", "status=200"});
  at = find(lines, at, {"sdk", "Ad Not in loadable state"});
  find(lines, at, {"network", "bannerViewDidFailToReceiveAdWithError", "libcurl 28"});
  at = 0;
  for (const auto& name : Tour::scenarioNames()) at = find(lines, at, {"PASS  " + name});
  find(lines, 0, {"PASS  interstitial-video", "7 tracking GETs at the server"});
  find(lines, 0, {"PASS  vast-wrapper", "21 tracking GETs at the server"});
  find(lines, at, {"All 9 scenarios behaved as expected"});
  EXPECT_EQ(run.out.find("FAIL"), std::string::npos);
}

// A probe of a given server, in JSON lines with the bid requests (the default tour's timeline is
// the same events in columns). Asked for in a window where there is no display, it says so and
// runs as it would have.
TEST(DemoExecutable, ProbesAServerGivenOnTheCommandLineInJsonLinesWithoutADisplay) {
  std::optional<platform::Error> error;
  auto server = tools::AdServer::start({.log = nullptr}, &error);
  ASSERT_TRUE(server);
  const std::string display = std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "";
  unsetenv("DISPLAY");
  const DemoRun run({"--server", server->servadUrl(), "--pid=pub-42", "--aid", "interstitial",
                     "--json", "--verbose", "--window", "--engines", "auto"});
  if (!display.empty()) setenv("DISPLAY", display.c_str(), 1);
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  // An HTML answer: fine for the banner and the interstitial; for video it is a document without
  // any VAST Ad, which the SDK never reports, so the demo's own time-out ends the wait.
  std::vector<std::string> notes, summaries;
  std::optional<Value> request;
  double last = 0;
  for (const auto& line : run.process.outLines()) {
    const Value e = Value::parse(line, nullptr, false);
    ASSERT_FALSE(e.is_discarded()) << line;
    for (const char* key : {"t", "thread", "scenario", "kind", "text"}) {
      ASSERT_TRUE(e.contains(key)) << key << " in " << line;
    }
    EXPECT_LE(last, e["t"].get<double>());
    last = e["t"].get<double>();
    EXPECT_NE(e["kind"], "pointer");
    if (e["kind"] == "note" && e.contains("window")) notes.push_back(e["text"]);
    if (e["kind"] == "summary") {
      summaries.push_back(e["scenario"].get<std::string>() + (e["passed"] == true ? " +" : " -"));
    }
    if (e["kind"] == "request" && !request) request = e;
  }
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_TRUE(notes[0].starts_with("no window: ")) << notes[0];
  EXPECT_TRUE(notes[0].ends_with("; the tour runs headless")) << notes[0];
  EXPECT_EQ(summaries, (std::vector<std::string>{"banner +", "interstitial +",
                                                 "interstitial-video -", "in-banner-video -"}));
  EXPECT_NE(run.out.find("no callback at all (the app's own time-out)"), std::string::npos);
  ASSERT_TRUE(request);
  EXPECT_EQ((*request)["body"]["imp"][0]["banner"]["w"], 320);
  EXPECT_EQ((*request)["bytes"], (*request)["body"].dump().size());
  EXPECT_GE(server->requests().size(), 4u);
  for (const auto& request : server->requests()) {
    if (request.path == "/zorva/servad") {
      EXPECT_EQ(request.query, "pid=pub-42&aid=interstitial");
    }
  }
}

TEST(DemoExecutable, HelpAndBadCommandLines) {
  const DemoRun help({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.out.starts_with("Usage: zorva-demo [options]\n")) << help.out;
  for (const auto& [args, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--colour"}, "unknown option '--colour'\nTry 'zorva-demo --help'.\n"},
           {{"--json=yes"}, "option '--json' takes no value"},
           {{"--pid="}, "option '--pid' needs a non-empty value"},
           {{"--engines", "headless", "--server"}, "option '--server' needs a value"},
           {{"--server", "localhost"}, "--server wants an http or https URL, not 'localhost'"},
           {{"--engines", "gpu"}, "--engines wants real, headless or auto, not 'gpu'"},
           {{"--snapshot", "banner.png", "--engines", "headless"}, "--snapshot needs the real"},
           {{"--window", "--engines", "headless"}, "--window needs the real engines"},
           {{"--window", "--pause", "1s"}, "--pause wants seconds from 0 to 60, not '1s'"},
           {{"--pause", "2"}, "--pause applies only with --window"}}) {
    test::Subprocess::expectRefused(ZORVA_DEMO_EXECUTABLE, args, 2, "zorva-demo: " + message);
  }
}

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
