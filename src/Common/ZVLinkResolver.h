#pragma once

#include <memory>
#include <optional>
#include <string>

#include <zorva/ZVTypes.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>
#include <zorva/platform/URL.h>

#include "Common/ZVLinkResolverDelegate.h"

namespace zorva {

/// Opens a click-through: the store sheet with the bid's SKAdNetwork attribution when it carries
/// enough of it (and the system can take it), otherwise the in-app browser on the click URL.
/// Either is presented over-full-screen, animated, from the top-most controller of the key
/// window's root; the delegate hears will-present just before and did-dismiss once the user has
/// closed it. With no key window nothing is shown, but will-present is still reported.
/// Main thread only.
class ZVLinkResolver : public std::enable_shared_from_this<ZVLinkResolver>,
                       public platform::StoreProductViewControllerDelegate,
                       public platform::SafariViewControllerDelegate {
 public:
  static std::shared_ptr<ZVLinkResolver> create();

  std::shared_ptr<ZVLinkResolverDelegate> delegate() const { return delegate_.lock(); }
  /// Held weakly.
  void setDelegate(std::weak_ptr<ZVLinkResolverDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  /// The last store sheet made, or null.
  const std::shared_ptr<platform::StoreProductViewController>& skProductController() const {
    return skProductController_;
  }

  /// The players' entry point: a click on `url` with the ad's SKAdNetwork information (null, or
  /// an object with no entries, goes straight to the browser; so does anything not an object).
  /// A click without a URL still opens the store sheet when the information allows it.
  void resolve(const std::optional<platform::URL>& url, const Value& skadnInfo);
  /// The store sheet when the parameters made from `skadnInfo` are enough (two or more) and the
  /// system can show them; else the browser on `url`.
  void tryShowingStoreProductControllerWithParameters(const Value& skadnInfo,
                                                      const std::optional<platform::URL>& url);
  /// Shows the store sheet for `parameters` without waiting for its load.
  void presentStoreKitWithProductParameters(const Value& parameters);
  /// Opens the in-app browser on `url`. The browser takes only http and https: for any other
  /// scheme, or no URL, a warning is logged and nothing is shown or reported.
  void resolve(const std::optional<platform::URL>& url);

  void productViewControllerDidFinish(
      const std::shared_ptr<platform::StoreProductViewController>& viewController) override;
  void safariViewControllerDidFinish(
      const std::shared_ptr<platform::SafariViewController>& controller) override;

 private:
  ZVLinkResolver() = default;
  void present(const std::shared_ptr<platform::ViewController>& controller);

  std::weak_ptr<ZVLinkResolverDelegate> delegate_;
  std::shared_ptr<platform::StoreProductViewController> skProductController_;
};

/// The store sheet's product parameters for the bid's SKAdNetwork object, key by key:
///   "itunesitem" → item identifier (number), "signature" → attribution signature, "network" →
///   network identifier, "campaign" → campaign identifier (number), "timestamp" → timestamp
///   (number), "nonce" → nonce (UUID, written in its canonical upper-case form), "version" →
///   "adNetworkPayloadVersion", "sourceapp" → "adNetworkSourceAppStoreIdentifier" (number).
/// A value that is missing or does not convert leaves its key out. Empty before system 14.0,
/// for an info that is not an object with entries, and when "itunesitem" is missing or not a
/// number.
Value ZVStoreKitParameters(const Value& skadnInfo);

/// Whether the app can show the store sheet on systems before 14.0: the orientations it declares
/// for the key window include portrait. Worked out on the first call and kept for the process.
bool ZVAppSuitableForShowingStoreProductViewController();
/// Test seam: forgets the kept answer of `ZVAppSuitableForShowingStoreProductViewController`.
void ZVResetAppSuitabilityForTesting();

/// The number a string holds (read by one shared default number formatter); nothing for
/// anything that is not a string, or a string that is not a number.
std::optional<Value> NumberFromString(const Value& object);

/// The SDK's own bundle: the directory of the library that holds the SDK's code.
std::shared_ptr<platform::Bundle> ZVResourcesBundle();
/// The path of the resource "<name>.<type>" in the SDK's bundle, or nothing.
std::optional<std::string> ZVPathForResource(const std::string& name, const std::string& type);

}  // namespace zorva
