#include "Interstitial/ZVModalViewController.h"

#include <zorva/platform/Color.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/Screen.h>

#include "Common/ZVViewUtils.h"

namespace zorva {

using platform::InterfaceOrientation;
using platform::InterfaceOrientationMask;

std::shared_ptr<ZVModalViewController> ZVModalViewController::create(
    std::shared_ptr<platform::View> expandView, InterfaceOrientationMask supportedOrientations,
    InterfaceOrientation andOrientaion) {
  std::shared_ptr<ZVModalViewController> controller(new ZVModalViewController());
  controller->contentView_ = std::move(expandView);
  controller->allowRotation_ = true;
  controller->forcedOrientation_ = andOrientaion;
  controller->supportedOrientations_ = supportedOrientations;
  controller->setModalPresentationStyle(platform::ModalPresentationStyle::FullScreen);
  controller->setModalTransitionStyle(platform::ModalTransitionStyle::CrossDissolve);
  // Reading the view loads it: viewDidLoad runs here, after the presentation styles are set.
  controller->view()->setAutoresizesSubviews(true);
  return controller;
}

void ZVModalViewController::viewDidLoad() {
  ViewController::viewDidLoad();
  auto root = view();
  root->setOpaque(true);
  root->setFrame(platform::Screen::mainScreen().bounds());
  root->setBackgroundColor(platform::Color::whiteColor());
  if (contentView_) {
    root->addSubview(contentView_);
    contentView_->setTranslatesAutoresizingMaskIntoConstraints(false);
    ZVViewUtils::alignToParent(contentView_);
  }
  addCloseButton();
}

void ZVModalViewController::addCloseButton() {
  auto button = platform::Button::buttonWithType(platform::ButtonType::Custom);
  std::weak_ptr<ViewController> weakSelf = weak_from_this();
  button->addTarget(
      [weakSelf](platform::Button& sender) {
        if (auto self = std::static_pointer_cast<ZVModalViewController>(weakSelf.lock())) {
          self->closeBtnAction(sender);
        }
      },
      platform::kControlEventTouchUpInside);
  button->setTitle("X", platform::kControlStateNormal);
  button->layer()->setCornerRadius(15.0);
  button->setBackgroundColor(platform::Color::darkGrayColor());
  view()->addSubview(button);
  button->setTranslatesAutoresizingMaskIntoConstraints(false);
  ZVViewUtils::alignTopRigthCorner(button);
}

void ZVModalViewController::closeBtnAction(platform::Button&) {
  std::weak_ptr<ViewController> weakSelf = weak_from_this();
  dismissViewControllerAnimated(false, [weakSelf] {
    auto self = std::static_pointer_cast<ZVModalViewController>(weakSelf.lock());
    if (!self) return;
    if (auto delegate = self->delegate()) delegate->modalDidDissmiss();
  });
}

void ZVModalViewController::forceOrientation(InterfaceOrientation orientation,
                                             std::function<void()> completion) {
  forcedOrientation_ = orientation;
  std::weak_ptr<ViewController> weakSelf = weak_from_this();
  if (platform::Device::currentDevice().systemVersionAtLeast("13.0")) {
    auto presenter = presentingViewController();
    dismissViewControllerAnimated(false, [weakSelf, presenter, completion] {
      auto self = weakSelf.lock();
      if (!self || !presenter) return;
      presenter->presentViewController(self, false, completion);
    });
    return;
  }
  auto blank = platform::ViewController::create();
  blank->view()->setBackgroundColor(platform::Color::whiteColor());
  presentViewController(blank, false, [weakSelf, completion] {
    auto self = weakSelf.lock();
    if (!self) return;
    self->dismissViewControllerAnimated(false, completion);
  });
}

}  // namespace zorva
