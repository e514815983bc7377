#pragma once

#include <memory>

#include "zorva/platform/View.h"
#include "zorva/platform/WindowScene.h"

namespace zorva::platform {

class ViewController;

/// The root of a view tree shown on the screen. Whether it is the key window is a flag of its
/// own, apart from the application's `keyWindow`; `makeKeyWindow` keeps both in step, and a test
/// may set them apart. Main thread only.
class Window : public View {
 public:
  static std::shared_ptr<Window> create(const Rect& frame);

  std::shared_ptr<Window> window() const override;

  bool isKeyWindow() const { return keyWindow_; }
  /// Makes this the key window: its flag on, every other window's off, the application's
  /// `keyWindow` this one.
  void makeKeyWindow();
  /// `makeKeyWindow`, shown, and listed among the application's windows.
  void makeKeyAndVisible();
  /// Clears the flag only.
  void resignKeyWindow() { keyWindow_ = false; }

  const std::shared_ptr<ViewController>& rootViewController() const { return rootViewController_; }
  /// Installs `controller`, whose view then fills the window (replacing the former root's view).
  void setRootViewController(std::shared_ptr<ViewController> controller);

  /// The window's scene, or null (before 13.0 windows have none).
  const std::shared_ptr<WindowScene>& windowScene() const { return windowScene_; }
  void setWindowScene(std::shared_ptr<WindowScene> scene) { windowScene_ = std::move(scene); }

 private:
  explicit Window(const Rect& frame) : View(frame) {}

  bool keyWindow_ = false;
  std::shared_ptr<ViewController> rootViewController_;
  std::shared_ptr<WindowScene> windowScene_;
};

}  // namespace zorva::platform
