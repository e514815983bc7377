#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <zorva/ZVAdRequest.h>
#include <zorva/ZVTypes.h>
#include <zorva/platform/URL.h>

#include "Common/ZVRequestBuilding.h"

namespace zorva {

/// Builds the OpenRTB 2.x bid request of one ad load and hands the loader a ready HTTP POST to
/// the request's `serverUrl`, with "pid" and "aid" in the query.
///
/// The request holds one impression (a banner or a video object with one size, and the app's
/// SKAdNetwork identifiers from system 14.0 on), the app, the user and the device. The device
/// waits for two values that may arrive later: a location (the app's, or one fetched through the
/// shared location manager) and the web view's user agent. `build` therefore finishes on the
/// thread the user agent arrives on: the main thread for the first build of the process, the
/// calling thread (or the location callback's) once the user agent is cached. Builds are started
/// from the main thread.
///
/// Building with `publisherId` or `adunitId` absent is a programming error: the process stops with
/// a message saying so.
class ZVRTBRequestBuilder : public ZVRequestBuilding,
                            public std::enable_shared_from_this<ZVRTBRequestBuilder> {
 public:
  using DictionaryCallback = std::function<void(Value dictionary)>;

  static std::shared_ptr<ZVRTBRequestBuilder> create(std::shared_ptr<ZVAdRequest> request);

  const std::shared_ptr<ZVAdRequest>& request() const { return request_; }
  const Completion& completionBlock() const { return completionBlock_; }
  bool isInterstitial() const { return isInterstitial_; }
  void setIsInterstitial(bool value) { isInterstitial_ = value; }
  bool isVideo() const { return isVideo_; }
  void setIsVideo(bool value) { isVideo_ = value; }
  /// The slot size of a banner or in-banner video; an interstitial asks for the default
  /// full-screen size whatever this holds.
  ZVAdSize requestedAdSize() const { return requestedAdSize_; }
  void setRequestedAdSize(ZVAdSize size) { requestedAdSize_ = size; }

  /// Calls `completion` once with the POST request, or with code 1 "InternalError" when
  /// serialising or delivering raised. A later `build` replaces the stored completion.
  void build(Completion completion) override;

  /// The whole bid request: "id", "imp", "app", "user", then "device" once it is known.
  void rtbDictionary(DictionaryCallback callback);

  /// The one impression: a fresh "id", "tagid", the banner or video object, "instl", "secure",
  /// the display manager and its version, and "ext"."skadn" from system 14.0 on when the app
  /// declares SKAdNetwork identifiers.
  Value impressionJson();
  Value bannerJson() const;
  Value videoJson() const;
  /// One {"w","h"} object per size, in order. Not used by the assembled request.
  static Value sizeArrayForAdSizes(const std::vector<ZVAdSize>& sizes);
  /// The default interstitial size as a one-element size array. Not used by the assembled request.
  static Value interstitialSizeArray();

  Value appJson() const;
  Value userJson() const;
  /// COPPA and GDPR flags. Built on request only: bid requests do not carry it.
  Value regulationsJson() const;
  void deviceJson(DictionaryCallback callback);

 private:
  explicit ZVRTBRequestBuilder(std::shared_ptr<ZVAdRequest> request)
      : request_(std::move(request)) {}

  ZVAdSize slotSize() const;
  void deliver(platform::URLRequest request, const Value& dictionary);

  std::shared_ptr<ZVAdRequest> request_;
  Completion completionBlock_;
  bool isInterstitial_ = false;
  bool isVideo_ = false;
  ZVAdSize requestedAdSize_;
};

/// The App Store id in a store URL: its last path component with every "id" removed
/// (".../app/name/id1234567890" gives "1234567890").
std::string itunesIdFromURL(const platform::URL& url);

}  // namespace zorva
