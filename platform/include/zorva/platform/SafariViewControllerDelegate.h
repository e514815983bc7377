#pragma once

#include <memory>

namespace zorva::platform {

class SafariViewController;

/// Hears when the user leaves the in-app browser, after it has taken itself down. Main thread.
class SafariViewControllerDelegate {
 public:
  virtual ~SafariViewControllerDelegate() = default;

  virtual void safariViewControllerDidFinish(
      const std::shared_ptr<SafariViewController>& controller) = 0;
};

}  // namespace zorva::platform
