// Bytes → the app's ad request, SDK settings, Info.plist and device facts → one bid request
// built to its end. Whatever the host and device say, the build answers once with a POST whose
// body (when it could be written) is a bid request carrying the app's ids.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <zorva/ZVAdRequest.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/AdvertisingIdentifierManager.h>
#include <zorva/platform/Application.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/LocationManager.h>
#include <zorva/platform/LogSink.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"
#include "Common/ZVRTBRequestBuilder.h"
#include "Common/ZVUtility.h"
#include "support/ByteReader.h"

namespace {

using namespace zorva;
using fuzz::ByteReader;

// Tells whether every text and number read so far can be written as JSON.
class WritableSoFar {
 public:
  const std::string& text(const std::string& value) {
    try {
      (void)Value(value).dump();
    } catch (const nlohmann::json::exception&) {
      writable_ = false;
    }
    return value;
  }
  std::optional<std::string> text(const std::optional<std::string>& value) {
    if (value) text(*value);
    return value;
  }
  double number(double value) {
    if (!std::isfinite(value)) writable_ = false;
    return value;
  }
  bool writable() const { return writable_; }

 private:
  bool writable_ = true;
};

platform::DeviceProfile readDevice(ByteReader& in, WritableSoFar& seen) {
  auto profile = in.flag() ? platform::DeviceProfile::phone() : platform::DeviceProfile::tablet();
  if (in.flag()) profile.model = seen.text(in.text());
  if (in.flag()) profile.systemVersion = seen.text(in.text());
  profile.idiom = static_cast<platform::UserInterfaceIdiom>(in.byte() % 3 - 1);
  if (in.flag()) {
    profile.portraitScreenSize.width = seen.number(in.number());
    profile.portraitScreenSize.height = seen.number(in.number());
    profile.scale = seen.number(in.number());
  }
  profile.orientation = static_cast<platform::InterfaceOrientation>(in.byte() % 5);
  profile.supportedOrientations = in.byte() & 0x1e;
  if (in.flag()) {
    platform::Carrier carrier;
    carrier.carrierName = seen.text(in.optionalText());
    carrier.isoCountryCode = in.optionalText();
    carrier.mobileCountryCode = seen.text(in.optionalText());
    carrier.mobileNetworkCode = seen.text(in.optionalText());
    profile.carrier = carrier;
  } else if (in.flag()) {
    profile.carrier.reset();
  }
  if (in.flag()) {
    profile.preferredLanguages.clear();
    for (int count = in.byte() % 3; count > 0; --count) {
      profile.preferredLanguages.push_back(seen.text(in.text()));
    }
  }
  return profile;
}

Value readInfoDictionary(ByteReader& in, WritableSoFar& seen) {
  Value info = Value::object();
  if (in.flag()) info["CFBundleDisplayName"] = seen.text(in.text());
  if (in.flag()) info["CFBundleShortVersionString"] = seen.text(in.text());
  if (in.flag()) {
    // Every entry names its network: one that does not stops the process on purpose.
    Value items = Value::array();
    for (int count = in.byte() % 4; count > 0; --count) {
      items.push_back({{"SKAdNetworkIdentifier", seen.text(in.text())}});
    }
    info["SKAdNetworkItems"] = std::move(items);
  }
  return info;
}

void readSettings(ByteReader& in, WritableSoFar& seen) {
  auto sdk = ZorvaSDK::shared();
  const auto store = in.optionalText();
  sdk->setStoreURL(store ? platform::URL::URLWithString(seen.text(*store)) : std::nullopt);
  sdk->setAppkeywords(seen.text(in.optionalText()));
  sdk->setUserKeywords(seen.text(in.optionalText()));
  sdk->setGdprConsent(seen.text(in.optionalText()));
  sdk->setCoppa(in.flag());
  sdk->setGdpr(in.flag());
  if (in.flag()) {
    // Braces: the two reads happen in order (as call arguments their order is unspecified).
    sdk->setLocation(platform::Location{seen.number(in.number()), seen.number(in.number())});
  } else {
    sdk->setLocation(std::nullopt);
  }
  const auto status = static_cast<platform::AuthorizationStatus>(in.byte() % 5);
  platform::LocationManager::reset();
  platform::LocationManager::setAuthorizationStatus(status);
  // An authorized fetch needs a fix to answer with, as a device eventually has.
  platform::LocationManager::setSimulatedLocation(
      platform::Location{seen.number(in.number()), seen.number(in.number())});
  platform::AdvertisingIdentifierManager::sharedManager().setAdvertisingTrackingEnabled(in.flag());
}

void check(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto& queue = platform::MainQueue::shared();
  queue.bindToCurrentThread();
  ByteReader in(data, size);
  WritableSoFar seen;

  auto request = std::make_shared<ZVAdRequest>();
  request->publisherId = seen.text(in.text());
  request->adunitId = seen.text(in.text());
  request->serverUrl = in.optionalText();
  request->netoworkTimeout = in.byte();

  platform::Application::shared().reset();
  const auto profile = readDevice(in, seen);
  profile.apply();
  const auto window = profile.makeKeyWindow(platform::ViewController::create());
  platform::Bundle::mainBundle().reset();
  platform::Bundle::mainBundle().setInfoDictionary(readInfoDictionary(in, seen));
  readSettings(in, seen);
  ZVInstanceFactory::setSharedLocationManagerForTesting(nullptr);
  ZVUtility::resetCachesForTesting();  // the user agent comes from this device's web view

  auto builder = ZVRTBRequestBuilder::create(request);
  const bool video = in.flag();
  const bool interstitial = in.flag();
  const ZVAdSize slot{seen.number(in.number()), seen.number(in.number())};
  builder->setIsVideo(video);
  builder->setIsInterstitial(interstitial);
  builder->setRequestedAdSize(slot);
  // Up to level 3, where the whole request is written to the log (here, dropped).
  ZVLog::setLevel(in.byte() % 4);
  platform::LogSink::shared().setHandler([](std::string_view) {});

  int calls = 0;
  std::optional<platform::URLRequest> built;
  builder->build([&](std::optional<platform::URLRequest> answer, std::optional<Error> error) {
    ++calls;
    check(answer && !error);
    built = std::move(answer);
  });
  check(queue.runUntil([&] { return calls > 0; }, std::chrono::seconds(10)));
  queue.runUntilIdle();
  check(calls == 1);
  check(built->HTTPMethod == "POST");
  check(request->serverUrl.has_value());
  if (!built->HTTPBody) {
    check(!seen.writable());
    return 0;
  }
  const Value body = Value::parse(*built->HTTPBody);
  const Value& imp = body.at("imp");
  check(imp.size() == 1);
  check(imp[0].at("tagid") == *request->adunitId);
  check(imp[0].contains("video") == video && imp[0].contains("banner") == !video);
  check(imp[0].at("instl") == (interstitial ? 1 : 0));
  if (!video && !interstitial) {
    check(imp[0]["banner"].at("w") == slot.width && imp[0]["banner"].at("h") == slot.height);
  }
  check(body.at("app").at("publisher").at("id") == *request->publisherId);
  check(body.at("user").is_object() && body.at("device").is_object());
  const Value items =
      platform::Bundle::mainBundle().infoDictionary().value("SKAdNetworkItems", Value::array());
  if (platform::Device::currentDevice().systemVersionAtLeast("14.0") && !items.empty()) {
    check(imp[0].at("ext").at("skadn").at("skadnetids").size() == items.size());
  }
  return 0;
}
