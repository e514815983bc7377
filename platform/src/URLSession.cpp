#include "zorva/platform/URLSession.h"

#include <curl/curl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "zorva/platform/Clock.h"

namespace zorva::platform {

namespace {

constexpr const char* kUserAgent = "ZorvaPlatform/1.0 (Linux)";

void initialiseCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

Error transportError(long code, const std::string& detail) {
  std::string description = curl_easy_strerror(static_cast<CURLcode>(code));
  if (!detail.empty()) description += ": " + detail;
  return Error::withDescription(URLSession::kErrorDomain, code, description);
}

// Idle easy handles kept for the next exchanges: a handle that has run a transfer holds its
// buffers, which a fresh handle would allocate again (and free again, at its end).
constexpr std::size_t kIdleHandles = 8;

// One running exchange: the curl handle (the session's, lent for the exchange) and everything
// whose address curl keeps.
struct Transfer {
  std::shared_ptr<URLSessionDataTask> task;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  Data requestBody;
  Data responseBody;
  HTTPURLResponse response;
  bool tooLarge = false;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  ~Transfer() { curl_slist_free_all(headers); }
};

std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const std::size_t bytes = size * count;
  if (transfer->responseBody.size() + bytes > URLSession::kMaximumBodySize) {
    transfer->tooLarge = true;
    return 0;  // curl ends the transfer with a write error
  }
  if (transfer->responseBody.empty()) {
    // Room for the whole announced body at once: grown piece by piece, a large body would be
    // copied at each doubling and briefly held twice. An announcement that never comes true
    // costs address space only, not memory.
    curl_off_t announced = -1;
    curl_easy_getinfo(transfer->easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    if (announced > 0 && static_cast<std::size_t>(announced) <= URLSession::kMaximumBodySize) {
      transfer->responseBody.reserve(static_cast<std::size_t>(announced));
    }
  }
  transfer->responseBody.append(data, bytes);
  return bytes;
}

std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const std::size_t bytes = size * count;
  std::string_view line(data, bytes);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  if (line.starts_with("HTTP/")) {
    transfer->response.allHeaderFields.clear();  // a new response after a redirect or a 100
  } else if (auto colon = line.find(':'); colon != std::string_view::npos) {
    std::string_view value = line.substr(colon + 1);
    while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
    transfer->response.allHeaderFields.emplace_back(std::string(line.substr(0, colon)),
                                                    std::string(value));
  }
  return bytes;
}

}  // namespace

struct URLSession::Engine {
  CURLM* multi = nullptr;
  // Wakes the worker from its poll: one write and one read, where curl's own wake-up is a send on
  // a socket pair that the worker then drains with two receives. Without one (the process is out
  // of descriptors) curl's wake-up does the job.
  int wakeFd = -1;
  std::thread worker;
  std::thread::id workerId;
  mutable std::mutex mutex;
  std::vector<std::shared_ptr<URLSessionDataTask>> incoming;
  bool shuttingDown = false;
  // The worker is in (or about to enter) curl's poll: only then does a new task need a wake-up.
  // A worker that is still busy looks at its incoming tasks before it polls again.
  bool polling = false;
  std::atomic<std::size_t> inFlight{0};
  std::map<CURL*, std::unique_ptr<Transfer>> transfers;
  // Worker only.
  std::vector<CURL*> idle;

  Engine() {
    initialiseCurlOnce();
    multi = curl_multi_init();
    wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    worker = std::thread([this] { loop(); });
    workerId = worker.get_id();
  }

  ~Engine() {
    {
      std::lock_guard lock(mutex);
      shuttingDown = true;
    }
    wake();
    worker.join();
    for (CURL* easy : idle) curl_easy_cleanup(easy);
    curl_multi_cleanup(multi);
    if (wakeFd >= 0) close(wakeFd);
  }

  // A handle with every option at its default: an idle one or a new one.
  CURL* takeHandle() {
    if (idle.empty()) return curl_easy_init();
    CURL* easy = idle.back();
    idle.pop_back();
    return easy;
  }

  // Takes `easy` out of the multi handle and keeps it, reset, for a later exchange: its options
  // point into the transfer, which is about to go. Reset keeps the handle's buffers; connections
  // stay in the multi handle's cache either way.
  void releaseHandle(CURL* easy) {
    curl_multi_remove_handle(multi, easy);
    if (idle.size() < kIdleHandles) {
      curl_easy_reset(easy);
      idle.push_back(easy);
    } else {
      curl_easy_cleanup(easy);
    }
  }

