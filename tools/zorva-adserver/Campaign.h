#pragma once

#include <zorva/platform/Error.h>
#include <zorva/platform/Value.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace zorva::tools {

/// What the ad server answers for one ad unit id ("aid").
///
/// Text in `adm`, `rawBody` and the string values of `skadn` may hold placeholders, filled at
/// every answer:
///   {{BASE_URL}}   the server's base URL, e.g. http://127.0.0.1:40123
///   {{NONCE}}      a fresh upper-case UUID
///   {{TIMESTAMP}}  the current time in milliseconds since the Unix epoch
///   {{SOURCEAPP}}  the request's "imp"[0]."ext"."skadn"."sourceapp", else "app"."bundle", else 0
///
/// Campaigns file: a JSON array of objects with these keys ("aid" required, all others optional;
/// any other key is an error, so a misspelt key is caught rather than ignored):
///   "aid"       string   the ad unit id the campaign answers
///   "adm"       string   the bid's markup (HTML, or a VAST document)
///   "vast"      string   a VAST document: the bid's markup, and also served at
///                        GET /vast/<aid>.xml (so a file can build its own wrapper chains);
///                        "adm" and "vast" exclude each other
///   "w", "h"    number   the bid's size; without them the impression's banner or video size
///   "price"     number   the bid's price (default 1.0)
///   "skadn"     object   the bid's "ext"."skadn"
///   "delay_ms"  integer  wait this long before answering (default 0)
///   "status"    integer  the HTTP status of the answer, 100 to 599 (default 200)
///   "raw_body"  string   sent as the whole answer instead of a bid response
/// A campaign with neither markup nor "raw_body" answers no fill: {}.
struct Campaign {
  std::string aid;
  std::optional<std::string> adm;
  /// True when `adm` is a VAST document to serve at /vast/<aid>.xml as well.
  bool vast = false;
  std::optional<double> w;
  std::optional<double> h;
  platform::Value price = 1.0;
  /// Null when the bid carries no SKAdNetwork data.
  platform::Value skadn;
  std::chrono::milliseconds delay{0};
  int status = 200;
  std::optional<std::string> rawBody;

  /// Error domain of campaign and server failures.
  static constexpr const char* kErrorDomain = "zorva-adserver";
  enum ErrorCode : int {
    kUnreadableFile = 1,
    kMalformedFile = 2,
    kBadHost = 3,
    kCannotListen = 4,
  };

  /// Reads one campaign from its file entry; `where` prefixes the error text.
  static std::optional<Campaign> fromJson(const platform::Value& entry, const std::string& where,
                                          std::optional<platform::Error>* error);

  /// Reads a campaigns file. Errors name the file, the entry and the key at fault.
  static std::optional<std::vector<Campaign>> loadFile(const std::string& path,
                                                       std::optional<platform::Error>* error);
};

}  // namespace zorva::tools
