#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace zorva::test {

/// An HTTP server on 127.0.0.1 at a port the system picks, serving canned answers by path and
/// recording every request it receives. It stops, and frees its port, with its handle.
class LoopbackServer {
 public:
  struct Response {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    /// Wait this long before answering (cut short when the server stops).
    std::chrono::milliseconds delay{0};
    /// Send only this many bytes of the body (of a body announced whole), then hold the
    /// connection open without sending more until the server stops: a source that dries up.
    std::optional<std::size_t> holdAfterBytes = std::nullopt;
    /// A "Location" header, for a redirect status.
    std::string location = {};
  };

  struct Request {
    std::string method;
    std::string path;
    /// Query parameters, decoded.
    std::multimap<std::string, std::string> params;
    std::map<std::string, std::string> headers;
    std::string body;
    std::chrono::steady_clock::time_point arrived;
  };

  LoopbackServer();
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// Answers every request to `path` (any method) with `response`. Unknown paths get 404.
  void respond(const std::string& path, Response response);
  /// Answers the requests to `path` with `responses` in turn, the last one from then on.
  void respondInTurn(const std::string& path, std::vector<Response> responses);

  /// "http://127.0.0.1:<port><path>".
  std::string url(const std::string& path) const;

  std::vector<Request> requests() const;
  /// Waits (in real time) until at least `count` requests have arrived.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;

  /// A loopback port on which nothing listens (bound, then released).
  static int unusedPort();

 private:
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  // Each path's answers and how many of them have been given.
  std::map<std::string, std::pair<std::vector<Response>, std::size_t>> responses_;
  std::vector<Request> requests_;
  bool stopping_ = false;
};

}  // namespace zorva::test