  void complete(const std::shared_ptr<URLSessionDataTask>& task, std::optional<Data> data,
                std::optional<HTTPURLResponse> response, std::optional<Error> error) {
    task->state_ = URLSessionDataTask::State::Completed;
    auto completion = std::move(task->completion_);
    task->completion_ = nullptr;
    if (completion) completion(std::move(data), std::move(response), std::move(error));
    // Counted until the handler has returned, so whatever it hands to the main queue is queued
    // before anyone sees the session idle.
    --inFlight;
  }

  void begin(std::shared_ptr<URLSessionDataTask> task) {
    if (task->cancelled_) {
      complete(task, std::nullopt, std::nullopt, transportError(kCancelledCode, "cancelled"));
      return;
    }
    const URLRequest& request = task->request_;
    if (!request.url) {
      complete(task, std::nullopt, std::nullopt,
               transportError(CURLE_URL_MALFORMAT, "the request has no valid URL"));
      return;
    }
    if (!request.url->isWeb()) {
      complete(task, std::nullopt, std::nullopt,
               transportError(CURLE_UNSUPPORTED_PROTOCOL,
                              "only http and https are fetched, not " + request.url->scheme()));
      return;
    }
    auto transfer = std::make_unique<Transfer>();
    transfer->task = task;
    transfer->easy = takeHandle();
    CURL* easy = transfer->easy;
    curl_easy_setopt(easy, CURLOPT_URL, request.url->absoluteString().c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // A server's answer never makes the process open a file or speak another protocol: curl is
    // held to http and https for the first URL (checked above as well) and for every redirect.
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 16L);
    // Compressed answers save bytes on a phone network; brotli costs servers far more CPU than
    // gzip for the small bodies ads are, so it is not offered.
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
    curl_easy_setopt(easy, CURLOPT_USERAGENT, kUserAgent);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer->errorBuffer);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.get());
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, transfer.get());
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE,
                     static_cast<curl_off_t>(URLSession::kMaximumBodySize));
    if (request.timeoutInterval > 0) {
      // Saturated: a huge interval is a time-out millions of years away, not an overflow.
      curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS,
                       static_cast<long>(std::chrono::ceil<std::chrono::milliseconds>(
                                             seconds(request.timeoutInterval))
                                             .count()));
    }
    if (request.HTTPMethod == "POST") {
      transfer->requestBody = request.HTTPBody.value_or(Data());
      curl_easy_setopt(easy, CURLOPT_POST, 1L);
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                       static_cast<curl_off_t>(transfer->requestBody.size()));
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, transfer->requestBody.data());
    } else if (request.HTTPMethod == "HEAD") {
      curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (request.HTTPMethod != "GET") {
      curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.HTTPMethod.c_str());
      if (request.HTTPBody) {
        transfer->requestBody = *request.HTTPBody;
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(transfer->requestBody.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, transfer->requestBody.data());
      }
    }
    // A large body would otherwise wait for "100 Continue".
    transfer->headers = curl_slist_append(transfer->headers, "Expect:");
    for (const auto& [name, value] : request.allHTTPHeaderFields) {
      transfer->headers = curl_slist_append(transfer->headers, (name + ": " + value).c_str());
    }
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer->headers);
    curl_multi_add_handle(multi, easy);
    transfers.emplace(easy, std::move(transfer));
  }

  void finish(CURL* easy, CURLcode result) {
    auto node = transfers.extract(easy);
    if (node.empty()) return;
    std::unique_ptr<Transfer> transfer = std::move(node.mapped());
    auto task = transfer->task;
    if (result == CURLE_OK) {
      long status = 0;
      curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
      transfer->response.statusCode = status;
      char* effective = nullptr;
      curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &effective);
      const auto& requested = task->request_.url;
      // Without a redirect curl reports the text it was given, whose URL the request holds.
      if (effective != nullptr && !(requested && requested->absoluteString() == effective)) {
        transfer->response.url = URL::URLWithString(effective);
      } else {
        transfer->response.url = requested;
      }
      // The answer goes out first: whatever its handler hands to another thread is on its way
      // before the handle is reset and put away.
      complete(task, std::move(transfer->responseBody), std::move(transfer->response),
               std::nullopt);
      releaseHandle(easy);
      return;
    }
    long code = result;
    std::string detail = transfer->errorBuffer;
    releaseHandle(easy);
    if (transfer->tooLarge || result == CURLE_FILESIZE_EXCEEDED) {
      code = CURLE_FILESIZE_EXCEEDED;
      detail = "the body exceeds " + std::to_string(URLSession::kMaximumBodySize) + " bytes";
    }
    transfer.reset();
    complete(task, std::nullopt, std::nullopt, transportError(code, detail));
  }

  void cancelMarked() {
    std::vector<CURL*> cancelled;
    for (auto& [easy, transfer] : transfers) {
      if (transfer->task->cancelled_) cancelled.push_back(easy);
    }
    for (CURL* easy : cancelled) {
      auto node = transfers.extract(easy);
      releaseHandle(easy);
      auto task = node.mapped()->task;
      node.mapped().reset();
      complete(task, std::nullopt, std::nullopt, transportError(kCancelledCode, "cancelled"));
    }
  }

  void loop() {
    for (;;) {
      std::vector<std::shared_ptr<URLSessionDataTask>> arrived;
      bool stopping = false;
      {
        std::lock_guard lock(mutex);
        arrived.swap(incoming);
        stopping = shuttingDown;
      }
      for (auto& task : arrived) begin(std::move(task));
      if (stopping) {
        for (auto& [easy, transfer] : transfers) transfer->task->cancelled_ = true;
        cancelMarked();
        return;
      }
      cancelMarked();
      int running = 0;
      curl_multi_perform(multi, &running);
      int queued = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg == CURLMSG_DONE) finish(message->easy_handle, message->data.result);
      }
      {
        // Tasks started by the completions above did not wake the worker (see start).
        std::lock_guard lock(mutex);
        if (!incoming.empty()) continue;
        polling = true;
      }
      curl_waitfd woken{wakeFd, CURL_WAIT_POLLIN, 0};
      curl_multi_poll(multi, &woken, wakeFd < 0 ? 0 : 1, 1000, nullptr);
      if ((woken.revents & CURL_WAIT_POLLIN) != 0) {
        eventfd_t count = 0;
        eventfd_read(wakeFd, &count);
      }
      std::lock_guard lock(mutex);
      polling = false;
    }
  }

  void wake() const {
    if (wakeFd < 0) {
      curl_multi_wakeup(multi);
    } else {
      eventfd_write(wakeFd, 1);
    }
  }
};

