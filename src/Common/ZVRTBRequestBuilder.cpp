#include "Common/ZVRTBRequestBuilder.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Text.h>
#include <zorva/platform/UUID.h>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLocationManager.h"
#include "Common/ZVLog.h"
#include "Common/ZVUtility.h"

namespace zorva {

namespace {

constexpr const char* kSKAdNetworkWarning =
    "Please Add SKNetwork ids in plist, It's absense will affect app installation campaign "
    "measurement";

// A programming error of the host app: stop at once, saying what is wrong, rather than send a
// request the ad server cannot attribute.
[[noreturn]] void fatal(const char* message) {
  std::fprintf(stderr, "Zorva SDK: fatal: %s\n", message);
  std::fflush(stderr);
  std::abort();
}

// Setting an absent value leaves the key out.
template <typename T>
void setIfPresent(Value& object, const char* key, const std::optional<T>& value) {
  if (value) object[key] = *value;
}

// The "skadnetids" list made from the app's "SKAdNetworkItems" (null when it lists none), kept
// while the bundle's information dictionaries stay as they are: the list is the same on every
// request, and reading and copying it item by item cost more than the rest of a request.
Value skadNetworkIds() {
  struct Cache {
    std::mutex mutex;
    std::optional<std::uint64_t> generation;
    Value ids;
  };
  static auto* cache = new Cache();  // never destroyed: builds may run while the process exits
  auto& bundle = platform::Bundle::mainBundle();
  const std::uint64_t generation = bundle.infoGeneration();
  {
    std::lock_guard lock(cache->mutex);
    if (cache->generation == generation) return cache->ids;
  }
  const Value items = bundle.objectForInfoDictionaryKey("SKAdNetworkItems");
  Value ids;
  if (items.is_array() && !items.empty()) {
    ids = Value::array();
    for (const Value& item : items) {
      auto id = item.is_object() ? item.find("SKAdNetworkIdentifier") : item.end();
      if (!item.is_object() || id == item.end() || id->is_null()) {
        fatal(
            "ZVRTBRequestBuilder: every entry of the app's \"SKAdNetworkItems\" needs an "
            "\"SKAdNetworkIdentifier\"");
      }
      ids.push_back(*id);
    }
  }
  // Kept only when the dictionaries did not change while they were read.
  if (bundle.infoGeneration() == generation) {
    std::lock_guard lock(cache->mutex);
    cache->generation = generation;
    cache->ids = ids;
  }
  return ids;
}

// An empty object with room for `keys` entries. Objects keep their entries in a vector whose
// growth copies every entry made so far, with its whole subtree (an entry's key is const, so it
// cannot be moved): the request's objects are sized once instead.
Value objectWithRoomFor(std::size_t keys) {
  Value object = Value::object();
  object.get_ref<Value::object_t&>().reserve(keys);
  return object;
}

Value sizeObject(ZVAdSize size) {
  Value object = Value::object();
  object["w"] = size.width;
  object["h"] = size.height;
  return object;
}

}  // namespace

std::string itunesIdFromURL(const platform::URL& url) {
  const std::string last = url.lastPathComponent();
  std::string id;
  id.reserve(last.size());
  for (std::size_t i = 0; i < last.size(); ++i) {
    if (last.compare(i, 2, "id") == 0) {
      ++i;  // one left-to-right pass: the text after a removal is not searched again
      continue;
    }
    id.push_back(last[i]);
  }
  return id;
}

std::shared_ptr<ZVRTBRequestBuilder> ZVRTBRequestBuilder::create(
    std::shared_ptr<ZVAdRequest> request) {
  return std::shared_ptr<ZVRTBRequestBuilder>(new ZVRTBRequestBuilder(std::move(request)));
}

void ZVRTBRequestBuilder::build(Completion completion) {
  completionBlock_ = std::move(completion);
  auto settings = ZorvaSDK::shared();
  if (!request_->publisherId || !request_->adunitId) {
    if (settings->invalidRequestAsFailure()) {
      ZV_LOG(1, "-[ZVRTBRequestBuilder build:]", "%s",
             "the ad request's publisherId and adunitId must both be set");
      // Told from the main queue, never inside loadAd: the format is loading by then.
      platform::MainQueue::shared().post([self = shared_from_this()] {
        if (self->completionBlock_) {
          self->completionBlock_(std::nullopt, ZVUtility::invalidRequestError());
        }
      });
      return;
    }
    fatal(
        "ZVRTBRequestBuilder: the ad request's publisherId and adunitId must both be set "
        "before an ad is loaded");
  }
  const bool encode = settings->percentEncodeQuery();
  Value parameters = Value::object();
  parameters["pid"] =
      encode ? ZVUtility::percentEncoded(*request_->publisherId) : *request_->publisherId;
  parameters["aid"] = encode ? ZVUtility::percentEncoded(*request_->adunitId) : *request_->adunitId;
  // Written back into the request, so later loads find it set.
  if (!request_->serverUrl) request_->serverUrl = ZVAdRequest::defaultServerUrl();

  const std::string text = *request_->serverUrl + "?" + ZVUtility::queryString(parameters);
  platform::URLRequest request(platform::URL::URLWithString(text),
                               platform::URLRequestCachePolicy::ReloadIgnoringLocalCacheData,
                               static_cast<double>(request_->netoworkTimeout));
  request.HTTPMethod = "POST";
  if (settings->openRtbHeaders()) {
    request.setValueForHTTPHeaderField("application/json", "Content-Type");
    // The regulations' form is 2.6's; everything else in the request is 2.5's.
    request.setValueForHTTPHeaderField(settings->sendRegulations() ? "2.6" : "2.5",
                                       "x-openrtb-version");
  }

  auto self = shared_from_this();
  rtbDictionary([self, request = std::move(request)](Value dictionary) mutable {
    self->deliver(std::move(request), dictionary);
  });
}

void ZVRTBRequestBuilder::deliver(platform::URLRequest request, const Value& dictionary) {
  try {
    std::optional<Error> error;
    auto body = platform::JSONSerialization::dataWithJSONObject(dictionary, &error);
    if (error) {
      ZV_LOG(1, "-[ZVRTBRequestBuilder build:]_block_invoke", "%s",
             error->localizedDescription().c_str());
    }
    // After a serialisation error the request still goes out, without a body.
    if (body) request.HTTPBody = std::move(*body);
    if (ZVLog::level() >= 3) {
      const std::string url = request.url ? request.url->absoluteString() : "(null)";
      const auto data =
          request.HTTPBody ? platform::stringFromUTF8Data(*request.HTTPBody) : std::nullopt;
      ZV_LOG(3, "-[ZVRTBRequestBuilder build:]_block_invoke", "\nURL - %s\n Data - %s\n",
             url.c_str(), platform::describe(data).c_str());
    }
    if (completionBlock_) completionBlock_(std::move(request), std::nullopt);
  } catch (const std::exception& exception) {
    if (completionBlock_) {
      completionBlock_(std::nullopt, ZVUtility::errorWithCode(1, exception.what()));
    }
  }
}

void ZVRTBRequestBuilder::rtbDictionary(DictionaryCallback callback) {
  Value dictionary = objectWithRoomFor(8);
  dictionary["id"] = platform::UUID::create().UUIDString();
  dictionary["imp"] = Value::array({impressionJson()});
  dictionary["app"] = appJson();
  dictionary["user"] = userJson();
  addHostSettings(dictionary);
  deviceJson(
      [dictionary = std::move(dictionary), callback = std::move(callback)](Value device) mutable {
        dictionary["device"] = std::move(device);
        callback(std::move(dictionary));
      });
}

ZVAdSize ZVRTBRequestBuilder::slotSize() const {
  if (!isInterstitial_) return requestedAdSize_;
  const ZVAdSize size = ZVUtility::interstitialDefaultSize();
  // A desktop or TV has no interstitial size of its own: it fills the screen.
  if (size.width == 0 && size.height == 0 && ZorvaSDK::shared()->desktopProfileByDefault()) {
    return ZVUtility::screenSize();
  }
  return size;
}

Value ZVRTBRequestBuilder::impressionJson() {
  Value impression = objectWithRoomFor(12);
  impression["id"] = platform::UUID::create().UUIDString();
  setIfPresent(impression, "tagid", request_->adunitId);
  if (isVideo_) {
    impression["video"] = videoJson();
  } else {
    impression["banner"] = bannerJson();
  }
  impression["instl"] = isInterstitial_ ? 1 : 0;
  impression["secure"] = 1;
  impression["displaymanager"] = ZVUtility::sdkName();
  impression["displaymanagerver"] = ZVUtility::sdkVersion();

  if (!platform::Device::currentDevice().systemVersionAtLeast("14.0")) return impression;

  Value ids = skadNetworkIds();
  if (ids.is_null()) {
    ZV_LOG(2, "-[ZVRTBRequestBuilder impressionJson]", "%s", kSKAdNetworkWarning);
    return impression;
  }
  Value skadn = Value::object();
  skadn["version"] = "2.0";
  if (auto storeURL = ZorvaSDK::shared()->storeURL();
      storeURL && !storeURL->absoluteString().empty()) {
    skadn["sourceapp"] = itunesIdFromURL(*storeURL);
  }
  skadn["skadnetids"] = std::move(ids);
  Value ext = Value::object();
  ext["skadn"] = std::move(skadn);
  impression["ext"] = std::move(ext);
  return impression;
}

Value ZVRTBRequestBuilder::bannerJson() const {
  Value banner = Value::object();
  if (isInterstitial_) banner["pos"] = 7;
  const ZVAdSize size = slotSize();
  banner["w"] = size.width;
  banner["h"] = size.height;
  return banner;
}

Value ZVRTBRequestBuilder::videoJson() const {
  Value video = Value::object();
  video["mimes"] = Value::array({"video/3gpp2", "video/mp4", "video/3gpp"});
  video["protocols"] = Value::array({2, 3, 5, 6, 7, 8});
  video["linearity"] = 1;
  const ZVAdSize size = slotSize();
  video["w"] = size.width;
  video["h"] = size.height;
  return video;
}

Value ZVRTBRequestBuilder::sizeArrayForAdSizes(const std::vector<ZVAdSize>& sizes) {
  Value array = Value::array();
  for (const ZVAdSize& size : sizes) array.push_back(sizeObject(size));
  return array;
}

Value ZVRTBRequestBuilder::interstitialSizeArray() {
  return sizeArrayForAdSizes({ZVUtility::interstitialDefaultSize()});
}

Value ZVRTBRequestBuilder::appJson() const {
  auto settings = ZorvaSDK::shared();
  Value app = objectWithRoomFor(8);
  Value publisher = Value::object();
  setIfPresent(publisher, "id", request_->publisherId);
  app["publisher"] = std::move(publisher);
  setIfPresent(app, "name", ZVUtility::appName());
  setIfPresent(app, "ver", ZVUtility::appVersion());
  setIfPresent(app, "keywords", settings->appkeywords());
  if (auto storeURL = settings->storeURL()) {
    app["storeurl"] = storeURL->absoluteString();
    // The App Store id, not the bundle identifier: that is what the exchange expects here.
    app["bundle"] = itunesIdFromURL(*storeURL);
  }
  return app;
}

Value ZVRTBRequestBuilder::userJson() const {
  auto settings = ZorvaSDK::shared();
  Value user = Value::object();
  setIfPresent(user, "keywords", settings->userKeywords());
  if (auto consent = settings->gdprConsent()) {
    Value ext = Value::object();
    ext["consent"] = *consent;
    user["ext"] = std::move(ext);
  }
  return user;
}

Value ZVRTBRequestBuilder::regulationsJson() const {
  auto settings = ZorvaSDK::shared();
  Value regulations = Value::object();
  regulations["coppa"] = settings->coppa();
  Value ext = Value::object();
  ext["gdpr"] = settings->gdpr();
  regulations["ext"] = std::move(ext);
  return regulations;
}

void ZVRTBRequestBuilder::addHostSettings(Value& dictionary) const {
  auto settings = ZorvaSDK::shared();
  if (settings->testMode()) dictionary["test"] = 1;
  if (!settings->sendRegulations()) return;
  Value regs = Value::object();
  regs["coppa"] = settings->coppa() ? 1 : 0;
  regs["gdpr"] = settings->gdpr() ? 1 : 0;
  setIfPresent(regs, "us_privacy", settings->usPrivacy());
  setIfPresent(regs, "gpp", settings->gpp());
  if (auto sections = settings->gppSid(); !sections.empty()) regs["gpp_sid"] = sections;
  dictionary["regs"] = std::move(regs);
  // OpenRTB 2.6 reads the consent string here; "ext"."consent" stays for older servers.
  setIfPresent(dictionary["user"], "consent", settings->gdprConsent());
}

void ZVRTBRequestBuilder::deviceJson(DictionaryCallback callback) {
  // Everything after the location, then the user agent, which may both arrive later.
  auto finish = [](DictionaryCallback callback, std::optional<platform::Location> location) {
    Value device = objectWithRoomFor(24);
    if (location) {
      Value geo = Value::object();
      geo["lat"] = location->coordinate.latitude;
      geo["lon"] = location->coordinate.longitude;
      geo["type"] = 3;
      device["geo"] = std::move(geo);
    }
    device["ifa"] = ZVUtility::advertisingID();
    device["lmt"] = ZVUtility::limitAdTracking();
    setIfPresent(device, "devicetype", ZVUtility::deviceType());
    setIfPresent(device, "mccmnc", ZVUtility::mccmnc());
    device["pxratio"] = ZVUtility::pxratio();
    device["make"] = ZVUtility::make();
    device["model"] = ZVUtility::model();
    device["os"] = ZVUtility::osName();
    device["osv"] = ZVUtility::osVersion();
    device["w"] = ZVUtility::deviceWidth();
    device["h"] = ZVUtility::deviceHeight();
    device["js"] = 1;
    setIfPresent(device, "language", ZVUtility::acceptLanguage());
    setIfPresent(device, "carrier", ZVUtility::carrierName());
    ZVUtility::userAgent([device = std::move(device), callback = std::move(callback)](
                             std::optional<std::string> userAgent) mutable {
      setIfPresent(device, "ua", userAgent);
      callback(std::move(device));
    });
  };
  if (auto location = ZorvaSDK::shared()->location()) {
    finish(std::move(callback), location);
    return;
  }
  // The location manager may answer more than once; each answer gets the whole callback.
  ZVInstanceFactory::sharedLocationManager()->fetchLocation(
      [finish, callback = std::move(callback)](std::optional<platform::Location> location) {
        finish(callback, location);
      });
}

}  // namespace zorva
