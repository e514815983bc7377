#include <zorva/ZorvaSDK.h>

#include <zorva/platform/DeviceProfile.h>

#include "Common/ZVLog.h"
#include "Common/ZVUtility.h"
#include "Network/ZVTrackingTransport.h"

namespace zorva {

std::shared_ptr<ZorvaSDK> ZorvaSDK::shared() {
  // A function-local static is initialised exactly once, whichever thread comes first. Never
  // destroyed: the network thread reads the settings while the process exits.
  static const auto* instance = new std::shared_ptr<ZorvaSDK>(new ZorvaSDK());
  return *instance;
}

std::string ZorvaSDK::version() { return ZVUtility::sdkVersion(); }

void ZorvaSDK::setLevel(unsigned long level) { ZVLog::setLevel(level); }

// The settings are plain values; a lock keeps a read on the builder's thread from tearing a
// write made on the app's thread.
#define ZORVA_PROPERTY(Type, getter, setter, field) \
  Type ZorvaSDK::getter() const {                   \
    std::lock_guard lock(mutex_);                   \
    return field;                                   \
  }                                                 \
  void ZorvaSDK::setter(Type value) {               \
    std::lock_guard lock(mutex_);                   \
    field = std::move(value);                       \
  }

ZORVA_PROPERTY(std::optional<std::string>, appDomain, setAppDomain, appDomain_)
ZORVA_PROPERTY(std::optional<platform::URL>, storeURL, setStoreURL, storeURL_)
ZORVA_PROPERTY(std::optional<std::string>, appCategories, setAppCategories, appCategories_)
ZORVA_PROPERTY(std::optional<std::string>, appkeywords, setAppkeywords, appkeywords_)
ZORVA_PROPERTY(std::optional<std::string>, userKeywords, setUserKeywords, userKeywords_)
ZORVA_PROPERTY(std::optional<platform::Location>, location, setLocation, location_)
ZORVA_PROPERTY(bool, coppa, setCoppa, coppa_)
ZORVA_PROPERTY(bool, gdpr, setGdpr, gdpr_)
ZORVA_PROPERTY(std::optional<std::string>, gdprConsent, setGdprConsent, gdprConsent_)
ZORVA_PROPERTY(bool, sendRegulations, setSendRegulations, sendRegulations_)
ZORVA_PROPERTY(std::optional<std::string>, usPrivacy, setUsPrivacy, usPrivacy_)
ZORVA_PROPERTY(std::optional<std::string>, gpp, setGpp, gpp_)
ZORVA_PROPERTY(std::vector<int>, gppSid, setGppSid, gppSid_)
ZORVA_PROPERTY(bool, testMode, setTestMode, testMode_)
ZORVA_PROPERTY(bool, callbacksOnMainQueue, setCallbacksOnMainQueue, callbacksOnMainQueue_)
ZORVA_PROPERTY(bool, noFillAsFailure, setNoFillAsFailure, noFillAsFailure_)
ZORVA_PROPERTY(bool, vastCdataText, setVastCdataText, vastCdataText_)
ZORVA_PROPERTY(std::size_t, vastFetchBudget, setVastFetchBudget, vastFetchBudget_)
ZORVA_PROPERTY(bool, interstitialCloseDismisses, setInterstitialCloseDismisses,
               interstitialCloseDismisses_)
ZORVA_PROPERTY(bool, invalidRequestAsFailure, setInvalidRequestAsFailure, invalidRequestAsFailure_)
ZORVA_PROPERTY(bool, httpStatusAsFailure, setHttpStatusAsFailure, httpStatusAsFailure_)
ZORVA_PROPERTY(bool, percentEncodeQuery, setPercentEncodeQuery, percentEncodeQuery_)
ZORVA_PROPERTY(bool, openRtbHeaders, setOpenRtbHeaders, openRtbHeaders_)
ZORVA_PROPERTY(bool, bannerRemovesEarlierAds, setBannerRemovesEarlierAds, bannerRemovesEarlierAds_)
ZORVA_PROPERTY(bool, videoLoadBounded, setVideoLoadBounded, videoLoadBounded_)
ZORVA_PROPERTY(double, videoLoadTimeout, setVideoLoadTimeout, videoLoadTimeout_)
ZORVA_PROPERTY(bool, logMissedCallbacks, setLogMissedCallbacks, logMissedCallbacks_)

ZORVA_PROPERTY(std::optional<std::string>, trackingQueuePath, setTrackingQueuePath,
               trackingQueuePath_)

#undef ZORVA_PROPERTY

bool ZorvaSDK::desktopProfileByDefault() const {
  std::lock_guard lock(mutex_);
  return desktopProfileByDefault_;
}

void ZorvaSDK::setDesktopProfileByDefault(bool value) {
  {
    std::lock_guard lock(mutex_);
    desktopProfileByDefault_ = value;
  }
  // Applied outside the lock, on the app's thread, before its loads read the device.
  if (value && !platform::DeviceProfile::anyApplied()) platform::DeviceProfile::desktop().apply();
}

bool ZorvaSDK::appConventions() const {
  std::lock_guard lock(mutex_);
  return callbacksOnMainQueue_ && noFillAsFailure_ && interstitialCloseDismisses_ &&
         invalidRequestAsFailure_ && httpStatusAsFailure_ && percentEncodeQuery_ &&
         openRtbHeaders_ && desktopProfileByDefault_ && bannerRemovesEarlierAds_ &&
         videoLoadBounded_ && logMissedCallbacks_ && vastFetchBudget_ == kVastFetchBudget;
}

void ZorvaSDK::setAppConventions(bool value) {
  setCallbacksOnMainQueue(value);
  setNoFillAsFailure(value);
  setInterstitialCloseDismisses(value);
  setInvalidRequestAsFailure(value);
  setHttpStatusAsFailure(value);
  setPercentEncodeQuery(value);
  setOpenRtbHeaders(value);
  setDesktopProfileByDefault(value);
  setBannerRemovesEarlierAds(value);
  setVideoLoadBounded(value);
  setLogMissedCallbacks(value);
  setVastFetchBudget(value ? kVastFetchBudget : 0);
}

bool ZorvaSDK::isNoFill(const platform::Error& error) { return error == ZVUtility::noFillError(); }

bool ZorvaSDK::trackingTransport() const {
  std::lock_guard lock(mutex_);
  return trackingTransport_;
}

void ZorvaSDK::setTrackingTransport(bool value) {
  // Calls from several threads take effect one at a time, so the transport running agrees with
  // the setting the last call left. The settings' lock is not held meanwhile: a stop waits for
  // the transport's worker.
  static std::mutex switching;
  std::lock_guard switched(switching);
  std::optional<std::string> path;
  {
    std::lock_guard lock(mutex_);
    trackingTransport_ = value;
    path = trackingQueuePath_;
  }
  if (!value) {
    ZVTrackingTransport::stop();
    return;
  }
  ZVTrackingTransport::Options options;
  options.queuePath = path.value_or(ZVTrackingTransport::defaultQueuePath());
  ZVTrackingTransport::start(options);
}

}  // namespace zorva
