#pragma once

#include <zorva/platform/Error.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "zorva-adserver/Campaign.h"

namespace httplib {
class Server;
}

namespace zorva::tools {

/// One request as the ad server received it.
struct RequestRecord {
  std::string method;
  std::string path;
  /// The query as sent, without "?".
  std::string query;
  std::size_t bodySize = 0;
  /// The campaign answered (its aid) or the VAST document or tracking document named; empty
  /// when none.
  std::string campaign;
  int status = 0;
  std::chrono::milliseconds delay{0};

  /// One readable line:
  /// "POST /zorva/servad?pid=p1&aid=banner body=812B campaign=banner status=200".
  std::string line() const;
};

/// An OpenRTB 2.x ad server on a loopback address, with the built-in campaigns of
/// `BuiltinCampaigns` plus any given in `Options` (which replace built-ins of the same aid).
///
/// Endpoints:
///   POST /zorva/servad?pid=..&aid=..  a bid response for the campaign named by "aid":
///       {"id": <the request's "id">, "seatbid":[{"seat":"zorva","bid":[{"id": <fresh UUID>,
///        "impid": <"imp"[0]."id">, "price", "adm", "w", "h", "ext":{"skadn":{...}}}]}]}
///       "w"/"h" are the campaign's, else the impression's banner or video size; "ext" only
///       when the campaign has SKAdNetwork data. A body that is not JSON is still answered
///       (a fresh id, no impid, no echoed size): the SDK sends an empty body when it cannot
///       serialise its request, and the server is there to show what the SDK does next.
///       An unknown aid gets no fill ({}); a missing aid gets 400.
///   GET /vast/<name>.xml    a VAST document: "inline", "wrapper1", "wrapper2", or any
///                           campaign given as "vast" by its aid
///   GET /media/zorva.mp4    the linear creative's video (video/mp4)
///   GET /media/zorva.png    the NonLinear creative's image (image/png)
///   GET /track?...          tracking and error pixels: an empty 200, logged
/// Anything else is 404, logged too.
///
/// Requests are served on the server's own threads; the log callback is called on them, one
/// call at a time.
class AdServer {
 public:
  static constexpr const char* kServadPath = "/zorva/servad";
  /// Longer than the short network time-outs a demo or a test sets, shorter than the SDK's
  /// default of 10 s, so both outcomes can be shown.
  static constexpr std::chrono::milliseconds kDefaultSlowDelay{5000};

  struct Options {
    /// A loopback address: 127.0.0.0/8, ::1 or "localhost" (taken as 127.0.0.1).
    std::string host = "127.0.0.1";
    /// 0: a free port the system picks.
    int port = 0;
    /// Added to the built-ins; one with a built-in's aid replaces it.
    std::vector<Campaign> campaigns{};
    std::chrono::milliseconds slowDelay = kDefaultSlowDelay;
    /// The built-in VAST documents in CDATA style (see `BuiltinCampaigns`).
    bool cdataVast = false;
    /// Hears every request; empty to log nowhere. Requests are recorded for `requests()` either
    /// way.
    std::function<void(const RequestRecord&)> log = printToStdout;
  };

  /// Binds and starts serving, or answers nullptr with `*error` set (a host that is not
  /// loopback, a port that cannot be bound).
  static std::unique_ptr<AdServer> start(Options options, std::optional<platform::Error>* error);

  /// Stops; delayed answers are cut short.
  ~AdServer();
  AdServer(const AdServer&) = delete;
  AdServer& operator=(const AdServer&) = delete;

  /// Stops serving and frees the port; idempotent.
  void stop();

  int port() const { return port_; }
  /// "http://127.0.0.1:<port>" (brackets around an IPv6 host).
  const std::string& baseUrl() const { return baseUrl_; }
  /// The bid endpoint: baseUrl() + "/zorva/servad".
  std::string servadUrl() const { return baseUrl_ + kServadPath; }
  /// Every campaign's aid, in the order built-ins then file campaigns.
  std::vector<std::string> campaignIds() const;
  std::vector<RequestRecord> requests() const;

  /// The default log: `RequestRecord::line()` on standard output, flushed.
  static void printToStdout(const RequestRecord& record);

 private:
  struct Answer;
  explicit AdServer(Options options);

  void installRoutes();
  Answer bidAnswer(const std::string& aid, const std::string& body) const;
  std::string expand(const std::string& text, const std::string& sourceApp) const;
  /// Records and logs, then holds the answer back for `delay` unless the server stops.
  void finish(RequestRecord record);

  Options options_;
  std::map<std::string, Campaign> campaigns_;
  std::vector<std::string> campaignOrder_;
  std::map<std::string, std::string> documents_;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int listeningSocket_ = -1;
  int port_ = 0;
  std::string baseUrl_;

  mutable std::mutex mutex_;
  std::condition_variable stopping_;
  bool stopped_ = false;
  std::vector<RequestRecord> requests_;
  std::mutex logMutex_;
};

}  // namespace zorva::tools
