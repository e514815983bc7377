#pragma once

#include <zorva/platform/Error.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>

namespace zorva::tools {

/// An HTTP server on a loopback address that misbehaves on purpose, one way per server: the
/// faults of real networks and broken ad servers, to show what an app hears when they happen.
/// Every request, whatever its method and path, gets the same treatment. Where a mode sends a
/// body, it is (part of) `Options::body`, labelled `Options::contentType`; every answer closes
/// its connection.
///
/// Raw sockets rather than an HTTP library: most of these answers are ones a correct library
/// refuses to send. One thread polls every connection, so a connection held open costs nothing.
class HostileServer {
 public:
  enum class Mode {
    /// Headers and half the body, then a TCP reset.
    ResetMidBody,
    /// The body one byte every `trickleInterval`, for as long as the client listens.
    Trickle,
    /// A Content-Length twice the body's size, the body, then the connection closes.
    ShortBody,
    /// "Content-Encoding: gzip" and the first half of the compressed body (Content-Length
    /// matching what is sent): a stream without its end.
    TruncatedGzip,
    /// "Content-Encoding: gzip" and a compressed body whose first block has an invalid type.
    CorruptGzip,
    /// "Content-Encoding: gzip" and about 1 MiB that inflates to 1 GiB of zeros.
    GzipBomb,
    /// 302 to the path asked for, every time.
    RedirectLoop,
    /// A 200 whose one header field is 1 MiB long, then the body.
    HugeHeader,
    /// Reads the request and never answers; the connection stays open until the client goes.
    Silent,
    /// Status codes that carry no body by definition, or an error, each without and with the
    /// body (and its Content-Length).
    NoContent,
    NoContentWithBody,
    NotModified,
    NotModifiedWithBody,
    ServerError,
    ServerErrorWithBody,
  };

  struct ModeName {
    Mode mode;
    const char* name;
  };
  /// Every mode with its command-line name ("reset", "trickle", ..., "500-body").
  static std::span<const ModeName> modes();
  static std::optional<Mode> modeNamed(std::string_view name);
  static const char* nameOf(Mode mode);

  /// An OpenRTB bid response for a 320x50 HTML banner: what the executable serves.
  static std::string defaultBody();

  struct Options {
    Mode mode = Mode::Silent;
    /// A loopback address: 127.0.0.0/8 or "localhost" (taken as 127.0.0.1).
    std::string host = "127.0.0.1";
    /// 0: a free port the system picks.
    int port = 0;
    std::string body = defaultBody();
    std::string contentType = "application/json";
    std::chrono::milliseconds trickleInterval{100};
  };

  /// Binds and starts serving, or answers nullptr with `*error` set (a host that is not an IPv4
  /// loopback address, a port that cannot be bound).
  static std::unique_ptr<HostileServer> start(Options options,
                                              std::optional<platform::Error>* error);

  /// Stops: open connections are closed.
  ~HostileServer();
  HostileServer(const HostileServer&) = delete;
  HostileServer& operator=(const HostileServer&) = delete;

  /// "http://<host>:<port>".
  const std::string& baseUrl() const { return baseUrl_; }
  int port() const { return port_; }
  /// Connections accepted so far.
  std::size_t connections() const { return connections_.load(); }

 private:
  struct Connection;
  HostileServer(Options options, int listener);
  void serve();
  /// The answer to one complete request for `path`, and what follows it, set on `connection`.
  void answer(Connection& connection, std::string_view path) const;

  Options options_;
  int listener_ = -1;
  int wake_ = -1;
  int port_ = 0;
  std::string baseUrl_;
  /// The gzip modes' body as sent (truncated, corrupt or the bomb), made once.
  std::string compressed_;
  std::atomic<std::size_t> connections_{0};
  std::thread thread_;
};

}  // namespace zorva::tools
