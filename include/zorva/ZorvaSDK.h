#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <zorva/ZorvaExport.h>
#include <zorva/platform/Error.h>
#include <zorva/platform/Location.h>
#include <zorva/platform/URL.h>

namespace zorva {

/// SDK-wide settings, filled by the app once (normally before the first ad load). Every load reads
/// them afresh, so a change applies from the next load on. Nothing is persisted.
class ZORVA_EXPORT ZorvaSDK {
 public:
  /// The one settings object of the process; safe to call from any thread.
  static std::shared_ptr<ZorvaSDK> shared();
  /// The SDK version, "1.3.0", whatever the package's version (`ZORVA_VERSION_STRING`) is.
  static std::string version();
  /// Sets the log level: 1 errors (initial), 2 warnings, 3 information, 4 debug, 5 verbose;
  /// 0 silences the SDK.
  static void setLevel(unsigned long level);

  std::optional<std::string> appDomain() const;
  void setAppDomain(std::optional<std::string> value);
  /// The app's store page; sent as the app's store URL, and its id as the app bundle.
  std::optional<platform::URL> storeURL() const;
  void setStoreURL(std::optional<platform::URL> value);
  std::optional<std::string> appCategories() const;
  void setAppCategories(std::optional<std::string> value);
  /// App keywords (lower-case k).
  std::optional<std::string> appkeywords() const;
  void setAppkeywords(std::optional<std::string> value);
  std::optional<std::string> userKeywords() const;
  void setUserKeywords(std::optional<std::string> value);
  /// A location the app already knows; when set, the SDK does not fetch one.
  std::optional<platform::Location> location() const;
  void setLocation(std::optional<platform::Location> value);
  /// COPPA and GDPR flags: kept, but not sent with bid requests.
  bool coppa() const;
  void setCoppa(bool value);
  bool gdpr() const;
  void setGdpr(bool value);
  /// The GDPR consent string, sent with the user.
  std::optional<std::string> gdprConsent() const;
  void setGdprConsent(std::optional<std::string> value);

  // Host settings for Linux apps. Each is off by default; off, the SDK behaves as documented
  // above and in the ad formats' headers.

  /// Off by default. On: every bid request carries the OpenRTB 2.6 "regs" object, with "coppa"
  /// and "gdpr" (1 or 0, from `coppa` and `gdpr`), "us_privacy" (`usPrivacy`), "gpp" (`gpp`)
  /// and "gpp_sid" (`gppSid`, when not empty); the user object also carries the consent string
  /// as "consent", where 2.6 puts it, beside "ext"."consent". Off, no "regs" is sent at all.
  bool sendRegulations() const;
  void setSendRegulations(bool value);
  /// The CCPA (US privacy) string, such as "1YNN"; sent only with `sendRegulations`.
  std::optional<std::string> usPrivacy() const;
  void setUsPrivacy(std::optional<std::string> value);
  /// The IAB Global Privacy Platform string; sent only with `sendRegulations`.
  std::optional<std::string> gpp() const;
  void setGpp(std::optional<std::string> value);
  /// The GPP section ids that apply; sent only with `sendRegulations`.
  std::vector<int> gppSid() const;
  void setGppSid(std::vector<int> value);

  /// Off by default. On: bid requests say "test": 1, so the ad server answers without billing.
  bool testMode() const;
  void setTestMode(bool value);

  /// Off by default. On: every failure of an ad load reaches the ad format, and so the app's
  /// delegate, on the main queue, like received ads, a VAST wrapper chain's failures included.
  /// Off, transport failures are told on the network thread, request-building failures on the
  /// thread the request was built on, and a wrapper chain's failures on the network thread.
  bool callbacksOnMainQueue() const;
  void setCallbacksOnMainQueue(bool value);

