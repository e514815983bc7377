#pragma once

#include <functional>
#include <memory>

#include "zorva/platform/InterfaceOrientation.h"
#include "zorva/platform/View.h"

namespace zorva::platform {

enum class ModalPresentationStyle : long {
  Automatic = -2,
  FullScreen = 0,
  PageSheet = 1,
  FormSheet = 2,
  CurrentContext = 3,
  Custom = 4,
  OverFullScreen = 5,
};

enum class ModalTransitionStyle : long {
  CoverVertical = 0,
  FlipHorizontal = 1,
  CrossDissolve = 2,
  PartialCurl = 3,
};

/// Manages one view (made on first use) and modal presentation. Main thread only.
///
/// Presentation is immediate in the records (`presentedViewController` / `presentingViewController`
/// change at once) and the presented view is put in the presenter's window when it has one; the
/// completion runs on a later main-queue turn, as when the transition animation ends. A controller
/// that is presenting already, or a controller that is presented already, is not presented
/// (completion not run). Dismissal takes down every controller above the one it removes; the
/// dismissed controllers are kept alive until its completion has run.
class ViewController : public std::enable_shared_from_this<ViewController> {
 public:
  static std::shared_ptr<ViewController> create();
  virtual ~ViewController() = default;
  ViewController(const ViewController&) = delete;
  ViewController& operator=(const ViewController&) = delete;

  /// The view, loaded on first use: `loadView`, then `viewDidLoad`.
  std::shared_ptr<View> view();
  std::shared_ptr<View> viewIfLoaded() const { return view_; }
  bool isViewLoaded() const { return view_ != nullptr; }
  void setView(std::shared_ptr<View> view) { view_ = std::move(view); }

  /// Makes the view; the default is a plain view the size of the main screen.
  virtual void loadView();
  /// Runs once, right after the view is made. Overrides call the base first.
  virtual void viewDidLoad() {}

  void presentViewController(const std::shared_ptr<ViewController>& controller, bool animated,
                             std::function<void()> completion);
  /// Dismisses the controller this one presents, or, when it presents none, this controller
  /// from its presenter. With nothing to dismiss nothing happens and completion does not run.
  void dismissViewControllerAnimated(bool animated, std::function<void()> completion);

  std::shared_ptr<ViewController> presentedViewController() const { return presented_; }
  std::shared_ptr<ViewController> presentingViewController() const { return presenting_.lock(); }

  ModalPresentationStyle modalPresentationStyle() const { return presentationStyle_; }
  void setModalPresentationStyle(ModalPresentationStyle style) { presentationStyle_ = style; }
  ModalTransitionStyle modalTransitionStyle() const { return transitionStyle_; }
  void setModalTransitionStyle(ModalTransitionStyle style) { transitionStyle_ = style; }

  /// What the platform asks when it rotates or presents. Defaults: all orientations but upside
  /// down (all on a pad), autorotation on, the current status-bar orientation, status bar shown.
  virtual InterfaceOrientationMask supportedInterfaceOrientations() const;
  virtual bool shouldAutorotate() const { return true; }
  virtual InterfaceOrientation preferredInterfaceOrientationForPresentation() const;
  virtual bool prefersStatusBarHidden() const { return false; }

 protected:
  ViewController() = default;

 private:
  void takeDownPresentedChain();

  std::shared_ptr<View> view_;
  std::shared_ptr<ViewController> presented_;
  std::weak_ptr<ViewController> presenting_;
  ModalPresentationStyle presentationStyle_ = ModalPresentationStyle::Automatic;
  ModalTransitionStyle transitionStyle_ = ModalTransitionStyle::CoverVertical;
};

}  // namespace zorva::platform
