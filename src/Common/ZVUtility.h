#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <zorva/ZVTypes.h>
#include <zorva/platform/Carrier.h>
#include <zorva/platform/DateFormatter.h>
#include <zorva/platform/InterfaceOrientation.h>

namespace zorva {

/// Stateless facts and helpers of the SDK: its name and version, its error records, and (below)
/// what it knows of the app, the device, the operator, the locale and the screen.
class ZVUtility {
 public:
  /// "1.3.0".
  static std::string sdkVersion();
  /// "ZorvaSDK", also the domain of the SDK's errors.
  static std::string sdkName();

  /// An SDK error: domain "ZorvaSDK", `code`, and the localized description
  /// "<code name>(<code>) : <description>" (code names: 0 NoAdsError, 1 InternalError,
  /// 2 RenderError, 3 InternalError, 4 InterstitialAlreadyShown, 5 InterstitialNotReady, any
  /// other InternalError).
  static Error errorWithCode(std::int64_t code, const std::string& description);
  static Error errorWithDomain(const std::string& domain, std::int64_t code,
                               const std::string& description);
  /// The failure of a load whose answer held no bid, with `ZorvaSDK::noFillAsFailure` on: code 0
  /// described "no fill".
  static Error noFillError();
  /// The failure of an answer with HTTP status `status` (400 or more), with
  /// `ZorvaSDK::httpStatusAsFailure` on: code 6 described "HTTP status <status>", the status also
  /// under "HTTPStatusCode".
  static Error httpStatusError(long status);
  /// The failure of a load whose request lacks its publisher or ad unit id: code 7.
  static Error invalidRequestError();
  /// The failure of a video load that has not ended `seconds` after it started, with
  /// `ZorvaSDK::videoLoadBounded` on: code 8.
  static Error videoLoadTimeoutError(double seconds);
  /// `text` with every byte but RFC 3986's unreserved characters written as %XX.
  static std::string percentEncoded(const std::string& text);

  // App. Strings are absent when the platform gives nothing.

  /// The first present of: localized and plain "CFBundleDisplayName", localized and plain
  /// "CFBundleName", the process name.
  static std::optional<std::string> appName();
  /// "CFBundleShortVersionString".
  static std::optional<std::string> appVersion();
  static std::optional<std::string> appBundleId();

  // Device and identifiers.

  static std::optional<std::string> vendorID();
  /// The advertising identifier as the platform gives it, even when it is withheld (all zeros).
  static std::string advertisingID();
  /// 1 when advertising tracking is ENABLED, 0 when not: the value is passed through, not
  /// inverted, whatever the name says. Bid requests depend on this reading.
  static int limitAdTracking();
  /// "Apple", unless the device profile names another maker (a Linux machine's profile does).
  static std::string make();
  static std::string model();
  /// "iOS", unless the device profile names another system ("Linux").
  static std::string osName();
  static std::string osVersion();
  /// OpenRTB device type: the device profile's when it names one (2 PC, 3 connected TV,
  /// 7 set-top box); else 4 on a phone, 5 on a pad, absent otherwise.
  static std::optional<int> deviceType();
  static bool isCurrentDeviceiPhone();
  static bool isCurrentDeviceiPad();

  // Operator: a new telephony info object at each call.

  static std::shared_ptr<platform::Carrier> carrier();
  static std::optional<std::string> carrierName();
  /// "<mcc>-<mnc>" ("404-45"); absent when either code is empty or absent.
  static std::optional<std::string> mccmnc();
  /// The SIM country's alpha-3 code ("IND"). Remembered once found; a miss is asked again at
  /// the next call.
  static std::optional<std::string> countryCode();

  // Locale and time.

  /// The language code of the user's first preferred language ("en").
  static std::optional<std::string> acceptLanguage();
  /// The one formatter the time operations share, made on first use.
  static std::shared_ptr<platform::DateFormatter> dateFormatter();
  /// Now as "yyyy-MM-dd HH:mm:ss" in the shared formatter's time zone.
  static std::string currentTime();
  /// Now's offset in the system time zone, as "+05:30", "-08:00" or "Z". Leaves the shared
  /// formatter in that zone and format.
  static std::string currentTimeZone();

  // Screen, in points.

  static double deviceWidth();
  static double deviceHeight();
  static platform::Size screenSize();
  static double pxratio();
  /// "<width>x<height>" of the screen in whole points ("375x812").
  static std::string screenResolution();
  /// The interface orientation: from system 13.0 the key window's scene's (Unknown without a
  /// scene or key window), before it the status bar's.
  static platform::InterfaceOrientation currentOrientaion();
  /// 0 portrait, 1 landscape, -1 unknown.
  static int orientation();
  /// The full-screen ad size for the idiom and orientation: 320x480 / 480x320 on a phone,
  /// 768x1024 / 1024x768 on a pad, 0x0 otherwise.
  static ZVAdSize interstitialDefaultSize();

  // Dictionaries.

  /// `dictionary[key]` as an array: an array as is, an object wrapped in a one-element array,
  /// anything else (or a missing key) an empty array.
  static Value arrayForData(const Value& dictionary, const std::string& key);
  /// "key=value" pairs joined with "&", in the dictionary's order, values by their description,
  /// nothing percent-encoded.
  static std::string queryString(const Value& dictionary);
  /// ISO 3166-1 alpha-2 → alpha-3, upper case: every assigned code plus XK, CS and AN.
  static const std::map<std::string, std::string>& countryCodeDictionary();

  // Web.

  /// The web view's user agent. From the cache at once when known; else a new web view runs
  /// "navigator.userAgent" and is kept until the script ends: an error calls back with nothing,
  /// a result fills the cache and calls back with it, neither never calls back. Main thread;
  /// the callback arrives there.
  static void userAgent(std::function<void(std::optional<std::string>)> callback);

  /// Test seam: forgets the user agent, country code and shared formatter.
  static void resetCachesForTesting();
};

}  // namespace zorva
