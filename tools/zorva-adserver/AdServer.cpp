#include "zorva-adserver/AdServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <sys/socket.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/UUID.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "zorva-adserver/BuiltinCampaigns.h"
#include "zorva-adserver/Media.h"

namespace zorva::tools {

using platform::Error;
using platform::Value;

// Every member has an initializer, so designated initializers may leave any of them out.
struct AdServer::Answer {
  int status = 200;
  std::string body{};
  std::string contentType = "application/json";
  std::string campaign{};
  std::chrono::milliseconds delay{0};
};

namespace {

/// `value`[`key`] when `value` is an object holding it: request bodies are untrusted.
const Value* member(const Value* value, const char* key) {
  if (!value || !value->is_object()) return nullptr;
  auto it = value->find(key);
  return it == value->end() ? nullptr : &*it;
}

const Value* firstImpression(const Value& request) {
  const Value* imps = member(&request, "imp");
  if (!imps || !imps->is_array() || imps->empty()) return nullptr;
  return &(*imps)[0];
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Returns the host to bind (localhost spelled out) or nothing when it is not a loopback address.
std::optional<std::string> loopbackHost(const std::string& host) {
  if (host == "localhost") return "127.0.0.1";
  in_addr v4{};
  if (inet_pton(AF_INET, host.c_str(), &v4) == 1) {
    if ((ntohl(v4.s_addr) >> 24) == 127) return host;
    return std::nullopt;
  }
  in6_addr v6{};
  if (inet_pton(AF_INET6, host.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6)) return host;
  return std::nullopt;
}

}  // namespace

std::string RequestRecord::line() const {
  std::string text = method + " " + path;
  if (!query.empty()) text += "?" + query;
  text += " body=" + std::to_string(bodySize) +
          "B campaign=" + (campaign.empty() ? std::string("-") : campaign) +
          " status=" + std::to_string(status);
  if (delay.count() > 0) text += " delay=" + std::to_string(delay.count()) + "ms";
  return text;
}

void AdServer::printToStdout(const RequestRecord& record) {
  std::cout << record.line() << std::endl;
}

std::unique_ptr<AdServer> AdServer::start(Options options, std::optional<Error>* error) {
  auto fail = [&](int code, const std::string& text) -> std::unique_ptr<AdServer> {
    if (error) *error = Error::withDescription(Campaign::kErrorDomain, code, text);
    return nullptr;
  };
  auto host = loopbackHost(options.host);
  if (!host) {
    return fail(Campaign::kBadHost, "\"" + options.host +
                                        "\" is not a loopback address (use 127.0.0.1, another "
                                        "127.x.x.x address, ::1 or localhost)");
  }
  if (options.port < 0 || options.port > 65535) {
    return fail(Campaign::kBadHost, "port " + std::to_string(options.port) + " is out of range");
  }
  options.host = *host;

  std::unique_ptr<AdServer> server(new AdServer(std::move(options)));
  httplib::Server& http = *server->server_;
  const std::string& bindHost = server->options_.host;
  errno = 0;
  int port = server->options_.port;
  bool bound =
      port == 0 ? (port = http.bind_to_any_port(bindHost)) > 0 : http.bind_to_port(bindHost, port);
  if (!bound) {
    int cause = errno;
    std::string where = bindHost + ":" + std::to_string(server->options_.port);
    return fail(
        Campaign::kCannotListen,
        "cannot listen on " + where + (cause ? ": " + std::string(std::strerror(cause)) : ""));
  }
  // httplib listens with a backlog of 5: a burst of clients beyond it (many ads loading at once)
  // has connections dropped and retried for seconds.
  ::listen(server->listeningSocket_, SOMAXCONN);
  server->port_ = port;
  bool v6 = bindHost.find(':') != std::string::npos;
  server->baseUrl_ =
      "http://" + (v6 ? "[" + bindHost + "]" : bindHost) + ":" + std::to_string(port);
  server->thread_ = std::thread([&http] { http.listen_after_bind(); });
  // stop() only reaches a server that is already listening.
  while (!http.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return server;
}

AdServer::AdServer(Options options)
    : options_(std::move(options)), server_(std::make_unique<httplib::Server>()) {
  for (auto& campaign : BuiltinCampaigns::all(options_.slowDelay, options_.cdataVast)) {
    campaignOrder_.push_back(campaign.aid);
    campaigns_[campaign.aid] = std::move(campaign);
  }
  for (const auto& campaign : options_.campaigns) {
    if (!campaigns_.contains(campaign.aid)) campaignOrder_.push_back(campaign.aid);
    campaigns_[campaign.aid] = campaign;
  }
  documents_ = BuiltinCampaigns::documents(options_.cdataVast);
  for (const auto& [aid, campaign] : campaigns_) {
    if (campaign.vast && campaign.adm) documents_[aid] = *campaign.adm;
  }

  // SO_REUSEADDR only: httplib's default SO_REUSEPORT would let a second server share a port
  // that is already taken instead of failing.
  server_->set_socket_options([this](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    listeningSocket_ = sock;
  });
  // Each connection holds a worker while it waits, and the slow campaign holds one for seconds.
  server_->new_task_queue = [] { return new httplib::ThreadPool(16); };
  // One request per connection: an idle keep-alive connection would hold up stop() for seconds.
  server_->set_keep_alive_max_count(1);
  installRoutes();
}

AdServer::~AdServer() { stop(); }

void AdServer::stop() {
  {
    std::lock_guard lock(mutex_);
    if (stopped_) return;
    stopped_ = true;
  }
  stopping_.notify_all();
  server_->stop();
  if (thread_.joinable()) thread_.join();
}

std::vector<std::string> AdServer::campaignIds() const { return campaignOrder_; }

std::vector<RequestRecord> AdServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

void AdServer::installRoutes() {
  auto send = [this](const httplib::Request& req, const Answer& answer, httplib::Response& res) {
    // A 200 is left for httplib to set: a ranged request (a media player seeking in the video)
    // must get 206 with the part it asked for.
    if (answer.status != 200) res.status = answer.status;
    res.set_content(answer.body, answer.contentType.c_str());

    RequestRecord record;
    record.method = req.method;
    record.path = req.path;
    if (auto mark = req.target.find('?'); mark != std::string::npos) {
      record.query = req.target.substr(mark + 1);
    }
    record.bodySize = req.body.size();
    record.campaign = answer.campaign;
    record.status = answer.status == 200 && !req.ranges.empty() ? 206 : answer.status;
    record.delay = answer.delay;
    finish(std::move(record));
  };

  server_->Post(kServadPath, [=, this](const httplib::Request& req, httplib::Response& res) {
    std::string aid = req.get_param_value("aid");
    Answer answer;
    if (aid.empty()) {
      answer = {.status = 400,
                .body = "missing the \"aid\" query parameter",
                .contentType = "text/plain"};
    } else {
      answer = bidAnswer(aid, req.body);
    }
    send(req, answer, res);
  });

  server_->Get(R"(/vast/([A-Za-z0-9_.-]+)\.xml)", [=, this](const httplib::Request& req,
                                                            httplib::Response& res) {
    auto it = documents_.find(req.matches[1]);
    Answer answer{.status = 404, .body = "no such VAST document", .contentType = "text/plain"};
    if (it != documents_.end()) {
      answer = {
          .body = expand(it->second, "0"), .contentType = "application/xml", .campaign = it->first};
    }
    send(req, answer, res);
  });

  auto serveMedia = [=, this](std::string_view bytes, const char* type) {
    return [=, this](const httplib::Request& req, httplib::Response& res) {
      send(req, {.body = std::string(bytes), .contentType = type}, res);
    };
  };
  server_->Get("/media/zorva.mp4", serveMedia(media::zorvaMp4(), "video/mp4"));
  server_->Get("/media/zorva.png", serveMedia(media::zorvaPng(), "image/png"));

  server_->Get("/track", [=, this](const httplib::Request& req, httplib::Response& res) {
    send(req, {.contentType = "text/plain", .campaign = req.get_param_value("doc")}, res);
  });

  // Last, so that the routes above win: everything else is a logged 404.
  auto notFound = [=, this](const httplib::Request& req, httplib::Response& res) {
    send(req, {.status = 404, .body = "not found", .contentType = "text/plain"}, res);
  };
  server_->Get(".*", notFound);
  server_->Post(".*", notFound);
}

AdServer::Answer AdServer::bidAnswer(const std::string& aid, const std::string& body) const {
  auto found = campaigns_.find(aid);
  if (found == campaigns_.end()) return {.body = "{}"};
  const Campaign& campaign = found->second;

  Value request = Value::parse(body, nullptr, false);
  if (!request.is_object()) request = Value::object();
  const Value* imp = firstImpression(request);

  std::string sourceApp = "0";
  const Value* requested = member(member(member(imp, "ext"), "skadn"), "sourceapp");
  if (!requested) requested = member(member(&request, "app"), "bundle");
  if (requested && requested->is_string()) sourceApp = requested->get<std::string>();

  Answer answer{.status = campaign.status, .campaign = aid, .delay = campaign.delay};
  if (campaign.rawBody) {
    answer.body = expand(*campaign.rawBody, sourceApp);
    return answer;
  }
  if (!campaign.adm) {
    answer.body = "{}";
    return answer;
  }

  Value bid = Value::object();
  bid["id"] = platform::UUID::create().UUIDString();
  if (const Value* impId = member(imp, "id")) bid["impid"] = *impId;
  bid["price"] = campaign.price;
  bid["adm"] = expand(*campaign.adm, sourceApp);
  const Value* slot = member(imp, "banner");
  if (!slot) slot = member(imp, "video");
  for (auto [key, size] : {std::pair{"w", campaign.w}, std::pair{"h", campaign.h}}) {
    if (size) {
      bid[key] = *size;
    } else if (const Value* echoed = member(slot, key); echoed && echoed->is_number()) {
      bid[key] = *echoed;
    }
  }
  if (campaign.skadn.is_object()) {
    Value skadn = campaign.skadn;
    for (auto& [key, value] : skadn.items()) {
      if (value.is_string()) value = expand(value.get<std::string>(), sourceApp);
    }
    bid["ext"] = Value{{"skadn", std::move(skadn)}};
  }

  Value response = Value::object();
  const Value* requestId = member(&request, "id");
  response["id"] = requestId ? *requestId : Value(platform::UUID::create().UUIDString());
  response["seatbid"] = Value::array({Value{{"seat", "zorva"}, {"bid", Value::array({bid})}}});
  std::optional<Error> error;
  auto data = platform::JSONSerialization::dataWithJSONObject(response, &error);
  answer.body = data ? *data : "{}";
  return answer;
}

std::string AdServer::expand(const std::string& text, const std::string& sourceApp) const {
  if (text.find("{{") == std::string::npos) return text;
  auto now = std::chrono::system_clock::now().time_since_epoch();
  std::string result = replaceAll(text, "{{BASE_URL}}", baseUrl_);
  result = replaceAll(std::move(result), "{{NONCE}}", platform::UUID::create().UUIDString());
  result = replaceAll(
      std::move(result), "{{TIMESTAMP}}",
      std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()));
  return replaceAll(std::move(result), "{{SOURCEAPP}}", sourceApp);
}

void AdServer::finish(RequestRecord record) {
  if (options_.log) {
    std::lock_guard lock(logMutex_);
    options_.log(record);
  }
  std::unique_lock lock(mutex_);
  auto delay = record.delay;
  requests_.push_back(std::move(record));
  if (delay.count() > 0) stopping_.wait_for(lock, delay, [this] { return stopped_; });
}

}  // namespace zorva::tools
