#include "zorva-adserver/HostileServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <list>
#include <vector>

#include "zorva-adserver/Campaign.h"

namespace zorva::tools {

using Clock = std::chrono::steady_clock;
using platform::Error;

namespace {

constexpr std::array<HostileServer::ModeName, 15> kModes{{
    {HostileServer::Mode::ResetMidBody, "reset"},
    {HostileServer::Mode::Trickle, "trickle"},
    {HostileServer::Mode::ShortBody, "short-body"},
    {HostileServer::Mode::TruncatedGzip, "truncated-gzip"},
    {HostileServer::Mode::CorruptGzip, "corrupt-gzip"},
    {HostileServer::Mode::GzipBomb, "gzip-bomb"},
    {HostileServer::Mode::RedirectLoop, "redirect-loop"},
    {HostileServer::Mode::HugeHeader, "huge-header"},
    {HostileServer::Mode::Silent, "silent"},
    {HostileServer::Mode::NoContent, "204"},
    {HostileServer::Mode::NoContentWithBody, "204-body"},
    {HostileServer::Mode::NotModified, "304"},
    {HostileServer::Mode::NotModifiedWithBody, "304-body"},
    {HostileServer::Mode::ServerError, "500"},
    {HostileServer::Mode::ServerErrorWithBody, "500-body"},
}};

// Requests bigger than this are not read to their end; the SDK's are a few kilobytes.
constexpr std::size_t kMaximumRequest = 4u << 20;
// How long the half body of ResetMidBody waits before the reset, so the client has read it.
constexpr std::chrono::milliseconds kResetDelay{50};
constexpr std::size_t kHugeHeaderSize = 1u << 20;
constexpr std::size_t kBombChunk = 1u << 20;
constexpr std::size_t kBombChunks = 1024;

// A gzip member around the raw deflate stream `deflated` of `size` bytes whose CRC is `crc`.
std::string gzipMember(const std::string& deflated, uLong crc, std::uint64_t size) {
  // Magic, deflate, no flags, no time, no extra flags, OS unknown.
  std::string member("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\xff", 10);
  member += deflated;
  for (std::uint64_t value : {static_cast<std::uint64_t>(crc), size}) {
    for (int shift = 0; shift < 32; shift += 8)
      member += static_cast<char>((value >> shift) & 0xff);
  }
  return member;
}

// Raw deflate of `input`, ending the stream when `finish`, else with a full flush that leaves
// the compressor as fresh as it began (so the output can be repeated).
std::string deflateRaw(std::string_view input, bool finish) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY);
  std::string output(deflateBound(&stream, input.size()) + 16, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.data()));
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = reinterpret_cast<Bytef*>(output.data());
  stream.avail_out = static_cast<uInt>(output.size());
  deflate(&stream, finish ? Z_FINISH : Z_FULL_FLUSH);
  output.resize(stream.total_out);
  deflateEnd(&stream);
  return output;
}

std::string gzip(std::string_view input) {
  const uLong crc =
      crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(input.data()), input.size());
  return gzipMember(deflateRaw(input, true), crc, input.size());
}

// kBombChunks copies of one compressed chunk of zeros: each full flush starts afresh, so every
// copy is the same bytes, and a gigabyte costs a megabyte and a few milliseconds to make.
std::string gzipBomb() {
  const std::string zeros(kBombChunk, '\0');
  const std::string chunk = deflateRaw(zeros, false);
  std::string deflated;
  deflated.reserve(chunk.size() * kBombChunks + 16);
  const uLong chunkCrc =
      crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(zeros.data()), zeros.size());
  uLong crc = crc32(0, nullptr, 0);
  for (std::size_t i = 0; i < kBombChunks; ++i) {
    deflated += chunk;
    crc = crc32_combine(crc, chunkCrc, static_cast<z_off_t>(kBombChunk));
  }
  deflated += deflateRaw({}, true);
  return gzipMember(deflated, crc, static_cast<std::uint64_t>(kBombChunk) * kBombChunks);
}

std::string head(const std::string& statusLine, const std::string& fields) {
  return "HTTP/1.1 " + statusLine + "\r\n" + fields + "Connection: close\r\n\r\n";
}

std::string lengthAndType(std::size_t length, const std::string& type) {
  return "Content-Type: " + type + "\r\nContent-Length: " + std::to_string(length) + "\r\n";
}

