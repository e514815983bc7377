#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zorva/platform/URL.h"
#include "zorva/platform/Value.h"

namespace zorva::platform {

enum class URLRequestCachePolicy {
  UseProtocolCachePolicy = 0,
  ReloadIgnoringLocalCacheData = 1,
};

/// An HTTP request as a plain record. `url` is absent when the text it was made from was not a
/// valid URL; such a request fails in the transport.
struct URLRequest {
  /// The platform's default time-out for a request, in seconds.
  static constexpr double kDefaultTimeoutInterval = 60.0;

  std::optional<URL> url;
  std::string HTTPMethod = "GET";
  std::optional<Data> HTTPBody;
  std::vector<std::pair<std::string, std::string>> allHTTPHeaderFields;
  double timeoutInterval = kDefaultTimeoutInterval;
  URLRequestCachePolicy cachePolicy = URLRequestCachePolicy::UseProtocolCachePolicy;

  URLRequest() = default;
  explicit URLRequest(
      std::optional<URL> requestURL,
      URLRequestCachePolicy requestCachePolicy = URLRequestCachePolicy::UseProtocolCachePolicy,
      double requestTimeout = kDefaultTimeoutInterval)
      : url(std::move(requestURL)),
        timeoutInterval(requestTimeout),
        cachePolicy(requestCachePolicy) {}

  /// Sets (or replaces) one header field.
  void setValueForHTTPHeaderField(std::string value, const std::string& field);
};

/// What the server answered, apart from the body.
struct HTTPURLResponse {
  std::optional<URL> url;
  long statusCode = 0;
  std::vector<std::pair<std::string, std::string>> allHeaderFields;
};

}  // namespace zorva::platform
