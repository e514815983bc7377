#include "zorva/platform/URL.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace zorva::platform {

namespace {

struct UrlHandleDeleter {
  void operator()(CURLU* h) const { curl_url_cleanup(h); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlHandleDeleter>;

std::optional<std::string> part(CURLU* handle, CURLUPart which, unsigned flags = 0) {
  char* value = nullptr;
  if (curl_url_get(handle, which, &value, flags) != CURLUE_OK || value == nullptr) {
    return std::nullopt;
  }
  std::string result(value);
  curl_free(value);
  return result;
}

}  // namespace

std::optional<URL> URL::URLWithString(std::string_view text) {
  if (text.empty()) return std::nullopt;
  UrlHandle handle(curl_url());
  if (!handle) return std::nullopt;
  const std::string copy(text);
  // Any scheme is a URL ("itms-apps://..."); curl only checks the syntax.
  if (curl_url_set(handle.get(), CURLUPART_URL, copy.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
      CURLUE_OK) {
    return std::nullopt;
  }
  URL url;
  url.absoluteString_ = copy;
  url.scheme_ = part(handle.get(), CURLUPART_SCHEME).value_or("");
  url.host_ = part(handle.get(), CURLUPART_HOST).value_or("");
  if (auto port = part(handle.get(), CURLUPART_PORT)) url.port_ = std::stoi(*port);
  url.path_ = part(handle.get(), CURLUPART_PATH, CURLU_URLDECODE).value_or("");
  url.query_ = part(handle.get(), CURLUPART_QUERY);
  url.fragment_ = part(handle.get(), CURLUPART_FRAGMENT);
  // curl reports "/" for a URL written without a path; the text had none.
  if (url.path_ == "/") {
    const auto afterScheme = copy.find("://");
    const auto slash = copy.find('/', afterScheme == std::string::npos ? 0 : afterScheme + 3);
    if (slash == std::string::npos) url.path_.clear();
  }
  return url;
}

std::vector<std::string> URL::pathComponents() const {
  std::vector<std::string> components;
  std::size_t start = 0;
  if (!path_.empty() && path_.front() == '/') {
    components.emplace_back("/");
    start = 1;
  }
  while (start < path_.size()) {
    auto end = path_.find('/', start);
    if (end == std::string::npos) end = path_.size();
    if (end > start) components.emplace_back(path_.substr(start, end - start));
    start = end + 1;
  }
  return components;
}

std::string URL::lastPathComponent() const {
  auto components = pathComponents();
  return components.empty() ? std::string() : components.back();
}

bool URL::isWeb() const {
  const auto is = [this](std::string_view name) {
    return std::equal(scheme_.begin(), scheme_.end(), name.begin(), name.end(), [](char a, char b) {
      return std::tolower(static_cast<unsigned char>(a)) == b;
    });
  };
  return is("http") || is("https");
}

}  // namespace zorva::platform
