#include "zorva/platform/ViewController.h"

#include "zorva/platform/Application.h"
#include "zorva/platform/Device.h"
#include "zorva/platform/MainQueue.h"
#include "zorva/platform/Screen.h"
#include "zorva/platform/Window.h"

namespace zorva::platform {

std::shared_ptr<ViewController> ViewController::create() {
  return std::shared_ptr<ViewController>(new ViewController());
}

std::shared_ptr<View> ViewController::view() {
  if (!view_) {
    loadView();
    if (!view_) view_ = View::create(Screen::mainScreen().bounds());
    viewDidLoad();
  }
  return view_;
}

void ViewController::loadView() { view_ = View::create(Screen::mainScreen().bounds()); }

void ViewController::presentViewController(const std::shared_ptr<ViewController>& controller, bool,
                                           std::function<void()> completion) {
  if (!controller || controller.get() == this || presented_ ||
      controller->presentingViewController()) {
    return;
  }
  presented_ = controller;
  controller->presenting_ = weak_from_this();
  if (auto window = view_ ? view_->window() : nullptr) {
    auto shown = controller->view();
    shown->setFrame(window->bounds());
    window->addSubview(shown);
  }
  MainQueue::shared().post([controller, completion = std::move(completion)] {
    if (completion) completion();
  });
}

void ViewController::dismissViewControllerAnimated(bool, std::function<void()> completion) {
  auto presenter = presented_ ? shared_from_this() : presentingViewController();
  if (!presenter || !presenter->presented_) return;
  auto dismissed = presenter->presented_;
  presenter->presented_.reset();
  dismissed->presenting_.reset();
  dismissed->takeDownPresentedChain();
  if (auto shown = dismissed->viewIfLoaded()) shown->removeFromSuperview();
  MainQueue::shared().post([dismissed, completion = std::move(completion)] {
    if (completion) completion();
  });
}

void ViewController::takeDownPresentedChain() {
  if (!presented_) return;
  auto above = std::move(presented_);
  presented_.reset();
  above->presenting_.reset();
  above->takeDownPresentedChain();
  if (auto shown = above->viewIfLoaded()) shown->removeFromSuperview();
}

InterfaceOrientationMask ViewController::supportedInterfaceOrientations() const {
  return Device::currentDevice().userInterfaceIdiom() == UserInterfaceIdiom::Pad
             ? kInterfaceOrientationMaskAll
             : kInterfaceOrientationMaskAllButUpsideDown;
}

InterfaceOrientation ViewController::preferredInterfaceOrientationForPresentation() const {
  return Application::shared().statusBarOrientation();
}

}  // namespace zorva::platform
