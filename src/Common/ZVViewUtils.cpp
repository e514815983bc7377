#include "Common/ZVViewUtils.h"

#include <zorva/platform/Application.h>
#include <zorva/platform/Color.h>
#include <zorva/platform/Device.h>

namespace zorva {

using platform::LayoutAttribute;
using platform::LayoutConstraint;
using platform::LayoutRelation;

namespace {

std::shared_ptr<LayoutConstraint> equal(const std::shared_ptr<platform::View>& view,
                                        LayoutAttribute attribute,
                                        const std::shared_ptr<platform::View>& parent,
                                        double constant) {
  return LayoutConstraint::constraintWithItem(view, attribute, LayoutRelation::Equal, parent,
                                              parent ? attribute : LayoutAttribute::NotAnAttribute,
                                              1.0, constant);
}

}  // namespace

std::shared_ptr<platform::Window> ZVkeyWindow() {
  auto& application = platform::Application::shared();
  if (!platform::Device::currentDevice().systemVersionAtLeast("13.0")) {
    return application.keyWindow();
  }
  for (const auto& window : application.windows()) {
    if (window->isKeyWindow()) return window;
  }
  return nullptr;
}

std::shared_ptr<platform::ViewController> ZVAppRootViewController() {
  auto window = ZVkeyWindow();
  return window ? window->rootViewController() : nullptr;
}

std::vector<std::shared_ptr<LayoutConstraint>> ZVViewUtils::alignToParent(
    const std::shared_ptr<platform::View>& view) {
  auto parent = view ? view->superview() : nullptr;
  if (!parent) return {};
  std::vector<std::shared_ptr<LayoutConstraint>> constraints{
      equal(view, LayoutAttribute::Top, parent, 0),
      equal(view, LayoutAttribute::Bottom, parent, 0),
      equal(view, LayoutAttribute::Leading, parent, 0),
      equal(view, LayoutAttribute::Trailing, parent, 0),
  };
  LayoutConstraint::activateConstraints(constraints);
  return constraints;
}

std::vector<std::shared_ptr<LayoutConstraint>> ZVViewUtils::alignTopRigthCorner(
    const std::shared_ptr<platform::View>& view) {
  auto parent = view ? view->superview() : nullptr;
  if (!parent) return {};
  std::vector<std::shared_ptr<LayoutConstraint>> constraints{
      equal(view, LayoutAttribute::Width, nullptr, 32),
      equal(view, LayoutAttribute::Height, nullptr, 32),
      equal(view, LayoutAttribute::Top, parent, 10),
      equal(view, LayoutAttribute::Trailing, parent, -10),
  };
  LayoutConstraint::activateConstraints(constraints);
  return constraints;
}

std::shared_ptr<platform::WebView> ZVViewUtils::webViewWithFrame(const platform::Rect& frame) {
  const auto& device = platform::Device::currentDevice();
  platform::WebViewConfiguration configuration;
  configuration.allowsInlineMediaPlayback = true;
  configuration.allowsPictureInPictureMediaPlayback = false;
  if (device.systemVersionAtLeast("10.0")) {
    configuration.mediaTypesRequiringUserActionForPlayback = platform::kAudiovisualMediaTypeNone;
  } else {
    configuration.requiresUserActionForMediaPlayback = false;
  }
  auto webView = platform::WebView::create(frame, configuration);
  webView->scrollView()->setScrollEnabled(false);
  webView->setOpaque(false);
  webView->setBackgroundColor(platform::Color::clearColor());
  webView->setTranslatesAutoresizingMaskIntoConstraints(false);
  if (device.systemVersionAtLeast("11.0")) {
    webView->scrollView()->setContentInsetAdjustmentBehavior(
        platform::ScrollViewContentInsetAdjustmentBehavior::Never);
  }
  return webView;
}

std::shared_ptr<platform::ViewController> ZVViewUtils::zv_modalPresentationBaseViewController(
    std::shared_ptr<platform::ViewController> controller) {
  while (controller && controller->presentedViewController()) {
    controller = controller->presentedViewController();
  }
  return controller;
}

}  // namespace zorva
