#pragma once

#include <memory>
#include <string>

namespace zorva::platform {
class ViewController;
class Window;
}  // namespace zorva::platform

namespace zorva::demo {

/// What a publisher's app sets up at launch, done for the demo: the device it runs on, a key
/// window with a root controller, the app's information dictionary (name, version, the
/// SKAdNetwork identifiers it accepts) and the SDK-wide settings. Main thread.
class DemoHost {
 public:
  /// The SKAdNetwork identifiers the demo app lists in "SKAdNetworkItems".
  static constexpr const char* kSKAdNetworkIds[] = {"zorva.skadnetwork", "cstr6suwn9.skadnetwork"};
  /// Length of the embedded server's MP4, which the headless media engine gives every video too.
  static constexpr double kMediaSeconds = 4.0;

  DemoHost();
  ~DemoHost();
  DemoHost(const DemoHost&) = delete;
  DemoHost& operator=(const DemoHost&) = delete;

  const std::shared_ptr<platform::ViewController>& rootViewController() const { return root_; }
  const std::shared_ptr<platform::Window>& window() const { return window_; }
  /// "iPhone, system 17.0, 375x812 points, portrait".
  std::string deviceDescription() const;

 private:
  std::shared_ptr<platform::ViewController> root_;
  std::shared_ptr<platform::Window> window_;
};

}  // namespace zorva::demo
