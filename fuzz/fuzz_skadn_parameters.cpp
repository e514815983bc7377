// First byte: the device's system (before or from 14.0) and whether the click has an address; the
// rest: an ad server's answer. Its bid's "ext"."skadn" (or, when the answer holds no ad, the whole
// JSON value) goes through the store parameter mapping and a click.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <zorva/platform/Application.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/UUID.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include "Common/ZVAdLoader.h"
#include "Common/ZVLinkResolver.h"
#include "Common/ZorvaAd.h"

namespace {

using namespace zorva;

void check(bool condition) {
  if (!condition) __builtin_trap();
}

class CountingDelegate : public ZVLinkResolverDelegate {
 public:
  void resolverWillPresentModal(ZVLinkResolver&) override { ++willPresent; }
  void resolverDidDismissModal(ZVLinkResolver&) override { ++didDismiss; }
  int willPresent = 0;
  int didDismiss = 0;
};

Value skadnInfo(const Data& body) {
  const auto reading = ZVAdLoader::readResponse(body);
  if (reading.ad) return reading.ad->skadn;
  std::optional<Error> error;
  return platform::JSONSerialization::JSONObjectWithData(
             body, platform::JSONSerialization::FragmentsAllowed, &error)
      .value_or(Value());
}

void checkParameters(const Value& parameters, bool attributionSystem) {
  check(parameters.is_object());
  if (parameters.empty()) return;
  check(attributionSystem);
  check(parameters.at("id").is_number());
  for (const auto& [key, value] : parameters.items()) {
    check(!value.is_null());
    if (key == "adNetworkCampaignIdentifier" || key == "adNetworkTimestamp" ||
        key == "adNetworkSourceAppStoreIdentifier") {
      check(value.is_number());
    } else if (key == "adNetworkNonce") {
      const auto uuid = platform::UUID::fromString(value.get<std::string>());
      check(uuid && uuid->UUIDString() == value.get<std::string>());
    } else {
      check(key == "id" || key == "adNetworkAttributionSignature" || key == "adNetworkIdentifier" ||
            key == "adNetworkPayloadVersion");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  auto& queue = platform::MainQueue::shared();
  queue.bindToCurrentThread();
  const std::uint8_t device = data[0];
  const Data body(reinterpret_cast<const char*>(data + 1), size - 1);

  platform::Application::shared().reset();
  auto profile = platform::DeviceProfile::phone();
  const bool attributionSystem = (device & 1u) != 0;
  profile.systemVersion = attributionSystem ? "14.0" : "13.7";
  profile.apply();
  const auto root = platform::ViewController::create();
  const auto window = profile.makeKeyWindow(root);

  const Value info = skadnInfo(body);
  const Value parameters = ZVStoreKitParameters(info);
  checkParameters(parameters, attributionSystem);

  const auto delegate = std::make_shared<CountingDelegate>();
  const auto resolver = ZVLinkResolver::create();
  resolver->setDelegate(delegate);
  const auto url = (device & 2u) != 0
                       ? platform::URL::URLWithString("https://advertiser.example/click?id=1")
                       : std::nullopt;
  resolver->resolve(url, info);
  const auto presented = root->presentedViewController();
  if (parameters.size() >= 2) {
    // Enough attribution from 14.0 on: the store sheet, with exactly those parameters.
    const auto& sheet = resolver->skProductController();
    check(sheet && presented == sheet && sheet->productParameters() == parameters);
    sheet->finish();
  } else {
    check(resolver->skProductController() == nullptr);
    const auto browser = std::dynamic_pointer_cast<platform::SafariViewController>(presented);
    check((browser != nullptr) == url.has_value());
    if (browser) browser->finish();
  }
  queue.runUntilIdle();
  check(root->presentedViewController() == nullptr);
  check(delegate->willPresent == (presented ? 1 : 0) &&
        delegate->didDismiss == delegate->willPresent);
  return 0;
}
