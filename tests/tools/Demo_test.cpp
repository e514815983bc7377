// The zorva-demo executable, run as a user runs it: its default tour, its JSON lines, its probe
// of a server given on the command line, and its refusal of bad command lines.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorva/platform/Value.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "zorva-adserver/AdServer.h"
#include "zorva-demo/Tour.h"

namespace zorva::demo {
namespace {

using platform::Value;

struct DemoRun {
  int status = -1;
  std::string out, err;
};

std::string slurp(const std::filesystem::path& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Runs the demo to its end with its outputs in files (no pipe can fill up and stall it).
DemoRun runDemo(std::vector<std::string> args) {
  const auto dir =
      std::filesystem::temp_directory_path() / ("zorva-demo-test-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  const auto out = dir / "out", err = dir / "err";
  args.insert(args.begin(), ZORVA_DEMO_EXECUTABLE);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  DemoRun run;
  pid_t pid = 0;
  EXPECT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  waitpid(pid, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = slurp(out);
  run.err = slurp(err);
  std::filesystem::remove_all(dir);
  return run;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

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

TEST(DemoExecutable, DefaultTourPrintsEveryMilestoneInOrderAndExitsZero) {
  const DemoRun run = runDemo({});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  const auto lines = linesOf(run.out);
  std::size_t at = find(lines, 0, {"against the embedded ad server at http://127.0.0.1:"});
  // Banner: a bid request, the server's log, the ad, the click to the store sheet, the refresh.
  at = find(lines, at, {"== banner:"});
  at = find(lines, at, {"main", "request", "POST http://127.0.0.1:", "aid=banner"});
  at = find(lines, at + 1, {"banner 320x50", "SKAdNetwork ids"});
  at = find(lines, at, {"server", "POST /zorva/servad?pid=zorva-demo&aid=banner"});
  at = find(lines, at, {"main", "callback", "bannerViewDidReceiveAd"});
  at = find(lines, at, {"user", "taps the banner's link https://example.com/zorva/banner"});
  at = find(lines, at, {"callback", "bannerViewWillPresentModal"});
  at = find(lines, at, {"click", "store sheet", "adNetworkIdentifier"});
  at = find(lines, at, {"callback", "bannerViewDidDismissModal"});
  at = find(lines, at, {"   5.000  main     callback  bannerViewDidReceiveAd"});
  at = find(lines, at, {"PASS  banner"});
  // Interstitial: shown, clicked into the browser, closed without a report.
  at = find(lines, at, {"callback", "interstitialDidReceiveAd"});
  at = find(lines, at, {"state", "-> 2 (loaded)"});
  at = find(lines, at, {"callback", "interstitialWillPresentAd"});
  at = find(lines, at, {"callback", "interstitialDidClickAd"});
  at = find(lines, at, {"click", "in-app browser on https://"});
  at = find(lines, at, {"PASS  interstitial "});
  // The video: five VAST events with their trackers, a progress bar that reaches the end.
  for (const char* event :
       {"start at", "firstQuartile at", "midpoint at", "thirdQuartile at", "complete at"}) {
    at = find(lines, at, {"vast", event, "tracking URL"});
    at = find(lines, at, {"/track?doc=inline&event="});
  }
  at = find(lines, at, {"progress", "[########################] 100%  4.0 / 4.0 s"});
  at = find(lines, at, {"PASS  interstitial-video"});
  at = find(lines, at, {"note", "on screen before playAd: nothing"});
  at = find(lines, at, {"callback", "bannerViewDidFinishPlayingAd"});
  at = find(lines, at, {"sdk", "Ad Not in loadable state"});
  at = find(lines, at, {"PASS  in-banner-video"});
  at = find(lines, at, {"server", "GET /vast/wrapper2.xml"});
  at = find(lines, at, {"server", "GET /vast/inline.xml"});
  at = find(lines, at, {"/track?doc=wrapper1&event=start"});
  at = find(lines, at, {"PASS  vast-wrapper"});
  at = find(lines, at, {"PASS  vast-nonlinear"});
  at = find(lines, at, {"callback", "bannerViewDidReceiveAd"});
  at = find(lines, at, {"PASS  no-fill"});
  at = find(lines, at, {"main", "bannerViewDidFailToReceiveAdWithError", "nlohmann::json 101"});
  at = find(lines, at, {"main", "bannerViewDidFailToReceiveAdWithError", "ZorvaSDK 0: NoAdsError"});
  at = find(lines, at, {"PASS  broken-response"});
  at = find(lines, at, {"network", "bannerViewDidFailToReceiveAdWithError", "libcurl 28"});
  at = find(lines, at, {"PASS  network-timeout"});
  find(lines, at, {"All 9 scenarios behaved as expected"});
  EXPECT_EQ(run.out.find("FAIL"), std::string::npos);
}

TEST(DemoExecutable, JsonLinesCarryTheSameTimelineAndVerboseAddsTheBidRequest) {
  const DemoRun run = runDemo({"--json", "--verbose"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<Value> events;
  for (const auto& line : linesOf(run.out)) {
    Value event = Value::parse(line, nullptr, false);
    ASSERT_FALSE(event.is_discarded()) << line;
    for (const char* key : {"t", "thread", "scenario", "kind", "text"}) {
      ASSERT_TRUE(event.contains(key)) << key << " in " << line;
    }
    events.push_back(std::move(event));
  }
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back()["kind"], "result");
  EXPECT_EQ(events.back()["passed"], true);
  std::vector<std::string> passed;
  for (const auto& event : events) {
    if (event["kind"] == "summary" && event["passed"] == true) passed.push_back(event["scenario"]);
  }
  EXPECT_EQ(passed, Tour::scenarioNames());
  const auto request = std::find_if(events.begin(), events.end(),
                                    [](const Value& e) { return e["kind"] == "request"; });
  ASSERT_NE(request, events.end());
  EXPECT_EQ((*request)["body"]["imp"][0]["banner"]["w"], 320);
  EXPECT_EQ((*request)["bytes"], (*request)["body"].dump().size());
  // Times only move forward.
  for (std::size_t i = 1; i < events.size(); ++i) {
    EXPECT_LE(events[i - 1]["t"].get<double>(), events[i]["t"].get<double>());
  }
}

TEST(DemoExecutable, ProbesAServerGivenOnTheCommandLine) {
  std::optional<platform::Error> error;
  auto server = tools::AdServer::start({.log = nullptr}, &error);
  ASSERT_TRUE(server);
  // An HTML answer: fine for the banner and the interstitial, not a VAST document for video.
  const DemoRun run =
      runDemo({"--server", server->servadUrl(), "--pid", "pub-42", "--aid", "interstitial"});
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  const auto lines = linesOf(run.out);
  std::size_t at = find(lines, 0, {"against the ad server at " + server->servadUrl()});
  at = find(lines, at, {"PASS  banner", "ad received"});
  at = find(lines, at, {"PASS  interstitial ", "ad received"});
  at = find(lines, at, {"FAIL  interstitial-video", "failed: ZorvaSDK"});
  find(lines, at, {"did not behave as expected"});
  const auto requests = server->requests();
  ASSERT_GE(requests.size(), 4u);
  for (const auto& request : requests) {
    if (request.path == "/zorva/servad") {
      EXPECT_EQ(request.query, "pid=pub-42&aid=interstitial");
    }
  }
}

TEST(DemoExecutable, HelpAndBadCommandLines) {
  const DemoRun help = runDemo({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* flag :
       {"--server URL", "--pid ID", "--aid ID", "--verbose", "--json", "--real-time", "--help"}) {
    EXPECT_NE(help.out.find(flag), std::string::npos) << flag;
  }
  for (const auto& [args, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--colour"}, "zorva-demo: unknown option '--colour'\nTry 'zorva-demo --help'.\n"},
           {{"--server", "localhost"},
            "zorva-demo: --server wants an http or https URL, not 'localhost'\n"}}) {
    const DemoRun bad = runDemo(args);
    EXPECT_EQ(bad.status, 2);
    EXPECT_TRUE(bad.err.starts_with(message)) << bad.err;
    EXPECT_TRUE(bad.out.empty()) << bad.out;
  }
}

}  // namespace
}  // namespace zorva::demo
