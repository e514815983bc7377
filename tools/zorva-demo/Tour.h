#pragma once

#include <zorva/platform/Clock.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zorva {
struct ZVAdRequest;
}

namespace zorva::demo {

class DemoHost;
class DemoRunLoop;
class Pointer;
class Timeline;

/// How one scenario went.
struct ScenarioResult {
  std::string name;
  bool passed = false;
  /// One line: what happened, or what was expected and did not happen.
  std::string summary;
};

/// The scenarios the demo runs, each through the SDK's public interface as an app would: make
/// an ad object, load, show or play, let the simulated user click and close, and check that what
/// the app heard is what the SDK promises.
class Tour {
 public:
  /// An ad unit the demo adds to the embedded server: JSON that is not a bid response.
  static constexpr const char* kUnreadableAdunit = "unreadable";

  struct Config {
    /// The bid endpoint.
    std::string serverUrl;
    std::string publisherId;
    /// Set: probe every format with this ad unit instead of running the built-in tour.
    std::optional<std::string> adunitId;
    /// Set: a PNG of the banner's first ad is written there (real engines only).
    std::optional<std::string> snapshotPath;
    /// Set (the tour in a window): the user's taps and presses are clicks of this pointer.
    Pointer* pointer = nullptr;
    /// How long each visible step (an ad shown, a click, a sheet opened or closed) stays before
    /// the tour goes on, for a person watching.
    platform::Duration stepPause{};
    /// The SDK's tracking transport is on: the video scenarios also wait for their tracking GETs
    /// at the server and check them.
    bool production = false;
  };

  Tour(Timeline& timeline, DemoRunLoop& loop, DemoHost& host, Config config);

  /// Runs every scenario in order; one result each.
  std::vector<ScenarioResult> run();

  /// Names of the built-in tour's scenarios, in order.
  static std::vector<std::string> scenarioNames();

 private:
  ScenarioResult banner();
  ScenarioResult interstitialDisplay();
  ScenarioResult interstitialVideo(const std::string& name, const std::string& adunit);
  ScenarioResult inBannerVideo();
  ScenarioResult nonLinear();
  ScenarioResult noFill();
  ScenarioResult brokenResponse();
  ScenarioResult slowAnswer();
  std::vector<ScenarioResult> probes(const std::string& adunit);

  std::shared_ptr<ZVAdRequest> request(const std::string& adunit, unsigned long timeout = 10) const;
  void begin(const std::string& name, const std::string& description);
  ScenarioResult finish(const std::string& name, bool passed, const std::string& summary);
  /// Runs the queue until `done` (a callback or a state), for at most `virtualSeconds` on the
  /// queue's clock and 15 s of real time.
  bool runUntil(const std::function<bool()>& done, double virtualSeconds = 30);
  /// Prints a progress bar once per second of media while `playing` holds, until `done`.
  bool playUntil(const std::function<bool()>& done,
                 const std::function<std::optional<float>()>& bar);
  std::size_t count(const std::string& kind, const std::string& text = "") const;
  /// Lets a visible step stay on the screen for the configured pause.
  void hold();

  Timeline& timeline_;
  DemoRunLoop& loop_;
  DemoHost& host_;
  Config config_;
};

}  // namespace zorva::demo
