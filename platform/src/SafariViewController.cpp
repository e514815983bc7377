#include "zorva/platform/SafariViewController.h"

namespace zorva::platform {

std::shared_ptr<SafariViewController> SafariViewController::create(const URL& url) {
  if (!url.isWeb()) return nullptr;
  return std::shared_ptr<SafariViewController>(new SafariViewController(url));
}

void SafariViewController::finish() {
  auto self = std::static_pointer_cast<SafariViewController>(shared_from_this());
  if (auto presenter = presentingViewController())
    presenter->dismissViewControllerAnimated(true, nullptr);
  if (auto delegate = this->delegate()) delegate->safariViewControllerDidFinish(self);
}

}  // namespace zorva::platform
