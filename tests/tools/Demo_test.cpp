// The zorva-demo executable, run as a user runs it: its default tour, its probe of a server given
// on the command line in JSON lines (asked for in a window where there is no display), its
// production tour, and its refusal of bad command lines.
#include <gtest/gtest.h>
#include <zorva/platform/Value.h>

#include <algorithm>
#include <cstdlib>

#include "tools/Subprocess.h"
#include "zorva-adserver/AdServer.h"
#include "zorva-demo/Tour.h"

namespace zorva::demo {
namespace {

using platform::Value;

/// Runs the demo to its end, on the headless engines: by default it takes the real ones when a
/// display is there, and their tour is the WebKit suite's to run.
struct DemoRun {
  explicit DemoRun(std::vector<std::string> args = {})
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

TEST(DemoExecutable, DefaultTourPrintsItsTimelineAndPassesEveryScenario) {
  const DemoRun run;
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  const auto lines = run.process.outLines();
  // A line of each kind in its columns (time, thread, kind, text); the tour judges the SDK itself.
  std::size_t at = find(lines, 0, {"against the embedded ad server at http://127.0.0.1:"});
  at = find(lines, at, {"main", "request", "POST http://127.0.0.1:", "aid=banner"});
  at = find(lines, at + 1, {"banner 320x50", "SKAdNetwork ids"});
  at = find(lines, at, {"server", "POST /zorva/servad?pid=zorva-demo&aid=banner"});
  at = find(lines, at, {"user", "taps the banner's link https://example.com/zorva/banner"});
  at = find(lines, at, {"click", "store sheet", "adNetworkIdentifier"});
  at = find(lines, at, {"   5.000  main     callback  bannerViewDidReceiveAd"});
  at = find(lines, at, {"state", "-> 2 (loaded)"});
  at = find(lines, at, {"vast", "start at", "tracking URL"});
  at = find(lines, at, {"progress", "[########################] 100%  4.0 / 4.0 s"});
  at = find(lines, at, {"sdk", "Ad Not in loadable state"});
  find(lines, at, {"network", "bannerViewDidFailToReceiveAdWithError", "libcurl 28"});
  at = 0;
  for (const auto& name : Tour::scenarioNames()) at = find(lines, at, {"PASS  " + name});
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
  std::vector<Value> events;
  std::vector<std::string> notes;
  for (const auto& line : run.process.outLines()) {
    Value event = Value::parse(line, nullptr, false);
    ASSERT_FALSE(event.is_discarded()) << line;
    for (const char* key : {"t", "thread", "scenario", "kind", "text"}) {
      ASSERT_TRUE(event.contains(key)) << key << " in " << line;
    }
    if (!events.empty()) {
      EXPECT_LE(events.back()["t"].get<double>(), event["t"].get<double>());
    }
    if (event["kind"] == "note" && event.contains("window")) notes.push_back(event["text"]);
    EXPECT_NE(event["kind"], "pointer");
    events.push_back(std::move(event));
  }
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_TRUE(notes[0].starts_with("no window: ")) << notes[0];
  EXPECT_TRUE(notes[0].ends_with("; the tour runs headless")) << notes[0];
  // An HTML answer: fine for the banner and the interstitial; for video it is a document without
  // any VAST Ad, which the SDK never reports, so the demo's own time-out ends the wait.
  std::vector<std::string> summaries;
  for (const auto& e : events) {
    if (e["kind"] != "summary") continue;
    summaries.push_back(e["scenario"].get<std::string>() + (e["passed"] == true ? " +" : " -"));
  }
  EXPECT_EQ(summaries, (std::vector<std::string>{"banner +", "interstitial +",
                                                 "interstitial-video -", "in-banner-video -"}));
  EXPECT_NE(run.out.find("no callback at all (the app's own time-out)"), std::string::npos);
  const auto request = std::find_if(events.begin(), events.end(),
                                    [](const Value& e) { return e["kind"] == "request"; });
  ASSERT_NE(request, events.end());
  EXPECT_EQ((*request)["body"]["imp"][0]["banner"]["w"], 320);
  EXPECT_EQ((*request)["bytes"], (*request)["body"].dump().size());
  EXPECT_GE(server->requests().size(), 4u);
  for (const auto& request : server->requests()) {
    if (request.path == "/zorva/servad") {
      EXPECT_EQ(request.query, "pid=pub-42&aid=interstitial");
    }
  }
}

// The production settings over CDATA-style VAST: the video scenarios pass only when every
// tracker of every document of their chain arrived at the server as a GET.
TEST(DemoExecutable, ProductionTourSendsEveryTrackerOfTheVideosToTheServer) {
  const DemoRun run({"--production"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  const auto lines = run.process.outLines();
  std::size_t at = find(lines, 0, {"production settings: CDATA text and the tracking transport"});
  at = find(lines, at, {"PASS  interstitial-video", "7 tracking GETs at the server"});
  find(lines, 0, {"server", "GET /track?doc=inline&event=impression", "status=200"});
  find(lines, at, {"PASS  vast-wrapper", "21 tracking GETs at the server"});
  find(lines, at, {"All 9 scenarios behaved as expected"});
}

TEST(DemoExecutable, HelpAndBadCommandLines) {
  const DemoRun help({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.out.starts_with("Usage: zorva-demo [options]\n")) << help.out;
  for (const auto& [args, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--colour"}, "zorva-demo: unknown option '--colour'\nTry 'zorva-demo --help'.\n"},
           {{"--json=yes"}, "zorva-demo: option '--json' takes no value\n"},
           {{"--pid="}, "zorva-demo: option '--pid' needs a non-empty value\n"},
           {{"--engines", "headless", "--server"}, "zorva-demo: option '--server' needs a value\n"},
           {{"--server", "localhost"},
            "zorva-demo: --server wants an http or https URL, not 'localhost'\n"},
           {{"--engines", "gpu"},
            "zorva-demo: --engines wants real, headless or auto, not 'gpu'\n"},
           {{"--snapshot", "banner.png", "--engines", "headless"},
            "zorva-demo: --snapshot needs the real engines: the headless web engine renders no "
            "pixels\n"},
           {{"--window", "--engines", "headless"},
            "zorva-demo: --window needs the real engines: the headless web engine shows no "
            "pages\n"},
           {{"--window", "--pause", "1s"},
            "zorva-demo: --pause wants seconds from 0 to 60, not '1s'\n"},
           {{"--pause", "2"}, "zorva-demo: --pause applies only with --window\n"}}) {
    const DemoRun bad(args);
    EXPECT_EQ(bad.status, 2);
    EXPECT_TRUE(bad.err.starts_with(message)) << bad.err;
    EXPECT_TRUE(bad.out.empty()) << bad.out;
  }
}

}  // namespace
}  // namespace zorva::demo
