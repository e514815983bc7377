#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Players/ZVVastAdplayerDelegate.h"

namespace zorva::test {

/// A creative player's delegate that writes down what it hears: "load", "start", "end",
/// "click:<url or (none)>", "fail:<code>", and each progress report's seconds apart.
class RecordingVastDelegate : public ZVVastAdplayerDelegate {
 public:
  void playerDidLoad() override { events.push_back("load"); }
  void playerDidStartPlaying() override { events.push_back("start"); }
  void playerDidEndPlaying() override { events.push_back("end"); }
  void playerDidIteractedWithTargetUrl(const std::optional<std::string>& url) override {
    events.push_back("click:" + url.value_or("(none)"));
  }
  void playerDidProgress(double seconds) override { progress.push_back(seconds); }
  void playerDidFailedWithError(const Error& error) override {
    events.push_back("fail:" + std::to_string(error.code));
  }
  std::vector<std::string> events;
  std::vector<double> progress;
};

}  // namespace zorva::test