void URLSessionDataTask::resume() {
  State expected = State::Suspended;
  if (!state_.compare_exchange_strong(expected, State::Running)) return;
  auto session = session_.lock();
  if (!session) {
    state_ = State::Completed;
    return;
  }
  session->start(shared_from_this());
}

void URLSessionDataTask::cancel() {
  cancelled_ = true;
  if (auto session = session_.lock()) session->wake();
}

std::shared_ptr<URLSession> URLSession::sharedSession() {
  // Never destroyed: its worker may still be delivering while the process exits.
  static auto* session = new std::shared_ptr<URLSession>(new URLSession());
  return *session;
}

std::shared_ptr<URLSession> URLSession::create() {
  return std::shared_ptr<URLSession>(new URLSession());
}

URLSession::URLSession() : engine_(std::make_unique<Engine>()) {}

URLSession::~URLSession() = default;

std::shared_ptr<URLSessionDataTask> URLSession::dataTaskWithRequest(const URLRequest& request,
                                                                    CompletionHandler completion) {
  return std::shared_ptr<URLSessionDataTask>(
      new URLSessionDataTask(weak_from_this(), request, std::move(completion)));
}

void URLSession::start(std::shared_ptr<URLSessionDataTask> task) {
  ++engine_->inFlight;
  bool polling = false;
  {
    std::lock_guard lock(engine_->mutex);
    engine_->incoming.push_back(std::move(task));
    polling = engine_->polling;
  }
  // A worker that is not polling (busy, or a completion handler on it starting the next exchange
  // of a wrapper chain) looks at its incoming tasks before it polls again.
  if (polling) wake();
}

void URLSession::wake() { engine_->wake(); }

bool URLSession::isDelegateQueue() const { return std::this_thread::get_id() == engine_->workerId; }

std::size_t URLSession::tasksInFlight() const { return engine_->inFlight.load(); }

}  // namespace zorva::platform
