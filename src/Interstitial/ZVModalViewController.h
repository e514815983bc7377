#pragma once

#include <functional>
#include <memory>

#include <zorva/platform/Button.h>
#include <zorva/platform/InterfaceOrientation.h>
#include <zorva/platform/View.h>
#include <zorva/platform/ViewController.h>

#include "Interstitial/ZVModalViewControllerDelegate.h"

namespace zorva {

/// The full-screen controller an ad's view is shown in: a white screen with the content view
/// stretched over it, a round "X" close button in the top right corner, no status bar, and
/// rotation answered from three stored values. Main thread only.
class ZVModalViewController : public platform::ViewController {
 public:
  /// The view, the orientations it may take and the one it is presented in. Loads the view at
  /// once, so `viewDidLoad` has run when this returns. (The last parameter is spelt so on
  /// purpose.)
  static std::shared_ptr<ZVModalViewController> create(
      std::shared_ptr<platform::View> expandView,
      platform::InterfaceOrientationMask supportedOrientations,
      platform::InterfaceOrientation andOrientaion);

  const std::shared_ptr<platform::View>& contentView() const { return contentView_; }
  void setContentView(std::shared_ptr<platform::View> view) { contentView_ = std::move(view); }
  std::shared_ptr<ZVModalViewControllerDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<ZVModalViewControllerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  bool allowRotation() const { return allowRotation_; }
  void setAllowRotation(bool allow) { allowRotation_ = allow; }
  platform::InterfaceOrientationMask supportedOrientations() const {
    return supportedOrientations_;
  }
  void setSupportedOrientations(platform::InterfaceOrientationMask mask) {
    supportedOrientations_ = mask;
  }
  platform::InterfaceOrientation forcedOrientation() const { return forcedOrientation_; }
  void setForcedOrientation(platform::InterfaceOrientation orientation) {
    forcedOrientation_ = orientation;
  }

  void viewDidLoad() override;
  void addCloseButton();
  /// Dismisses the controller and then tells the delegate, if the controller is still alive.
  void closeBtnAction(platform::Button& sender);

  /// Makes the platform ask for the preferred orientation again, which now answers
  /// `orientation`, then calls `completion` (required). From system 13.0 the controller is
  /// dismissed and presented again by the same presenter; before, a plain white controller is
  /// presented over it and dismissed.
  void forceOrientation(platform::InterfaceOrientation orientation,
                        std::function<void()> completion);

  platform::InterfaceOrientation preferredInterfaceOrientationForPresentation() const override {
    return forcedOrientation_;
  }
  bool shouldAutorotate() const override { return allowRotation_; }
  platform::InterfaceOrientationMask supportedInterfaceOrientations() const override {
    return supportedOrientations_;
  }
  bool prefersStatusBarHidden() const override { return true; }

 private:
  ZVModalViewController() = default;

  std::shared_ptr<platform::View> contentView_;
  std::weak_ptr<ZVModalViewControllerDelegate> delegate_;
  bool allowRotation_ = true;
  platform::InterfaceOrientationMask supportedOrientations_ = 0;
  platform::InterfaceOrientation forcedOrientation_ = platform::InterfaceOrientation::Unknown;
};

}  // namespace zorva
