// zorva-adserver: the loopback OpenRTB + VAST ad server, standalone. Serves until SIGINT or
// SIGTERM, or with --hostile misbehaves as told. Exit status: 0 after a signal, 1 when the server
// cannot start (port taken, campaigns file unreadable or malformed), 2 for a bad command line.
#include <signal.h>

#include <charconv>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zorva-adserver/AdServer.h"
#include "zorva-adserver/HostileServer.h"

namespace {

using zorva::tools::AdServer;
using zorva::tools::Campaign;
using zorva::tools::HostileServer;

constexpr const char* kUsage = R"(Usage: zorva-adserver [options]
Serves OpenRTB bid responses, VAST documents and a test video on a loopback address until
interrupted (Ctrl-C), logging every request on standard output.

Options:
  --port N          port to listen on (default 0: pick a free port and print it)
  --host ADDR       loopback address to bind (default 127.0.0.1; any 127.x.x.x, ::1, localhost)
  --campaigns FILE  load campaigns from a JSON file; they replace built-ins with the same aid
  --slow-ms N       how long the "slow" campaign waits before answering (default 5000)
  --cdata           write the built-in VAST documents as ad servers do: URLs in CDATA sections
                    (the SDK reads them with ZorvaSDK::setVastCdataText), with click trackers
  --hostile MODE    misbehave instead: answer every request the way MODE says (IPv4 only)
  --help            show this help and exit

Bid endpoint: POST http://ADDR:PORT/zorva/servad?pid=<publisher id>&aid=<campaign>; a
ZVAdRequest's serverUrl is the endpoint alone, printed at start: the SDK adds pid and aid.
Built-in campaigns: banner, interstitial, video, video-wrapper, video-nonlinear, nofill, broken,
slow. Other endpoints: GET /vast/<name>.xml, /media/zorva.mp4, /media/zorva.png, /track.

Campaigns file: a JSON array of objects with the keys "aid" (required), "adm" or "vast" (markup),
"w", "h", "price", "skadn", "delay_ms", "status", "raw_body"; {{BASE_URL}}, {{NONCE}},
{{TIMESTAMP}} and {{SOURCEAPP}} in their text are filled in at every answer.

Hostile modes (the body is a bid for a 320x50 HTML banner):
  reset           headers and half the body, then a TCP reset
  trickle         the body one byte every 100 ms
  short-body      a Content-Length twice the body, then the connection closes
  truncated-gzip  half of a gzip body
  corrupt-gzip    a gzip body whose first block is invalid
  gzip-bomb       1 MiB of gzip that inflates to 1 GiB
  redirect-loop   302 to the same path, forever
  huge-header     a 200 with a 1 MiB header field
  silent          reads the request and never answers
  204, 304, 500   that status without a body; 204-body, 304-body, 500-body with the body

Exit status: 0 after SIGINT or SIGTERM, 1 when the server cannot start, 2 for a bad command line.
)";

int usageError(const std::string& message) {
  std::cerr << "zorva-adserver: " << message << "\nTry 'zorva-adserver --help'.\n";
  return 2;
}

std::optional<long> parseNumber(std::string_view text, long low, long high) {
  long value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || value < low || value > high) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

int main(int argc, char** argv) {
  AdServer::Options options;
  std::optional<std::string> campaignsFile;
  std::optional<HostileServer::Mode> hostile;

  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    }
    // Both "--flag value" and "--flag=value".
    std::string flag = arg;
    std::optional<std::string> value;
    if (auto equals = arg.find('='); arg.starts_with("--") && equals != std::string::npos) {
      flag = arg.substr(0, equals);
      value = arg.substr(equals + 1);
    }
    if (flag == "--cdata") {
      if (value) return usageError("option '--cdata' takes no value");
      options.cdataVast = true;
      continue;
    }
    if (flag != "--port" && flag != "--host" && flag != "--campaigns" && flag != "--slow-ms" &&
        flag != "--hostile") {
      return usageError("unknown option '" + arg + "'");
    }
    if (!value) {
      if (i + 1 >= argc) return usageError("option '" + flag + "' needs a value");
      value = argv[++i];
    }
    if (flag == "--port") {
      auto port = parseNumber(*value, 0, 65535);
      if (!port) return usageError("--port wants a number from 0 to 65535, not '" + *value + "'");
      options.port = static_cast<int>(*port);
    } else if (flag == "--slow-ms") {
      auto delay = parseNumber(*value, 0, 3'600'000);
      if (!delay)
        return usageError("--slow-ms wants milliseconds (0 to 3600000), not '" + *value + "'");
      options.slowDelay = std::chrono::milliseconds(*delay);
    } else if (flag == "--host") {
      options.host = *value;
    } else if (flag == "--hostile") {
      hostile = HostileServer::modeNamed(*value);
      if (!hostile) return usageError("unknown hostile mode '" + *value + "'");
    } else {
      campaignsFile = *value;
    }
  }

  std::optional<zorva::platform::Error> error;
  if (campaignsFile) {
    auto campaigns = Campaign::loadFile(*campaignsFile, &error);
    if (!campaigns) {
      std::cerr << "zorva-adserver: " << error->localizedDescription() << "\n";
      return 1;
    }
    options.campaigns = std::move(*campaigns);
  }

  // The server's threads inherit this mask, so the signals reach sigwait below and nothing else.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  std::unique_ptr<AdServer> server;
  std::unique_ptr<HostileServer> hostileServer;
  if (hostile) {
    hostileServer = HostileServer::start(
        {.mode = *hostile, .host = options.host, .port = options.port}, &error);
  } else {
    server = AdServer::start(std::move(options), &error);
  }
  if (!server && !hostileServer) {
    std::cerr << "zorva-adserver: " << error->localizedDescription() << "\n";
    return error->code == Campaign::kBadHost ? 2 : 1;
  }
  if (hostileServer) {
    std::cout << "zorva-adserver (hostile: " << HostileServer::nameOf(*hostile) << ") listening on "
              << hostileServer->baseUrl() << std::endl;
  } else {
    std::cout << "zorva-adserver listening on " << server->baseUrl() << "\n"
              << "bid endpoint: " << server->servadUrl() << "\n"
              << "campaigns (a request's adunitId; the SDK adds pid and aid to the endpoint):";
    for (const auto& aid : server->campaignIds()) std::cout << " " << aid;
    std::cout << std::endl;
  }

  int received = 0;
  sigwait(&signals, &received);
  std::cout << "zorva-adserver: " << strsignal(received) << ", stopping" << std::endl;
  return 0;
}
