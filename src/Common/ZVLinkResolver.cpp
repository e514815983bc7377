#include "Common/ZVLinkResolver.h"

#include <mutex>

#include <zorva/platform/Application.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/NumberFormatter.h>
#include <zorva/platform/UUID.h>

#include "Common/ZVLog.h"
#include "Common/ZVViewUtils.h"

namespace zorva {

namespace {

/// The first system on which the store sheet takes SKAdNetwork attribution.
constexpr const char* kStoreKitAttributionSystem = "14.0";

const Value* entry(const Value& info, const char* key) {
  auto it = info.find(key);
  return it == info.end() || it->is_null() ? nullptr : &*it;
}

std::mutex suitabilityMutex;
std::optional<bool> suitability;

/// A byte of the SDK's own data: its address names the library the SDK's code was loaded from.
const char kResourcesAnchor = 0;

}  // namespace

std::shared_ptr<ZVLinkResolver> ZVLinkResolver::create() {
  return std::shared_ptr<ZVLinkResolver>(new ZVLinkResolver());
}

void ZVLinkResolver::resolve(const std::optional<platform::URL>& url, const Value& skadnInfo) {
  if (!skadnInfo.is_object() || skadnInfo.empty()) {
    resolve(url);
    return;
  }
  tryShowingStoreProductControllerWithParameters(skadnInfo, url);
}

void ZVLinkResolver::tryShowingStoreProductControllerWithParameters(
    const Value& skadnInfo, const std::optional<platform::URL>& url) {
  Value parameters = ZVStoreKitParameters(skadnInfo);
  if (parameters.size() < 2) {
    resolve(url);
  } else if (platform::Device::currentDevice().systemVersionAtLeast(kStoreKitAttributionSystem) ||
             ZVAppSuitableForShowingStoreProductViewController()) {
    presentStoreKitWithProductParameters(parameters);
  } else {
    resolve(url);
  }
}

void ZVLinkResolver::presentStoreKitWithProductParameters(const Value& parameters) {
  // The delegate may let go of this resolver's owner while it hears will-present.
  auto self = shared_from_this();
  skProductController_ = platform::StoreProductViewController::create();
  skProductController_->setModalPresentationStyle(platform::ModalPresentationStyle::OverFullScreen);
  skProductController_->setDelegate(
      std::weak_ptr<platform::StoreProductViewControllerDelegate>(self));
  ZV_LOG(3, "-[ZVLinkResolver presentStoreKitWithProductParameters:]",
         "Showing SKProductController, Params - %s", parameters.dump().c_str());
  // The load's outcome is the store's concern; the sheet shows its own state.
  skProductController_->loadProductWithParameters(parameters, nullptr);
  present(skProductController_);
}

void ZVLinkResolver::resolve(const std::optional<platform::URL>& url) {
  auto self = shared_from_this();
  auto browser = url ? platform::SafariViewController::create(*url) : nullptr;
  if (!browser) {
    ZV_LOG(2, "-[ZVLinkResolver resolve:]", "The in-app browser cannot open %s",
           url ? url->absoluteString().c_str() : "(null)");
    return;
  }
  browser->setDelegate(std::weak_ptr<platform::SafariViewControllerDelegate>(self));
  browser->setModalPresentationStyle(platform::ModalPresentationStyle::OverFullScreen);
  present(browser);
}

void ZVLinkResolver::present(const std::shared_ptr<platform::ViewController>& controller) {
  if (auto delegate = this->delegate()) delegate->resolverWillPresentModal(*this);
  auto presenter = ZVViewUtils::zv_modalPresentationBaseViewController(ZVAppRootViewController());
  if (presenter) presenter->presentViewController(controller, true, [] {});
}

void ZVLinkResolver::productViewControllerDidFinish(
    const std::shared_ptr<platform::StoreProductViewController>& viewController) {
  viewController->dismissViewControllerAnimated(false, [self = shared_from_this()] {
    if (auto delegate = self->delegate()) delegate->resolverDidDismissModal(*self);
  });
}

void ZVLinkResolver::safariViewControllerDidFinish(
    const std::shared_ptr<platform::SafariViewController>&) {
  // The browser has already taken itself down.
  auto self = shared_from_this();
  if (auto delegate = this->delegate()) delegate->resolverDidDismissModal(*this);
}

Value ZVStoreKitParameters(const Value& skadnInfo) {
  Value parameters = Value::object();
  if (!platform::Device::currentDevice().systemVersionAtLeast(kStoreKitAttributionSystem) ||
      !skadnInfo.is_object() || skadnInfo.empty()) {
    return parameters;
  }
  const Value* item = entry(skadnInfo, "itunesitem");
  auto itemNumber = item ? NumberFromString(*item) : std::nullopt;
  if (!itemNumber) return parameters;

  auto number = [&](const char* from, const char* to) {
    if (const Value* value = entry(skadnInfo, from)) {
      if (auto converted = NumberFromString(*value)) parameters[to] = *converted;
    }
  };
  auto unchanged = [&](const char* from, const char* to) {
    if (const Value* value = entry(skadnInfo, from)) parameters[to] = *value;
  };
  parameters[platform::kStoreProductParameterITunesItemIdentifier] = *itemNumber;
  unchanged("signature", platform::kStoreProductParameterAdNetworkAttributionSignature);
  unchanged("network", platform::kStoreProductParameterAdNetworkIdentifier);
  number("campaign", platform::kStoreProductParameterAdNetworkCampaignIdentifier);
  number("timestamp", platform::kStoreProductParameterAdNetworkTimestamp);
  if (const Value* nonce = entry(skadnInfo, "nonce"); nonce && nonce->is_string()) {
    if (auto uuid = platform::UUID::fromString(nonce->get<std::string>())) {
      parameters[platform::kStoreProductParameterAdNetworkNonce] = uuid->UUIDString();
    }
  }
  unchanged("version", "adNetworkPayloadVersion");
  number("sourceapp", "adNetworkSourceAppStoreIdentifier");
  return parameters;
}

bool ZVAppSuitableForShowingStoreProductViewController() {
  std::lock_guard lock(suitabilityMutex);
  if (!suitability) {
    auto mask =
        platform::Application::shared().supportedInterfaceOrientationsForWindow(ZVkeyWindow());
    suitability = (mask & platform::kInterfaceOrientationMaskPortrait) != 0;
  }
  return *suitability;
}

void ZVResetAppSuitabilityForTesting() {
  std::lock_guard lock(suitabilityMutex);
  suitability.reset();
}

std::optional<Value> NumberFromString(const Value& object) {
  static const platform::NumberFormatter formatter;
  if (!object.is_string()) return std::nullopt;
  return formatter.numberFromString(object.get_ref<const std::string&>());
}

std::shared_ptr<platform::Bundle> ZVResourcesBundle() {
  return platform::Bundle::bundleForAddress(&kResourcesAnchor);
}

std::optional<std::string> ZVPathForResource(const std::string& name, const std::string& type) {
  auto bundle = ZVResourcesBundle();
  return bundle ? bundle->pathForResource(name, type) : std::nullopt;
}

}  // namespace zorva
