#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "zorva/platform/Error.h"
#include "zorva/platform/StoreProductViewControllerDelegate.h"
#include "zorva/platform/Value.h"
#include "zorva/platform/ViewController.h"

namespace zorva::platform {

/// Keys of the product parameters, with the phone platform's own values.
inline constexpr const char* kStoreProductParameterITunesItemIdentifier = "id";
inline constexpr const char* kStoreProductParameterAdNetworkAttributionSignature =
    "adNetworkAttributionSignature";
inline constexpr const char* kStoreProductParameterAdNetworkIdentifier = "adNetworkIdentifier";
inline constexpr const char* kStoreProductParameterAdNetworkCampaignIdentifier =
    "adNetworkCampaignIdentifier";
inline constexpr const char* kStoreProductParameterAdNetworkTimestamp = "adNetworkTimestamp";
inline constexpr const char* kStoreProductParameterAdNetworkNonce = "adNetworkNonce";

/// The in-app store page of one product. There is no store here: the sheet records what it was
/// asked to show, and a host (or a test) answers the load with `finishLoading` and plays the
/// user closing it with `finish`. Main thread only.
class StoreProductViewController : public ViewController {
 public:
  /// (loaded, error) of a product load.
  using LoadCompletion = std::function<void(bool loaded, std::optional<Error> error)>;

  static std::shared_ptr<StoreProductViewController> create();

  std::shared_ptr<StoreProductViewControllerDelegate> delegate() const { return delegate_.lock(); }
  /// Held weakly.
  void setDelegate(std::weak_ptr<StoreProductViewControllerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }

  /// Starts loading the product that `parameters` name (keys above). `completion` (may be
  /// empty) runs when the load ends; a newer load replaces a pending one, whose completion then
  /// never runs.
  void loadProductWithParameters(Value parameters, LoadCompletion completion);

  // --- state and driving (hosts and tests) ---

  /// The parameters of the latest load, or nothing before the first.
  const std::optional<Value>& productParameters() const { return productParameters_; }
  /// True while a load waits for `finishLoading`.
  bool isLoading() const { return loading_; }
  /// Ends the pending load and runs its completion. False when none is pending.
  bool finishLoading(bool loaded, std::optional<Error> error = std::nullopt);
  /// The user closed the sheet: the delegate hears `productViewControllerDidFinish`.
  void finish();

 private:
  StoreProductViewController() = default;

  std::weak_ptr<StoreProductViewControllerDelegate> delegate_;
  std::optional<Value> productParameters_;
  bool loading_ = false;
  LoadCompletion loadCompletion_;
};

}  // namespace zorva::platform
