#pragma once

#include <functional>
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

  /// A host changed the window's size (its on-screen widget was resized): the window, its root
  /// controller's view and the view of every controller presented above it take the new
  /// bounds (presentations fill the window), then the layout pass runs.
  void resize(const Size& size);

  /// Called whenever something the window's tree shows changes (a frame, a colour, a subview,
  /// a title, a progress...), at most once per change; an on-screen host redraws from it. Empty
  /// (the default): nothing is called.
  void setNeedsDisplayHandler(std::function<void()> handler) {
    layer()->setDisplayHandler(std::move(handler));
  }

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
