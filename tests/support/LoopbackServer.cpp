#include "support/LoopbackServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace zorva::test {

LoopbackServer::LoopbackServer() : server_(std::make_unique<httplib::Server>()) {
  auto handler = [this](const httplib::Request& req, httplib::Response& res) {
    Response answer;
    bool known = false;
    {
      std::unique_lock lock(mutex_);
      requests_.push_back({req.method,
                           req.path,
                           {req.params.begin(), req.params.end()},
                           {req.headers.begin(), req.headers.end()},
                           req.body,
                           std::chrono::steady_clock::now()});
      changed_.notify_all();
      if (auto it = responses_.find(req.path); it != responses_.end()) {
        auto& [turns, given] = it->second;
        answer = turns[std::min(given++, turns.size() - 1)];
        known = true;
        changed_.wait_for(lock, answer.delay, [this] { return stopping_; });
      }
    }
    if (!known) {
      res.status = 404;
      res.set_content("not found", "text/plain");
      return;
    }
    res.status = answer.status;
    if (!answer.location.empty()) res.set_header("Location", answer.location);
    if (!answer.holdAfterBytes) {
      res.set_content(answer.body, answer.contentType.c_str());
      return;
    }
    // Served piecewise (ranges included) up to the hold point, where the provider waits.
    auto body = std::make_shared<std::string>(std::move(answer.body));
    const std::size_t hold = std::min(*answer.holdAfterBytes, body->size());
    res.set_content_provider(
        body->size(), answer.contentType,
        [this, body, hold](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
          if (offset < hold)
            return sink.write(body->data() + offset, std::min(length, hold - offset));
          std::unique_lock lock(mutex_);
          changed_.wait(lock, [this] { return stopping_; });
          return false;
        });
  };
  // Keep-alive connections each hold a worker; enough workers that a burst of parallel clients
  // never waits for an idle connection to time out.
  server_->new_task_queue = [] { return new httplib::ThreadPool(64); };
  // One request per connection: an idle keep-alive connection would hold up stop() for seconds.
  server_->set_keep_alive_max_count(1);
  // A connection opened ahead of a request that never comes (WebKit pre-connects to a page's
  // links) holds stop() until it times out: one second, not httplib's five.
  server_->set_keep_alive_timeout(1);
  server_->set_payload_max_length(std::size_t{256} << 20);
  server_->Get(".*", handler);
  server_->Post(".*", handler);
  int listening = -1;
  server_->set_socket_options([&listening](int sock) {
    httplib::default_socket_options(sock);
    listening = sock;
  });
  port_ = server_->bind_to_any_port("127.0.0.1");
  if (port_ <= 0) throw std::runtime_error("LoopbackServer: cannot bind a loopback port");
  server_->set_socket_options(httplib::default_socket_options);
  // httplib listens with a backlog of 5: a burst of clients beyond it has connections dropped
  // and retried for seconds.
  ::listen(listening, SOMAXCONN);
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  // stop() only reaches a server that is already listening.
  while (!server_->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

LoopbackServer::~LoopbackServer() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  server_->stop();
  thread_.join();
}

void LoopbackServer::respond(const std::string& path, Response response) {
  respondInTurn(path, {std::move(response)});
}

void LoopbackServer::respondInTurn(const std::string& path, std::vector<Response> responses) {
  std::lock_guard lock(mutex_);
  responses_[path] = {std::move(responses), 0};
}

std::string LoopbackServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<LoopbackServer::Request> LoopbackServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

bool LoopbackServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}

int LoopbackServer::unusedPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof(address);
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(fd);
  return ntohs(address.sin_port);
}

}  // namespace zorva::test
