#pragma once

#include <string>
#include <vector>

#include "Players/ZVAdPlayerDelegate.h"

namespace zorva::test {

/// A player delegate that writes down what it hears: "load", "start", "end", "fail:<code>",
/// and, while `modal` holds, "willPresent" and "didDismiss".
class RecordingAdDelegate : public ZVAdPlayerDelegate {
 public:
  void playerWillPresentModal() override { events.push_back("willPresent"); }
  void playerDidDismissModal() override { events.push_back("didDismiss"); }
  void playerDidLoad() override { events.push_back("load"); }
  void playerDidStartPlaying() override { events.push_back("start"); }
  void playerDidEndPlaying() override { events.push_back("end"); }
  void playerDidFailWithError(const Error& error) override {
    events.push_back("fail:" + std::to_string(error.code));
  }
  bool respondsToPlayerWillPresentModal() const override { return modal; }
  bool respondsToPlayerDidDismissModal() const override { return modal; }
  bool modal = true;
  std::vector<std::string> events;
};

}  // namespace zorva::test
