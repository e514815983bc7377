#include "Common/ZVUtility.h"

#include <zorva/platform/AdvertisingIdentifierManager.h>
#include <zorva/platform/Application.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/Locale.h>
#include <zorva/platform/ProcessInfo.h>
#include <zorva/platform/Screen.h>
#include <zorva/platform/TelephonyNetworkInfo.h>
#include <zorva/platform/WebView.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <mutex>

#include "Common/ZVViewUtils.h"

namespace zorva {

namespace {

// Process-wide caches. The lock keeps a reader on another thread safe; the first fill is
// expected on the main thread. Never destroyed: a build on another thread may read them while
// the process exits.
struct Caches {
  std::mutex mutex;
  std::optional<std::string> userAgent;
  std::optional<std::string> countryCode;
  std::shared_ptr<platform::DateFormatter> formatter;
};

Caches& caches() {
  static auto* shared = new Caches();
  return *shared;
}

std::optional<std::string> stringValue(const Value& value) {
  if (value.is_string()) return value.get<std::string>();
  return std::nullopt;
}

std::optional<std::string> nonEmpty(const std::optional<std::string>& text) {
  if (!text || text->empty()) return std::nullopt;
  return text;
}

// How the platform describes a dictionary value in a formatted string.
std::string describe(const Value& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_null()) return "<null>";
  return value.dump();
}

}  // namespace

// Fixed, whatever the package's version: ad servers key their handling on this value.
std::string ZVUtility::sdkVersion() { return "1.3.0"; }

std::string ZVUtility::sdkName() { return "ZorvaSDK"; }

Error ZVUtility::errorWithCode(std::int64_t code, const std::string& description) {
  return errorWithDomain(sdkName(), code, description);
}

Error ZVUtility::noFillError() { return errorWithCode(0, "no fill"); }

Error ZVUtility::httpStatusError(long status) {
  Error error = errorWithCode(6, "HTTP status " + std::to_string(status));
  error.userInfo["HTTPStatusCode"] = status;
  return error;
}

Error ZVUtility::invalidRequestError() {
  return errorWithCode(7, "the ad request's publisherId and adunitId must both be set");
}

Error ZVUtility::videoLoadTimeoutError(double seconds) {
  // Written the same whatever the C library's locale says a decimal point is.
  char number[32];
  const auto written = std::to_chars(number, number + sizeof number, seconds);
  return errorWithCode(
      8, "the video load took longer than " + std::string(number, written.ptr) + " s");
}

std::string ZVUtility::percentEncoded(const std::string& text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const unsigned char c : text) {
    // ASCII alone, whatever the locale says a letter is.
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~') {
      encoded.push_back(static_cast<char>(c));
    } else {
      encoded += {'%', kHex[c >> 4], kHex[c & 0xF]};
    }
  }
  return encoded;
}

Error ZVUtility::errorWithDomain(const std::string& domain, std::int64_t code,
                                 const std::string& description) {
  // Compared unsigned, so negative codes fall through to "InternalError" with the large ones.
  const char* name = "InternalError";
  switch (static_cast<std::uint64_t>(code)) {
    case 0:
      name = "NoAdsError";
      break;
    case 2:
      name = "RenderError";
      break;
    case 4:
      name = "InterstitialAlreadyShown";
      break;
    case 5:
      name = "InterstitialNotReady";
      break;
    default:
      break;
  }
  const std::string message = std::string(name) + "(" + std::to_string(code) + ") : " + description;
  const std::string localized =
      platform::Bundle::mainBundle().localizedStringForKey(message, "", "");
  return Error::withDescription(domain, code, localized);
}

std::optional<std::string> ZVUtility::appName() {
  // Entry by entry: the dictionaries may hold large lists that a copy would duplicate.
  auto& bundle = platform::Bundle::mainBundle();
  for (const char* key : {"CFBundleDisplayName", "CFBundleName"}) {
    if (auto localized = bundle.localizedInfoDictionaryValue(key); localized.is_string()) {
      return localized.get<std::string>();
    }
    if (auto info = bundle.infoDictionaryValue(key); info.is_string()) {
      return info.get<std::string>();
    }
  }
  return platform::ProcessInfo::processName();
}

