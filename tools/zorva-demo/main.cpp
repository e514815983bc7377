// zorva-demo: runs every ad format of the Zorva SDK against an ad server (by default one started
// in-process on a loopback port) and prints what happened as a timeline. Exit status: 0 when
// every scenario behaved as expected, 1 when one did not or the server could not start, 2 for a
// bad command line.
#include <stdlib.h>
#include <unistd.h>

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/MainQueue.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "zorva-adserver/AdServer.h"
#include "zorva-demo/DemoHost.h"
#include "zorva-demo/DemoOptions.h"
#include "zorva-demo/DemoRunLoop.h"
#include "zorva-demo/DemoWindow.h"
#include "zorva-demo/Engines.h"
#include "zorva-demo/SdkLog.h"
#include "zorva-demo/Timeline.h"
#include "zorva-demo/Tour.h"

namespace {

using namespace zorva;
using namespace zorva::demo;

// Long enough to outlast the 1 s time-out the demo sets, short enough not to hold up the end.
constexpr std::chrono::milliseconds kSlowAnswer{3000};

int runDemo(const DemoOptions& options) {
  auto& queue = platform::MainQueue::shared();
  queue.bindToCurrentThread();
  // Real engines play and render in real time; the headless ones follow the queue's clock.
  std::string noRealEngines;
  // The window's clicks go through the X server, so GTK draws there too (on a Wayland desktop,
  // through its X server).
  if (options.window) setenv("GDK_BACKEND", "x11", 0);
  const bool realEngines =
      options.engines != DemoOptions::Engines::Headless && Engines::useRealEngines(&noRealEngines);
  if (!realEngines && (options.engines == DemoOptions::Engines::Real || options.snapshot)) {
    std::cerr << "zorva-demo: " << (options.snapshot ? "--snapshot" : "--engines real")
              << " needs the real engines: " << noRealEngines << "\n";
    return 1;
  }
  const bool realTime = options.realTime || realEngines;
  if (!realTime) queue.setClock(std::make_shared<platform::VirtualClock>());

  const bool color = !options.json && isatty(STDOUT_FILENO) && std::getenv("NO_COLOR") == nullptr;
  Timeline timeline(std::cout, options.json ? Timeline::Format::Json : Timeline::Format::Text,
                    color);
  const auto origin = queue.now();
  timeline.setOrigin(origin);
  const auto realStart = std::chrono::steady_clock::now();

  std::unique_ptr<tools::AdServer> server;
  std::string serverUrl;
  if (options.server) {
    serverUrl = *options.server;
  } else {
    std::optional<platform::Error> error;
    tools::Campaign unreadable;
    unreadable.aid = Tour::kUnreadableAdunit;
    unreadable.rawBody = R"(["not", "a", "bid", "response"])";
    server = tools::AdServer::start({.campaigns = {unreadable},
                                     .slowDelay = kSlowAnswer,
                                     .cdataVast = options.production,
                                     .log =
                                         [&timeline](const tools::RequestRecord& record) {
                                           Timeline::nameThisThread("server");
                                           timeline.emit("server", record.line(),
                                                         {{"method", record.method},
                                                          {"path", record.path},
                                                          {"query", record.query},
                                                          {"status", record.status}});
                                         }},
                                    &error);
    if (!server) {
      std::cerr << "zorva-demo: the embedded ad server cannot start: "
                << (error ? error->localizedDescription() : "unknown error") << "\n";
      return 1;
    }
    serverUrl = server->servadUrl();
  }

  DemoHost host;
  // The tracking queue of a production run lives as long as the run: URLs for this run's
  // loopback port are of no use to a later one.
  std::string trackingFolder;
  if (options.production) {
    char folder[] = "/tmp/zorva-demo-tracking-XXXXXX";
    if (mkdtemp(folder)) trackingFolder = folder;
    auto settings = ZorvaSDK::shared();
    settings->setVastCdataText(true);
    if (!trackingFolder.empty())
      settings->setTrackingQueuePath(trackingFolder + "/tracking.sqlite");
    settings->setTrackingTransport(true);
  }
  std::string noWindow = noRealEngines;
  std::unique_ptr<DemoWindow> window;
  if (options.window && realEngines) window = DemoWindow::open(host.window(), timeline, &noWindow);
  SdkLog sdkLog(timeline, options.verbose);
  DemoRunLoop loop(queue);
  timeline.emit("note",
                "Zorva SDK " + ZorvaSDK::version() + " against " +
                    (server ? "the embedded ad server at " + server->baseUrl()
                            : "the ad server at " + serverUrl) +
                    (realTime ? ", real time" : ", on a virtual clock"),
                {{"sdkVersion", ZorvaSDK::version()},
                 {"server", serverUrl},
                 {"embedded", server != nullptr},
                 {"virtualClock", !realTime}});
  timeline.emit(
      "note",
      "device: " + host.deviceDescription() +
          (realEngines ? "; engines: GStreamer (videos decoded in real time), WebKitGTK "
                         "(pages rendered)"
                       : "; engines: headless (nothing decoded or rendered, each video lasts " +
                             std::to_string(static_cast<int>(DemoHost::kMediaSeconds)) + " s" +
                             (noRealEngines.empty() ? "" : "; real ones: " + noRealEngines) + ")"),
      {{"engines", realEngines ? "real" : "headless"}});
  if (options.production) {
    timeline.emit("note",
                  "production settings: CDATA text and the tracking transport on (queue in " +
                      (trackingFolder.empty() ? std::string("the default place") : trackingFolder) +
                      "); tracking GETs show as server lines",
                  {{"production", true}});
  }
  if (options.window) {
    char pause[32];
    std::snprintf(pause, sizeof pause, "%.1f s", options.pauseSeconds);
    timeline.emit("note",
                  window
                      ? "in a window on the display, each step held " + std::string(pause) +
                            "; the user's taps are real pointer clicks"
                      : "no window: " + noWindow + (realEngines ? "" : "; the tour runs headless"),
                  {{"window", window != nullptr}});
  }

  Tour tour(timeline, loop, host,
            {.serverUrl = serverUrl,
             .publisherId = options.publisherId,
             .adunitId = options.adunitId,
             .snapshotPath = options.snapshot,
             .pointer = window.get(),
             .stepPause = window ? platform::seconds(options.pauseSeconds) : platform::Duration{},
             .production = options.production});
  const auto results = tour.run();

  std::size_t failed = 0;
  for (const auto& result : results) failed += result.passed ? 0 : 1;
  timeline.setScenario("");
  const double virtualSeconds = std::chrono::duration<double>(queue.now() - origin).count();
  const double realSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - realStart).count();
  char line[200];
  if (failed == 0) {
    std::snprintf(line, sizeof line,
                  "All %zu scenarios behaved as expected (%.1f s on the ad's clock, %.1f s of "
                  "real time).",
                  results.size(), realTime ? realSeconds : virtualSeconds, realSeconds);
  } else {
    std::snprintf(line, sizeof line,
                  "%zu of %zu scenarios did not behave as expected (see FAIL above).", failed,
                  results.size());
  }
  timeline.emit("result", line,
                {{"passed", failed == 0},
                 {"scenarios", results.size()},
                 {"failed", failed},
                 {"realSeconds", realSeconds}});
  if (options.production) {
    ZorvaSDK::shared()->setTrackingTransport(false);
    if (!trackingFolder.empty()) std::filesystem::remove_all(trackingFolder);
  }
  if (server) server->stop();
  return failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::string error;
  auto options = DemoOptions::parse(std::vector<std::string>(argv + 1, argv + argc), &error);
  if (!options) {
    std::cerr << "zorva-demo: " << error << "\nTry 'zorva-demo --help'.\n";
    return 2;
  }
  if (options->help) {
    std::cout << DemoOptions::usage();
    return 0;
  }
  return runDemo(*options);
}
