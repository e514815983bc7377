#pragma once

#include <memory>
#include <vector>

#include <zorva/platform/LayoutConstraint.h>
#include <zorva/platform/View.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/WebView.h>
#include <zorva/platform/Window.h>

namespace zorva {

/// The app's key window, or null. Before system 13.0 the application's `keyWindow`; from 13.0 the
/// first of the application's windows whose key flag is set.
std::shared_ptr<platform::Window> ZVkeyWindow();

/// The key window's root view controller, or null (also without a key window).
std::shared_ptr<platform::ViewController> ZVAppRootViewController();

/// View helpers shared by the ad views, the players and the presenters. Main thread only.
class ZVViewUtils {
 public:
  /// Pins `view` to its superview's top, bottom, leading and trailing edges (constant 0, in that
  /// order), activated. The view's autoresizing-mask flag is left to the caller. Without a
  /// superview nothing is made and the list is empty.
  static std::vector<std::shared_ptr<platform::LayoutConstraint>> alignToParent(
      const std::shared_ptr<platform::View>& view);

  /// Places `view` as a 32 x 32 box 10 points in from its superview's top and trailing edges:
  /// width, height, top + 10, trailing - 10, in that order, activated. Empty without a superview.
  static std::vector<std::shared_ptr<platform::LayoutConstraint>> alignTopRigthCorner(
      const std::shared_ptr<platform::View>& view);

  /// A web view for ad creatives: inline, gesture-free media playback, no picture in picture,
  /// no scrolling, transparent, placed by constraints, content never shifted by safe-area insets.
  static std::shared_ptr<platform::WebView> webViewWithFrame(const platform::Rect& frame);

  /// The top-most controller presented above `controller` (through presented controllers), or
  /// `controller` itself when it presents none. Null stays null.
  static std::shared_ptr<platform::ViewController> zv_modalPresentationBaseViewController(
      std::shared_ptr<platform::ViewController> controller);
};

}  // namespace zorva
