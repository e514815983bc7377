// The zorva-demo executable, run as a user runs it: its tour with the production settings, its
// probe of a server given on the command line in JSON lines (asked for in a window where there is
// no display), and its refusal of bad command lines. Then its parts where the tour alone cannot
// show a fault: its timeline given odd input, and its virtual-time run loop racing a real answer.
#include <gtest/gtest.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>
#include <zorva/platform/Value.h>

#include <atomic>
#include <cstdlib>
#include <sstream>

#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "tools/Subprocess.h"
#include "zorva-adserver/AdServer.h"
#include "zorva-demo/DemoRunLoop.h"
#include "zorva-demo/Timeline.h"

namespace zorva::demo {
namespace {

using platform::Value;

// The tour with the production settings, on the headless engines (by default the demo takes the
// real ones when a display is there; their tour is the WebKit suite's), over CDATA-style VAST: the
// video scenarios pass only when every tracker of every document of their chain arrived at the
// server as a GET. Its timeline's lines come in order, in their columns (time, thread, kind,
// text); the tour judges the SDK itself.
TEST(DemoExecutable, ProductionTourPrintsItsTimelineAndSendsEveryTrackerOfTheVideos) {
  test::Subprocess run(ZORVA_DEMO_EXECUTABLE, {"--production", "--engines", "headless"});
  ASSERT_EQ(run.finish(), 0) << run.out << run.err;
  std::size_t at = 0;
  for (const char* part :
       {"production settings: CDATA text and the tracking transport on",
        "   0.000  main     request   POST http://127.0.0.1:",
        "/zorva/servad?pid=zorva-demo&aid=banner (", "banner 320x50", "2 SKAdNetwork ids",
        "server   server    POST /zorva/servad?pid=zorva-demo&aid=banner",
        "user      taps the banner's link https://example.com/zorva/banner",
        "click     store sheet parameters: {",
        "\"adNetworkIdentifier\":", "   5.000  main     callback  bannerViewDidReceiveAd",
        "state     state 1 (loading) -> 2 (loaded)",
        "vast      start at 0.000 s of media, 1 tracking URL handed over",
        "progress  [########################] 100%  4.0 / 4.0 s",
        "PASS  interstitial-video 7 tracking GETs at the server",
        "sdk       warning -[ZVInBannerVideo loadAd]: Ad Not in loadable state",
        "21 tracking GETs at the server",
        "network  callback  bannerViewDidFailToReceiveAdWithError  error libcurl 28",
        "All 9 scenarios behaved as expected"}) {
    at = run.out.find(part, at);
    ASSERT_NE(at, std::string::npos) << "no '" << part << "' in its place in\n" << run.out;
  }
  // The tracking transport's GETs reach the server in their own time.
  EXPECT_NE(run.out.find("server    GET /track?doc=inline&event=impression body=0B campaign=inline "
                         "status=200"),
            std::string::npos);
}

// A probe of a given server, in JSON lines with the bid requests (the default tour's timeline is
// the same events in columns). Asked for in a window where there is no display, it says so and
// runs as it would have. Then its help, and bad command lines refused.
TEST(DemoExecutable, ProbesAServerInJsonLinesWithoutADisplayAndRefusesBadCommandLines) {
  std::optional<platform::Error> error;
  auto server = tools::AdServer::start({.log = nullptr}, &error);
  ASSERT_TRUE(server);
  const std::string display = std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "";
  unsetenv("DISPLAY");
  test::Subprocess run(ZORVA_DEMO_EXECUTABLE,
                       {"--server", server->servadUrl(), "--pid=pub-42", "--aid", "interstitial",
                        "--json", "--verbose", "--window", "--engines", "auto"});
  if (!display.empty()) setenv("DISPLAY", display.c_str(), 1);
  EXPECT_EQ(run.finish(), 1) << run.out << run.err;
  // An HTML answer: fine for the banner and the interstitial; for video it is a document without
  // any VAST Ad, which the SDK never reports, so the demo's own time-out ends the wait.
  std::vector<std::string> notes, summaries;
  std::optional<Value> request;
  double last = 0;
  for (const auto& line : run.outLines()) {
    const Value e = Value::parse(line, nullptr, false);
    ASSERT_FALSE(e.is_discarded()) << line;
    for (const char* key : {"thread", "scenario", "text"}) ASSERT_TRUE(e.contains(key)) << line;
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
  ASSERT_TRUE(request);
  EXPECT_EQ((*request)["body"]["imp"][0]["banner"]["w"], 320);
  EXPECT_EQ((*request)["bytes"], (*request)["body"].dump().size());
  EXPECT_GE(server->requests().size(), 4u);
  for (const auto& request : server->requests()) {
    if (request.path == "/zorva/servad") {
      EXPECT_EQ(request.query, "pid=pub-42&aid=interstitial");
    }
  }

  test::Subprocess help(ZORVA_DEMO_EXECUTABLE, {"--help"});
  EXPECT_EQ(help.finish(), 0);
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

// The tour shows that virtual time jumps to timers and stops at its limits; a jump while an
// answer is on its way shows only as a flaky scenario there. Its timeline, given odd bytes, still
// writes a valid JSON line, and its progress bar stays in its box.
TEST(DemoRunLoop, NeverLetsVirtualTimeOvertakeAnAnswerInFlightAndTheTimelineTakesOddInput) {
  std::ostringstream odd;
  Timeline timeline(odd, Timeline::Format::Json, false);
  timeline.setScenario("banner");
  timeline.emit("sdk", "bad \xff byte");
  EXPECT_EQ(Value::parse(odd.str())["scenario"], "banner");
  EXPECT_EQ(Timeline::progressBar(-1, 4), "[----]");
  EXPECT_EQ(Timeline::progressBar(7, 4), "[####]");

  test::useVirtualClock();
  auto& queue = platform::MainQueue::shared();
  test::LoopbackServer server;
  server.respond("/slow", {.body = "late", .delay = std::chrono::milliseconds(150)});
  std::atomic<bool> answered{false};
  bool timerFired = false;
  queue.scheduleTimer(platform::seconds(0.001), [&] {
    EXPECT_TRUE(answered) << "the 1 ms timer fired before the answer";
    timerFired = true;
  });
  auto session = platform::URLSession::sharedSession();
  session
      ->dataTaskWithRequest(platform::URLRequest(platform::URL::URLWithString(server.url("/slow"))),
                            [&](auto&&...) {
                              // The task counts until its handler returns.
                              EXPECT_EQ(session->tasksInFlight(), 1u);
                              answered = true;
                            })
      ->resume();
  EXPECT_TRUE(DemoRunLoop(queue).runUntil([&] { return answered && timerFired; },
                                          std::chrono::seconds(10), platform::seconds(1)));
}

}  // namespace
}  // namespace zorva::demo