void closeSocket(int fd, bool reset) {
  if (reset) {
    // A zero linger time makes close() send RST and drop what is unsent.
    linger hard{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  }
  close(fd);
}

// The value of Content-Length in a request head, 0 when absent or unreadable.
std::size_t contentLength(std::string_view head) {
  for (std::size_t at = head.find("\r\n"); at != std::string_view::npos;
       at = head.find("\r\n", at + 2)) {
    std::string_view line = head.substr(at + 2);
    line = line.substr(0, line.find("\r\n"));
    constexpr std::string_view kName = "content-length:";
    if (line.size() <= kName.size()) continue;
    bool matches = std::equal(kName.begin(), kName.end(), line.begin(), [](char a, char b) {
      return a == std::tolower(static_cast<unsigned char>(b));
    });
    if (!matches) continue;
    std::string_view value = line.substr(kName.size());
    while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
    std::size_t length = 0;
    std::from_chars(value.data(), value.data() + value.size(), length);
    return length;
  }
  return 0;
}

// The path of a request line "METHOD /path HTTP/1.1"; "/" when there is none.
std::string_view requestPath(std::string_view request) {
  std::string_view line = request.substr(0, request.find("\r\n"));
  const auto from = line.find(' ');
  if (from == std::string_view::npos) return "/";
  line.remove_prefix(from + 1);
  line = line.substr(0, line.find(' '));
  return line.empty() ? "/" : line;
}

}  // namespace

struct HostileServer::Connection {
  enum class After { Close, Reset, Hold };

  int fd = -1;
  std::string request;
  bool answered = false;
  std::string out;
  std::size_t sent = 0;
  /// Trickled: one byte per interval, the next at `due`.
  bool trickle = false;
  After after = After::Close;
  /// When the next byte goes (trickle) or the reset follows the last one.
  Clock::time_point due{};
};

std::span<const HostileServer::ModeName> HostileServer::modes() { return kModes; }

std::optional<HostileServer::Mode> HostileServer::modeNamed(std::string_view name) {
  for (const auto& entry : kModes) {
    if (name == entry.name) return entry.mode;
  }
  return std::nullopt;
}

const char* HostileServer::nameOf(Mode mode) {
  for (const auto& entry : kModes) {
    if (entry.mode == mode) return entry.name;
  }
  return "?";
}

std::string HostileServer::defaultBody() {
  return R"({"id":"hostile","seatbid":[{"seat":"zorva","bid":[{"id":"hostile-1","price":1.0,)"
         R"("adm":"<a href=\"https://example.com/zorva/banner\">Zorva</a>","w":320,"h":50}]}]})";
}

std::unique_ptr<HostileServer> HostileServer::start(Options options, std::optional<Error>* error) {
  auto fail = [&](int code, const std::string& text) -> std::unique_ptr<HostileServer> {
    if (error) *error = Error::withDescription(Campaign::kErrorDomain, code, text);
    return nullptr;
  };
  if (options.host == "localhost") options.host = "127.0.0.1";
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (inet_pton(AF_INET, options.host.c_str(), &address.sin_addr) != 1 ||
      (ntohl(address.sin_addr.s_addr) >> 24) != 127) {
    return fail(Campaign::kBadHost, "\"" + options.host +
                                        "\" is not an IPv4 loopback address (use 127.0.0.1, "
                                        "another 127.x.x.x address or localhost)");
  }
  if (options.port < 0 || options.port > 65535) {
    return fail(Campaign::kBadHost, "port " + std::to_string(options.port) + " is out of range");
  }
  address.sin_port = htons(static_cast<std::uint16_t>(options.port));

  int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int yes = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    const int cause = errno;
    close(listener);
    return fail(Campaign::kCannotListen, "cannot listen on " + options.host + ":" +
                                             std::to_string(options.port) + ": " +
                                             std::strerror(cause));
  }
  return std::unique_ptr<HostileServer>(new HostileServer(std::move(options), listener));
}

HostileServer::HostileServer(Options options, int listener)
    : options_(std::move(options)), listener_(listener) {
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  getsockname(listener_, reinterpret_cast<sockaddr*>(&bound), &length);
  port_ = ntohs(bound.sin_port);
  baseUrl_ = "http://" + options_.host + ":" + std::to_string(port_);
  switch (options_.mode) {
    case Mode::TruncatedGzip:
      compressed_ = gzip(options_.body);
      compressed_.resize(compressed_.size() / 2);
      break;
    case Mode::CorruptGzip:
      compressed_ = gzip(options_.body);
      // The first deflate byte after the 10-byte header: final block of the reserved type 3.
      compressed_[10] = '\x07';
      break;
    case Mode::GzipBomb:
      compressed_ = gzipBomb();
      break;
    default:
      break;
  }
  wake_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  thread_ = std::thread([this] { serve(); });
}

HostileServer::~HostileServer() {
  eventfd_write(wake_, 1);
  thread_.join();
  close(wake_);
  close(listener_);
}