  /// Off by default. On: an answer without a bid (`{}`, no or an empty "seatbid", an empty
  /// "bid", or no body at all, as with HTTP 204) is a failed load with the "no fill" error (see
  /// `isNoFill`). Off, such an answer is an ad without a creative, which a banner or interstitial
  /// reports received (an empty page), and an empty body fails as unreadable JSON.
  bool noFillAsFailure() const;
  void setNoFillAsFailure(bool value);
  /// True for the error of an answer without a bid: domain "ZorvaSDK", code 0, described
  /// "NoAdsError(0) : no fill".
  static bool isNoFill(const platform::Error& error);

  /// Off by default. On, every convention below is turned on together (off, turned off
  /// together); each stays settable alone afterwards. The conventions are what a Linux app
  /// expects of a library: failures told, never fatal, on the main queue. `appConventions` is
  /// true while all of them are on. See docs/settings.md for what each one replaces.
  bool appConventions() const;
  void setAppConventions(bool value);

  /// Off by default. On: closing the interstitial (its "X", or Escape where the host has keys)
  /// tells `interstitialDidDismissAd` and makes the interstitial loadable again. Off, the close
  /// only removes the modal.
  bool interstitialCloseDismisses() const;
  void setInterstitialCloseDismisses(bool value);
  /// Off by default. On: a load whose request lacks `publisherId` or `adunitId` fails through the
  /// format's failure callback, on the main queue, with `ZVErrorCode::InvalidRequest`. Off, such
  /// a load aborts the process.
  bool invalidRequestAsFailure() const;
  void setInvalidRequestAsFailure(bool value);
  /// Off by default. On: an answer with an HTTP status of 400 or more fails the load with
  /// `ZVErrorCode::HTTPStatus` (see `ZVErrors.h`, `httpStatusOf`). Off, the status is not looked
  /// at and the body is read as a bid response whatever it is.
  bool httpStatusAsFailure() const;
  void setHttpStatusAsFailure(bool value);
  /// Off by default. On: the ids in the bid request's query string are percent-encoded (RFC 3986
  /// unreserved characters kept). Off, they are sent as they are.
  bool percentEncodeQuery() const;
  void setPercentEncodeQuery(bool value);
  /// Off by default. On: the bid request says "Content-Type: application/json" and
  /// "x-openrtb-version" (2.5, or 2.6 with `sendRegulations`). Off, neither header is set.
  bool openRtbHeaders() const;
  void setOpenRtbHeaders(bool value);
  /// Off by default. On: turning it on applies `platform::DeviceProfile::desktop()` when the app
  /// has applied no device profile, and an interstitial asks for the main screen's size when the
  /// device's idiom has no interstitial size (0 x 0). Off, the phone profile stays.
  bool desktopProfileByDefault() const;
  void setDesktopProfileByDefault(bool value);
  /// Off by default. On: a refreshed banner removes the earlier ad's view once the new one is in
  /// place. Off, every refreshed ad's view stays under the newer ones.
  bool bannerRemovesEarlierAds() const;
  void setBannerRemovesEarlierAds(bool value);
  /// Off by default. On: a VAST answer holding no ad (or a document that is not VAST) fails the
  /// load as no fill, and a video load (in-banner video, interstitial with `switchToVideo`) that
  /// has not ended `videoLoadTimeout` seconds after `loadAd` (bid, wrapper chain and media
  /// together) fails with `ZVErrorCode::VideoLoadTimeout`, once; what that load reports later
  /// reaches no one, and the ad object loads again. Off, such loads may wait for ever and leave
  /// the ad object not loadable.
  bool videoLoadBounded() const;
  void setVideoLoadBounded(bool value);
  /// The bound of a video load, in seconds; `kVideoLoadTimeout` unless set. Taken when a load
  /// starts.
  double videoLoadTimeout() const;
  void setVideoLoadTimeout(double seconds);
  /// The bid's default `netoworkTimeout` (10 s), and as long again for the wrapper chain and the
  /// media to become ready.
  static constexpr double kVideoLoadTimeout = 20;
  /// Off by default. On: a refused `loadAd` ("Ad Not in loadable state") and a callback that
  /// finds the app's delegate already released are logged at level 1 (errors), so the default
  /// level shows them. Off, the refusal is a level-2 warning and the lost callback is not logged.
  bool logMissedCallbacks() const;
  void setLogMissedCallbacks(bool value);

