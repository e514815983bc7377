#pragma once

#include <memory>
#include <mutex>

#include "Common/ZVAdLoaderConfig.h"
#include "Common/ZVAdLoaderDelegate.h"
#include "Common/ZVRequestBuilding.h"

namespace zorva {

/// Runs ad loads: asks the request builder for the request, sends it through the shared network
/// handler, reads the answer as a JSON bid response and tells the delegate.
///
/// Delegate calls and their threads:
///  - `didReceiveAd` (the ad, or nullptr when the response held no bid): main queue.
///  - `didFailToReceivedAd` with the JSON parser's error, or with code 0 "NoAdsError" when
///    reading the response raised: main queue.
///  - `didFailToReceivedAd` with the transport error (logged at level 1): the URL session's
///    worker thread, deliberately not the main queue.
///  - `didFailToReceivedAd` with the builder's error: the thread the builder answered on.
/// The HTTP status is not looked at unless asked (below). Callbacks hold the loader weakly: a
/// loader released during a load reports nothing.
///
/// With `ZorvaSDK::callbacksOnMainQueue` on, the last two failures are told on the main queue
/// too. With `ZorvaSDK::noFillAsFailure` on, an answer without a bid (no ad and no error, or an
/// empty body) is told as `didFailToReceivedAd` with `ZVUtility::noFillError()`. With
/// `ZorvaSDK::httpStatusAsFailure` on, an answer with a status of 400 or more is told as
/// `didFailToReceivedAd` with `ZVUtility::httpStatusError`, on the main queue, body unread.
class ZVAdLoader : public std::enable_shared_from_this<ZVAdLoader> {
 public:
  static std::shared_ptr<ZVAdLoader> create(std::shared_ptr<ZVAdLoaderConfig> config);

  std::shared_ptr<ZVAdLoaderDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZVAdLoaderDelegate> delegate);
  std::shared_ptr<ZVRequestBuilding> requestBuilder() const;
  void setRequestBuilder(std::shared_ptr<ZVRequestBuilding> builder);
  const std::shared_ptr<ZVAdLoaderConfig>& config() const { return config_; }

  /// Starts a load; every call is an independent pass.
  void load();
  /// Sends a built request and handles its answer.
  void makeRequest(const platform::URLRequest& request);

  /// The outcome of reading a response body: an ad (possibly nullptr) or an error.
  struct ResponseReading {
    std::shared_ptr<ZorvaAd> ad;
    std::optional<Error> error;
  };
  /// Parses `data` as JSON (fragments allowed) and builds the ad: the JSON parser's error when
  /// the body is not JSON, code 0 "NoAdsError" with "ExceptionName" and "ExceptionReason" in the
  /// description when reading the response raised. The body is the reader's: what has been read
  /// of a large one is given back to the system as the reading goes.
  static ResponseReading readResponse(Data data);

 private:
  explicit ZVAdLoader(std::shared_ptr<ZVAdLoaderConfig> config) : config_(std::move(config)) {}

  /// Tells a transport or building failure: here, or on the main queue when the settings ask.
  void tellFailure(const Error& error);
  static ResponseReading noFillAsFailure(bool noBody, ResponseReading reading);

  // The delegate and builder are set on the main thread and read on network threads too.
  mutable std::mutex mutex_;
  std::weak_ptr<ZVAdLoaderDelegate> delegate_;
  std::shared_ptr<ZVRequestBuilding> requestBuilder_;
  const std::shared_ptr<ZVAdLoaderConfig> config_;
};

}  // namespace zorva
