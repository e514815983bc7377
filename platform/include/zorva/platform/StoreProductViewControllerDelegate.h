#pragma once

#include <memory>

namespace zorva::platform {

class StoreProductViewController;

/// Hears when the user closes a store product sheet. The sheet does not take itself down: the
/// delegate dismisses it. Main thread.
class StoreProductViewControllerDelegate {
 public:
  virtual ~StoreProductViewControllerDelegate() = default;

  virtual void productViewControllerDidFinish(
      const std::shared_ptr<StoreProductViewController>& viewController) = 0;
};

}  // namespace zorva::platform
