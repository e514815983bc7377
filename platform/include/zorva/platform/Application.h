#pragma once

#include <memory>
#include <vector>

#include "zorva/platform/InterfaceOrientation.h"

namespace zorva::platform {

class Window;

/// The running app as the SDK sees it: its windows, its key window, the status-bar orientation
/// and the orientations it supports. All plain data that the host (or a test) sets and the SDK
/// reads. Main thread only.
class Application {
 public:
  static Application& shared();

  /// The app's windows, in order.
  const std::vector<std::shared_ptr<Window>>& windows() const { return windows_; }
  /// Lists `window` (once).
  void addWindow(const std::shared_ptr<Window>& window);
  void removeWindow(const std::shared_ptr<Window>& window);

  /// The application's own idea of its key window, kept apart from the windows' flags.
  std::shared_ptr<Window> keyWindow() const { return keyWindow_; }
  void setKeyWindow(std::shared_ptr<Window> window) { keyWindow_ = std::move(window); }

  /// The orientation of the status bar (the interface orientation before scenes existed).
  InterfaceOrientation statusBarOrientation() const { return statusBarOrientation_; }
  void setStatusBarOrientation(InterfaceOrientation orientation) {
    statusBarOrientation_ = orientation;
  }

  /// The orientations the app declares for `window` (the same for every window here).
  InterfaceOrientationMask supportedInterfaceOrientationsForWindow(
      const std::shared_ptr<Window>& window) const;
  void setSupportedInterfaceOrientations(InterfaceOrientationMask mask) {
    supportedInterfaceOrientations_ = mask;
  }

  /// No windows, no key window, portrait, all orientations but upside down.
  void reset();

 private:
  Application() = default;

  std::vector<std::shared_ptr<Window>> windows_;
  std::shared_ptr<Window> keyWindow_;
  InterfaceOrientation statusBarOrientation_ = InterfaceOrientation::Portrait;
  InterfaceOrientationMask supportedInterfaceOrientations_ =
      kInterfaceOrientationMaskAllButUpsideDown;
};

}  // namespace zorva::platform
