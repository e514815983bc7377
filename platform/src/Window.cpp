#include "zorva/platform/Window.h"

#include "zorva/platform/Application.h"
#include "zorva/platform/ViewController.h"

namespace zorva::platform {

std::shared_ptr<Window> Window::create(const Rect& frame) {
  return std::shared_ptr<Window>(new Window(frame));
}

std::shared_ptr<Window> Window::window() const {
  return std::static_pointer_cast<Window>(std::const_pointer_cast<View>(shared_from_this()));
}

void Window::makeKeyWindow() {
  auto& application = Application::shared();
  for (const auto& other : application.windows()) other->keyWindow_ = false;
  keyWindow_ = true;
  application.setKeyWindow(std::static_pointer_cast<Window>(shared_from_this()));
}

void Window::makeKeyAndVisible() {
  Application::shared().addWindow(std::static_pointer_cast<Window>(shared_from_this()));
  setHidden(false);
  makeKeyWindow();
}

void Window::resize(const Size& size) {
  setFrame(Rect(frame().origin.x, frame().origin.y, size.width, size.height));
  for (auto controller = rootViewController_; controller;
       controller = controller->presentedViewController()) {
    if (auto view = controller->viewIfLoaded()) view->setFrame(bounds());
  }
  layoutIfNeeded();
}

void Window::setRootViewController(std::shared_ptr<ViewController> controller) {
  if (rootViewController_ == controller) return;
  if (rootViewController_) {
    if (auto old = rootViewController_->viewIfLoaded()) old->removeFromSuperview();
  }
  rootViewController_ = std::move(controller);
  if (rootViewController_) {
    auto view = rootViewController_->view();
    view->setFrame(bounds());
    addSubview(view);
  }
}

}  // namespace zorva::platform