void HostileServer::answer(Connection& connection, std::string_view path) const {
  const std::string& body = options_.body;
  const std::string& type = options_.contentType;
  std::string& out = connection.out;
  switch (options_.mode) {
    case Mode::ResetMidBody:
      out = head("200 OK", lengthAndType(body.size(), type)) + body.substr(0, body.size() / 2);
      connection.after = Connection::After::Reset;
      break;
    case Mode::Trickle:
      out = head("200 OK", lengthAndType(body.size(), type)) + body;
      connection.trickle = true;
      break;
    case Mode::ShortBody:
      out = head("200 OK", lengthAndType(body.size() * 2, type)) + body;
      break;
    case Mode::TruncatedGzip:
    case Mode::CorruptGzip:
    case Mode::GzipBomb:
      out = head("200 OK", lengthAndType(compressed_.size(), type) + "Content-Encoding: gzip\r\n") +
            compressed_;
      break;
    case Mode::RedirectLoop:
      out = head("302 Found", "Location: " + std::string(path) + "\r\nContent-Length: 0\r\n");
      break;
    case Mode::HugeHeader:
      out = head("200 OK", "X-Padding: " + std::string(kHugeHeaderSize, 'z') + "\r\n" +
                               lengthAndType(body.size(), type)) +
            body;
      break;
    case Mode::Silent:
      connection.after = Connection::After::Hold;
      break;
    case Mode::NoContent:
      out = head("204 No Content", "");
      break;
    case Mode::NoContentWithBody:
      out = head("204 No Content", lengthAndType(body.size(), type)) + body;
      break;
    case Mode::NotModified:
      out = head("304 Not Modified", "");
      break;
    case Mode::NotModifiedWithBody:
      out = head("304 Not Modified", lengthAndType(body.size(), type)) + body;
      break;
    case Mode::ServerError:
      out = head("500 Internal Server Error", lengthAndType(0, type));
      break;
    case Mode::ServerErrorWithBody:
      out = head("500 Internal Server Error", lengthAndType(body.size(), type)) + body;
      break;
  }
  connection.answered = true;
  connection.due = Clock::now();
}

void HostileServer::serve() {
  std::list<Connection> open;
  auto drop = [&](std::list<Connection>::iterator it, bool reset) {
    closeSocket(it->fd, reset);
    return open.erase(it);
  };
  for (;;) {
    std::vector<pollfd> polled{{wake_, POLLIN, 0}, {listener_, POLLIN, 0}};
    auto now = Clock::now();
    int timeout = -1;
    for (const auto& connection : open) {
      short events = POLLIN;
      const bool unsent = connection.sent < connection.out.size();
      const bool waiting =
          connection.trickle ? unsent : !unsent && connection.after == Connection::After::Reset;
      if (connection.answered && unsent && !connection.trickle) events |= POLLOUT;
      if (connection.answered && waiting) {
        auto wait = std::chrono::ceil<std::chrono::milliseconds>(connection.due - now).count();
        const int clamped = static_cast<int>(std::max<std::int64_t>(wait, 0));
        timeout = timeout < 0 ? clamped : std::min(timeout, clamped);
      }
      polled.push_back({connection.fd, events, 0});
    }
    poll(polled.data(), polled.size(), timeout);
    if (polled[0].revents != 0) break;

    if (polled[1].revents & POLLIN) {
      for (int fd;
           (fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0;) {
        open.emplace_back().fd = fd;
        ++connections_;
      }
    }

    now = Clock::now();
    std::size_t index = 2;
    for (auto it = open.begin(); it != open.end() && index < polled.size(); ++index) {
      Connection& connection = *it;
      const short revents = polled[index].revents;
      bool closed = false;
      if (revents & (POLLIN | POLLHUP | POLLERR)) {
        char buffer[16384];
        const ssize_t got = recv(connection.fd, buffer, sizeof buffer, 0);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) {
          closed = true;  // the client went
        } else if (got > 0 && !connection.answered) {
          connection.request.append(buffer, static_cast<std::size_t>(got));
          const std::string_view request = connection.request;
          const auto end = request.find("\r\n\r\n");
          const bool whole = end != std::string::npos &&
                             request.size() >= end + 4 + contentLength(request.substr(0, end + 2));
          if (whole || request.size() > kMaximumRequest) answer(connection, requestPath(request));
        }
      }
      if (closed) {
        it = drop(it, false);
        continue;
      }
      if (connection.answered && connection.sent < connection.out.size()) {
        const bool due = connection.due <= now;
        if (connection.trickle ? due : (revents & POLLOUT) != 0) {
          const std::size_t count =
              connection.trickle ? 1 : connection.out.size() - connection.sent;
          const ssize_t put =
              send(connection.fd, connection.out.data() + connection.sent, count, MSG_NOSIGNAL);
          if (put < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            it = drop(it, false);
            continue;
          }
          if (put > 0) connection.sent += static_cast<std::size_t>(put);
          if (connection.trickle) connection.due = now + options_.trickleInterval;
          if (connection.sent == connection.out.size()) connection.due = now + kResetDelay;
        }
      }
      if (connection.answered && connection.sent == connection.out.size()) {
        if (connection.after == Connection::After::Close) {
          it = drop(it, false);
          continue;
        }
        if (connection.after == Connection::After::Reset && connection.due <= now) {
          it = drop(it, true);
          continue;
        }
      }
      ++it;
    }
  }
  for (auto it = open.begin(); it != open.end();) it = drop(it, false);
}

}  // namespace zorva::tools
