#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorva::platform {

/// An absolute URL, checked and split by libcurl's URL parser. `absoluteString` is the text the
/// URL was made from, unchanged; the components are what the parser found in it.
class URL {
 public:
  /// The URL for `text`, or nothing when the text is not a valid absolute URL (no scheme, white
  /// space, a malformed host or port...). Schemes the transport does not speak (`itms-apps`) are
  /// valid URLs all the same.
  static std::optional<URL> URLWithString(std::string_view text);

  const std::string& absoluteString() const { return absoluteString_; }
  const std::string& scheme() const { return scheme_; }
  const std::string& host() const { return host_; }
  std::optional<int> port() const { return port_; }
  /// The path, percent-decoded ("" when the URL has none).
  const std::string& path() const { return path_; }
  /// The query without its "?", or nothing.
  const std::optional<std::string>& query() const { return query_; }
  const std::optional<std::string>& fragment() const { return fragment_; }
  /// Whether the scheme is http or https, in any case: the only URLs that leave the process (the
  /// URL session's fetches, the in-app and the desktop browser).
  bool isWeb() const;

  /// The path split on "/": the leading "/" is a component of its own, as on the phone
  /// platform ("/app/x/id1" gives "/", "app", "x", "id1").
  std::vector<std::string> pathComponents() const;
  /// The last of `pathComponents`, or "" when the path is empty.
  std::string lastPathComponent() const;

  friend bool operator==(const URL& a, const URL& b) {
    return a.absoluteString_ == b.absoluteString_;
  }

 private:
  URL() = default;
  std::string absoluteString_;
  std::string scheme_;
  std::string host_;
  std::optional<int> port_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

}  // namespace zorva::platform
