#include "zorva/platform/SafariViewController.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace zorva::platform {

std::shared_ptr<SafariViewController> SafariViewController::create(const URL& url) {
  std::string scheme = url.scheme();
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (scheme != "http" && scheme != "https") return nullptr;
  return std::shared_ptr<SafariViewController>(new SafariViewController(url));
}

void SafariViewController::finish() {
  auto self = std::static_pointer_cast<SafariViewController>(shared_from_this());
  if (auto presenter = presentingViewController())
    presenter->dismissViewControllerAnimated(true, nullptr);
  if (auto delegate = this->delegate()) delegate->safariViewControllerDidFinish(self);
}

}  // namespace zorva::platform
