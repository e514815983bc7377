#pragma once

#include <cstdint>
#include <optional>

#include <zorva/ZorvaExport.h>
#include <zorva/platform/Error.h>

namespace zorva {

/// The domain of the errors the SDK makes itself.
inline constexpr const char* kZVErrorDomain = "ZorvaSDK";
/// The domains of the libraries whose errors reach the app unchanged: transport failures keep
/// libcurl's `CURLcode`, unreadable JSON nlohmann::json's parse error id, malformed XML expat's
/// `XML_Error`.
inline constexpr const char* kZVCurlErrorDomain = "libcurl";
inline constexpr const char* kZVJsonErrorDomain = "nlohmann::json";
inline constexpr const char* kZVXmlErrorDomain = "expat";

/// The codes of `kZVErrorDomain`. Codes 100 to 901 are the VAST error codes of the video player
/// (100 XML, 101 version, 301 wrapper time-out, 302 wrapper limit, 303 no ad after the wrappers,
/// 400s the media file, 900 undefined).
enum class ZVErrorCode : std::int64_t {
  /// The answer could not be read as a bid response; "no fill" (see `ZorvaSDK::isNoFill`) when
  /// it held no bid.
  NoAds = 0,
  /// The bid request could not be made.
  Internal = 1,
  /// The answer's HTTP status was 400 or more (`ZorvaSDK::httpStatusAsFailure`); the status is
  /// the error's "HTTPStatusCode" (see `httpStatusOf`).
  HTTPStatus = 6,
  /// The ad request lacks its publisher or ad unit id (`ZorvaSDK::invalidRequestAsFailure`).
  InvalidRequest = 7,
  /// A video load (bid, VAST wrapper chain, media) did not end within
  /// `ZorvaSDK::videoLoadTimeout` (`ZorvaSDK::videoLoadBounded`).
  VideoLoadTimeout = 8,
};

/// What went wrong, as an app decides what to do next.
enum class ZVErrorKind {
  /// The server had no ad: try later or elsewhere.
  NoFill,
  /// The server could not be reached: retry when the network is back.
  Network,
  /// A transfer (`netoworkTimeout`), the VAST wrapper chain, a media file or a whole video load
  /// took too long.
  Timeout,
  /// The server answered something the SDK cannot read (JSON, bid, VAST, XML).
  BadAnswer,
  /// The server answered with an HTTP error status (`httpStatusOf` tells which).
  HTTPStatus,
  /// The app's request cannot be sent as it is (missing ids, malformed server URL).
  InvalidRequest,
  /// Anything else: an internal failure of the SDK or of a player.
  Other,
};

/// Sorts an error told to an app's delegate. For example:
///
///     delegate->bannerViewDidFailToReceiveAdWithError = [](auto&, const zorva::Error& error) {
///       switch (zorva::classifyError(error)) {
///         case zorva::ZVErrorKind::NoFill: scheduleRetry(std::chrono::minutes(1)); break;
///         case zorva::ZVErrorKind::Network: waitForNetwork(); break;
///         case zorva::ZVErrorKind::HTTPStatus:
///           report(*zorva::httpStatusOf(error));
///           break;
///         default: report(error.localizedDescription());
///       }
///     };
ZORVA_EXPORT ZVErrorKind classifyError(const platform::Error& error);

/// The HTTP status an `ZVErrorCode::HTTPStatus` error carries; nothing for any other error.
ZORVA_EXPORT std::optional<long> httpStatusOf(const platform::Error& error);

}  // namespace zorva