  /// Off by default. On: the VAST parser reads CDATA sections as text, like plain character
  /// data, in every document of a wrapper chain — ad servers put most URLs (media files,
  /// trackers, wrapper tag URIs) in CDATA. Off, CDATA content is dropped, so such a document
  /// keeps no media URL and no tracker. Taken by each VAST parse when it starts.
  bool vastCdataText() const;
  void setVastCdataText(bool value);

  /// 0 (no budget) by default. Otherwise: the most VAST documents one video load fetches while
  /// it follows Wrappers; the fetch that would go past it fails the load at once with VAST error
  /// 302 "WRAPPER_THRESHOLD". Unbudgeted, every Wrapper of every fetched document is followed
  /// three levels down, so one answer of N Wrappers, each answering N Wrappers, costs N + N² + N³
  /// fetches. Taken by each VAST parse when it starts; `kVastFetchBudget` is a budget that no
  /// ordinary chain reaches.
  std::size_t vastFetchBudget() const;
  void setVastFetchBudget(std::size_t value);
  static constexpr std::size_t kVastFetchBudget = 32;

  /// Off by default. On: the tracking URLs the VAST player hands over (impression, progress
  /// events, completion, errors) are really sent, and so are a creative's click trackers on a
  /// click. Each URL is stored in a durable queue (an SQLite file) by the transport's own thread
  /// just after the hand-over returns (the hand-over never waits for the file), then GET with
  /// "[CACHEBUSTING]" and "[TIMESTAMP]" expanded, retried with back-off on transport errors and 5xx
  /// answers, and removed on a final answer; URLs left by an earlier run go out when the setting is
  /// turned on. Off, no tracking request leaves the device. Turning it off stops the transport;
  /// stored URLs stay for the next time.
  bool trackingTransport() const;
  void setTrackingTransport(bool value);
  /// The tracking queue's file. Unset: `$XDG_CACHE_HOME/zorva/<app>/tracking.sqlite` (`~/.cache`
  /// without `XDG_CACHE_HOME`), `<app>` the main bundle's identifier, or the program's name
  /// without one: apps share a queue only when given the same file. Taken when the tracking
  /// transport is turned on.
  std::optional<std::string> trackingQueuePath() const;
  void setTrackingQueuePath(std::optional<std::string> value);

 private:
  ZorvaSDK() = default;

  mutable std::mutex mutex_;
  std::optional<std::string> appDomain_;
  std::optional<platform::URL> storeURL_;
  std::optional<std::string> appCategories_;
  std::optional<std::string> appkeywords_;
  std::optional<std::string> userKeywords_;
  std::optional<platform::Location> location_;
  bool coppa_ = false;
  bool gdpr_ = false;
  std::optional<std::string> gdprConsent_;
  bool sendRegulations_ = false;
  std::optional<std::string> usPrivacy_;
  std::optional<std::string> gpp_;
  std::vector<int> gppSid_;
  bool testMode_ = false;
  bool callbacksOnMainQueue_ = false;
  bool noFillAsFailure_ = false;
  bool vastCdataText_ = false;
  std::size_t vastFetchBudget_ = 0;
  bool interstitialCloseDismisses_ = false;
  bool invalidRequestAsFailure_ = false;
  bool httpStatusAsFailure_ = false;
  bool percentEncodeQuery_ = false;
  bool openRtbHeaders_ = false;
  bool desktopProfileByDefault_ = false;
  bool bannerRemovesEarlierAds_ = false;
  bool videoLoadBounded_ = false;
  double videoLoadTimeout_ = kVideoLoadTimeout;
  bool logMissedCallbacks_ = false;

  bool trackingTransport_ = false;
  std::optional<std::string> trackingQueuePath_;
};

}  // namespace zorva