std::optional<std::string> ZVUtility::appVersion() {
  return stringValue(
      platform::Bundle::mainBundle().infoDictionaryValue("CFBundleShortVersionString"));
}

std::optional<std::string> ZVUtility::appBundleId() {
  return platform::Bundle::mainBundle().bundleIdentifier();
}

std::optional<std::string> ZVUtility::vendorID() {
  auto identifier = platform::Device::currentDevice().identifierForVendor();
  if (!identifier) return std::nullopt;
  return identifier->UUIDString();
}

std::string ZVUtility::advertisingID() {
  return platform::AdvertisingIdentifierManager::sharedManager()
      .advertisingIdentifier()
      .UUIDString();
}

int ZVUtility::limitAdTracking() {
  return platform::AdvertisingIdentifierManager::sharedManager().isAdvertisingTrackingEnabled() ? 1
                                                                                                : 0;
}

std::string ZVUtility::make() { return platform::Device::currentDevice().make().value_or("Apple"); }

std::string ZVUtility::model() { return platform::Device::currentDevice().model(); }

std::string ZVUtility::osName() {
  return platform::Device::currentDevice().systemName().value_or("iOS");
}

std::string ZVUtility::osVersion() { return platform::Device::currentDevice().systemVersion(); }

std::optional<int> ZVUtility::deviceType() {
  if (auto type = platform::Device::currentDevice().openRTBDeviceType()) return type;
  if (isCurrentDeviceiPhone()) return 4;
  if (isCurrentDeviceiPad()) return 5;
  return std::nullopt;
}

bool ZVUtility::isCurrentDeviceiPhone() {
  return platform::Device::currentDevice().userInterfaceIdiom() ==
         platform::UserInterfaceIdiom::Phone;
}

bool ZVUtility::isCurrentDeviceiPad() {
  return platform::Device::currentDevice().userInterfaceIdiom() ==
         platform::UserInterfaceIdiom::Pad;
}

std::shared_ptr<platform::Carrier> ZVUtility::carrier() {
  return platform::TelephonyNetworkInfo::create()->subscriberCellularProvider();
}

std::optional<std::string> ZVUtility::carrierName() {
  auto provider = carrier();
  return provider ? provider->carrierName : std::nullopt;
}

std::optional<std::string> ZVUtility::mccmnc() {
  auto provider = carrier();
  if (!provider) return std::nullopt;
  auto mcc = nonEmpty(provider->mobileCountryCode);
  auto mnc = nonEmpty(provider->mobileNetworkCode);
  if (!mcc || !mnc) return std::nullopt;
  return *mcc + "-" + *mnc;
}

std::optional<std::string> ZVUtility::countryCode() {
  {
    std::lock_guard lock(caches().mutex);
    if (caches().countryCode) return caches().countryCode;
  }
  auto provider = carrier();
  if (provider && provider->isoCountryCode) {
    std::string key = *provider->isoCountryCode;
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const auto& table = countryCodeDictionary();
    if (auto it = table.find(key); it != table.end()) {
      std::lock_guard lock(caches().mutex);
      caches().countryCode = it->second;
    }
  }
  std::lock_guard lock(caches().mutex);
  return caches().countryCode;
}

std::optional<std::string> ZVUtility::acceptLanguage() {
  auto languages = platform::Locale::preferredLanguages();
  if (languages.empty()) return std::nullopt;
  return platform::Locale(languages.front()).languageCode();
}

std::shared_ptr<platform::DateFormatter> ZVUtility::dateFormatter() {
  std::lock_guard lock(caches().mutex);
  if (!caches().formatter) caches().formatter = platform::DateFormatter::create();
  return caches().formatter;
}

std::string ZVUtility::currentTime() {
  auto formatter = dateFormatter();
  formatter->setDateFormat("yyyy-MM-dd HH:mm:ss");
  return formatter->stringFromDate(std::chrono::system_clock::now());
}

