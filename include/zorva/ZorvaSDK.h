#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <zorva/platform/Location.h>
#include <zorva/platform/URL.h>

namespace zorva {

/// SDK-wide settings, filled by the app once (normally before the first ad load). Every load reads
/// them afresh, so a change applies from the next load on. Nothing is persisted.
class ZorvaSDK {
 public:
  /// The one settings object of the process; safe to call from any thread.
  static std::shared_ptr<ZorvaSDK> shared();
  /// The SDK version, "1.3.0" (`ZORVA_VERSION_STRING`).
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

  /// Off by default. On: the VAST parser reads CDATA sections as text, like plain character
  /// data, in every document of a wrapper chain — ad servers put most URLs (media files,
  /// trackers, wrapper tag URIs) in CDATA. Off, CDATA content is dropped, so such a document
  /// keeps no media URL and no tracker. Taken by each VAST parse when it starts.
  bool vastCdataText() const;
  void setVastCdataText(bool value);

  /// Off by default. On: the tracking URLs the VAST player hands over (impression, progress
  /// events, completion, errors) are really sent, and so are a creative's click trackers on a
  /// click. Each URL is stored in a durable queue (an SQLite file) before the hand-over returns,
  /// then GET with "[CACHEBUSTING]" and "[TIMESTAMP]" expanded, retried with back-off on
  /// transport errors and 5xx answers, and removed on a final answer; URLs left by an earlier run
  /// go out when the setting is turned on. Off, no tracking request leaves the device. Turning it
  /// off stops the transport; stored URLs stay for the next time.
  bool trackingTransport() const;
  void setTrackingTransport(bool value);
  /// The tracking queue's file. Unset: `$XDG_CACHE_HOME/zorva/tracking.sqlite` (`~/.cache`
  /// without `XDG_CACHE_HOME`). Taken when the tracking transport is turned on.
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
  bool vastCdataText_ = false;

  bool trackingTransport_ = false;
  std::optional<std::string> trackingQueuePath_;
};

}  // namespace zorva
