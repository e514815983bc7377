#include "zorva/platform/Application.h"

#include <algorithm>

#include "zorva/platform/Window.h"

namespace zorva::platform {

Application& Application::shared() {
  static Application* application = new Application();
  return *application;
}

void Application::addWindow(const std::shared_ptr<Window>& window) {
  if (!window || std::find(windows_.begin(), windows_.end(), window) != windows_.end()) return;
  windows_.push_back(window);
}

void Application::removeWindow(const std::shared_ptr<Window>& window) {
  std::erase(windows_, window);
  if (keyWindow_ == window) keyWindow_.reset();
}

InterfaceOrientationMask Application::supportedInterfaceOrientationsForWindow(
    const std::shared_ptr<Window>&) const {
  return supportedInterfaceOrientations_;
}

void Application::reset() {
  windows_.clear();
  keyWindow_.reset();
  statusBarOrientation_ = InterfaceOrientation::Portrait;
  supportedInterfaceOrientations_ = kInterfaceOrientationMaskAllButUpsideDown;
}

}  // namespace zorva::platform