std::string ZVUtility::currentTimeZone() {
  auto formatter = dateFormatter();
  formatter->setDateFormat("ZZZZZ");
  formatter->setTimeZone(platform::TimeZone::systemTimeZone());
  return formatter->stringFromDate(std::chrono::system_clock::now());
}

double ZVUtility::deviceWidth() { return platform::Screen::mainScreen().bounds().size.width; }

double ZVUtility::deviceHeight() { return platform::Screen::mainScreen().bounds().size.height; }

platform::Size ZVUtility::screenSize() { return platform::Screen::mainScreen().bounds().size; }

double ZVUtility::pxratio() { return platform::Screen::mainScreen().scale(); }

std::string ZVUtility::screenResolution() {
  return std::to_string(static_cast<int>(deviceWidth())) + "x" +
         std::to_string(static_cast<int>(deviceHeight()));
}

platform::InterfaceOrientation ZVUtility::currentOrientaion() {
  if (!platform::Device::currentDevice().systemVersionAtLeast("13.0")) {
    return platform::Application::shared().statusBarOrientation();
  }
  auto window = ZVkeyWindow();
  if (!window || !window->windowScene()) return platform::InterfaceOrientation::Unknown;
  return window->windowScene()->interfaceOrientation();
}

int ZVUtility::orientation() {
  auto current = currentOrientaion();
  if (platform::isPortrait(current)) return 0;
  if (platform::isLandscape(current)) return 1;
  return -1;
}

ZVAdSize ZVUtility::interstitialDefaultSize() {
  const auto current = currentOrientaion();
  const bool phone = isCurrentDeviceiPhone();
  const bool pad = isCurrentDeviceiPad();
  if (!(phone || pad) || !(platform::isPortrait(current) || platform::isLandscape(current))) {
    return ZVAdSize{0, 0};
  }
  const double longSide = pad ? 1024 : 480;
  const double shortSide = pad ? 768 : 320;
  return platform::isPortrait(current) ? ZVAdSize{shortSide, longSide}
                                       : ZVAdSize{longSide, shortSide};
}

Value ZVUtility::arrayForData(const Value& dictionary, const std::string& key) {
  if (!dictionary.is_object()) return Value::array();
  auto it = dictionary.find(key);
  if (it == dictionary.end()) return Value::array();
  if (it->is_array()) return *it;
  if (it->is_object()) return Value::array({*it});
  return Value::array();
}

std::string ZVUtility::queryString(const Value& dictionary) {
  std::string query;
  if (!dictionary.is_object()) return query;
  for (const auto& [key, value] : dictionary.items()) {
    if (!query.empty()) query += "&";
    query += key + "=" + describe(value);
  }
  return query;
}

void ZVUtility::userAgent(std::function<void(std::optional<std::string>)> callback) {
  std::optional<std::string> known;
  {
    std::lock_guard lock(caches().mutex);
    known = caches().userAgent;
  }
  if (known) {
    callback(known);
    return;
  }
  auto webView = platform::WebView::create(platform::Rect(), platform::WebViewConfiguration());
  // The completion owns the web view until the script ends: the page must outlive its script.
  auto keeper = std::make_shared<std::shared_ptr<platform::WebView>>(webView);
  webView->evaluateJavaScript("navigator.userAgent",
                              [keeper, callback = std::move(callback)](std::optional<Value> result,
                                                                       std::optional<Error> error) {
                                if (error) {
                                  callback(std::nullopt);
                                } else if (result) {
                                  auto text = describe(*result);
                                  {
                                    std::lock_guard lock(caches().mutex);
                                    caches().userAgent = text;
                                  }
                                  callback(text);
                                }
                                keeper->reset();
                              });
}

void ZVUtility::resetCachesForTesting() {
  std::lock_guard lock(caches().mutex);
  caches().userAgent.reset();
  caches().countryCode.reset();
  caches().formatter.reset();
}

}  // namespace zorva
