#include <zorva/ZVErrors.h>
#include <zorva/ZorvaSDK.h>

#include <string_view>

namespace zorva {

namespace {

// libcurl's codes for a malformed URL and for a transfer that timed out.
constexpr std::int64_t kCurlMalformedURL = 3;
constexpr std::int64_t kCurlTimedOut = 28;

ZVErrorKind classifySdkError(const platform::Error& error) {
  switch (error.code) {
    case static_cast<std::int64_t>(ZVErrorCode::NoAds):
      return ZorvaSDK::isNoFill(error) ? ZVErrorKind::NoFill : ZVErrorKind::BadAnswer;
    case static_cast<std::int64_t>(ZVErrorCode::HTTPStatus):
      return ZVErrorKind::HTTPStatus;
    case static_cast<std::int64_t>(ZVErrorCode::InvalidRequest):
      return ZVErrorKind::InvalidRequest;
    case static_cast<std::int64_t>(ZVErrorCode::VideoLoadTimeout):
    case 301:  // the wrapper chain timed out
    case 402:  // the media file timed out
      return ZVErrorKind::Timeout;
    case 303:  // no ad left after the wrapper chain
      return ZVErrorKind::NoFill;
    default:
      // The VAST document's own failures: XML, schema, version.
      return error.code >= 100 && error.code < 200 ? ZVErrorKind::BadAnswer : ZVErrorKind::Other;
  }
}

}  // namespace

ZVErrorKind classifyError(const platform::Error& error) {
  const std::string_view domain = error.domain;
  if (domain == kZVErrorDomain) return classifySdkError(error);
  if (domain == kZVCurlErrorDomain) {
    if (error.code == kCurlTimedOut) return ZVErrorKind::Timeout;
    if (error.code == kCurlMalformedURL) return ZVErrorKind::InvalidRequest;
    return ZVErrorKind::Network;
  }
  if (domain == kZVJsonErrorDomain || domain == kZVXmlErrorDomain) return ZVErrorKind::BadAnswer;
  return ZVErrorKind::Other;
}

std::optional<long> httpStatusOf(const platform::Error& error) {
  if (error.domain != kZVErrorDomain ||
      error.code != static_cast<std::int64_t>(ZVErrorCode::HTTPStatus)) {
    return std::nullopt;
  }
  const auto status = error.userInfo.find("HTTPStatusCode");
  if (status == error.userInfo.end() || !status->is_number_integer()) return std::nullopt;
  return status->get<long>();
}

}  // namespace zorva
