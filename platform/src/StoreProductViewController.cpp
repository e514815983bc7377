#include "zorva/platform/StoreProductViewController.h"

namespace zorva::platform {

std::shared_ptr<StoreProductViewController> StoreProductViewController::create() {
  return std::shared_ptr<StoreProductViewController>(new StoreProductViewController());
}

void StoreProductViewController::loadProductWithParameters(Value parameters,
                                                           LoadCompletion completion) {
  productParameters_ = std::move(parameters);
  loading_ = true;
  loadCompletion_ = std::move(completion);
}

bool StoreProductViewController::finishLoading(bool loaded, std::optional<Error> error) {
  if (!loading_) return false;
  loading_ = false;
  if (auto completion = std::exchange(loadCompletion_, nullptr)) {
    completion(loaded, std::move(error));
  }
  return true;
}

void StoreProductViewController::finish() {
  auto self = std::static_pointer_cast<StoreProductViewController>(shared_from_this());
  if (auto delegate = this->delegate()) delegate->productViewControllerDidFinish(self);
}

}  // namespace zorva::platform
