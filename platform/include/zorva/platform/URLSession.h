#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

#include "zorva/platform/Error.h"
#include "zorva/platform/URLRequest.h"
#include "zorva/platform/Value.h"

namespace zorva::platform {

class URLSession;

/// (body, response, error) of a finished task; see `URLSession`.
using URLSessionCompletionHandler = std::function<void(
    std::optional<Data> data, std::optional<HTTPURLResponse> response, std::optional<Error> error)>;

/// One HTTP exchange. Made suspended by `URLSession::dataTaskWithRequest`; `resume` starts it.
class URLSessionDataTask : public std::enable_shared_from_this<URLSessionDataTask> {
 public:
  enum class State { Suspended, Running, Completed };

  void resume();
  /// Ends the task early; its completion then reports the cancellation error. Any thread.
  void cancel();
  State state() const { return state_.load(); }
  const URLRequest& originalRequest() const { return request_; }

 private:
  friend class URLSession;
  URLSessionDataTask(std::weak_ptr<URLSession> session, URLRequest request,
                     URLSessionCompletionHandler completion)
      : session_(std::move(session)),
        request_(std::move(request)),
        completion_(std::move(completion)) {}

  std::weak_ptr<URLSession> session_;
  URLRequest request_;
  URLSessionCompletionHandler completion_;
  std::atomic<State> state_{State::Suspended};
  std::atomic<bool> cancelled_{false};
};

/// The HTTP transport: libcurl's multi interface driven by ONE worker thread per session. Every
/// completion handler runs on that thread ("the session's delegate queue"), one at a time, never
/// on the main queue.
///
/// Completion: (body, response, error). A transport failure (refused connection, time-out,
/// cancellation, a body over the size limit) gives no body, no response and an error in the
/// domain "libcurl" with curl's own code. Only http and https are fetched, redirects included: a
/// URL of any other scheme fails at once with curl's "unsupported protocol" (1), and nothing is
/// opened for it. Any HTTP answer, whatever its status, is a success:
/// body (possibly empty), response, no error.
class URLSession : public std::enable_shared_from_this<URLSession> {
 public:
  using CompletionHandler = URLSessionCompletionHandler;

  /// The error domain of transport failures.
  static constexpr const char* kErrorDomain = "libcurl";
  /// Code of a task ended by `cancel` (curl's "aborted by callback").
  static constexpr long kCancelledCode = 42;
  /// The largest body a task accepts; a larger one fails with curl's "file too large" (63).
  static constexpr std::size_t kMaximumBodySize = 64u << 20;

  /// The process-wide session. It lives until the process ends.
  static std::shared_ptr<URLSession> sharedSession();
  /// A session of its own, with its own worker thread; destroying it cancels its tasks.
  static std::shared_ptr<URLSession> create();

  ~URLSession();
  URLSession(const URLSession&) = delete;
  URLSession& operator=(const URLSession&) = delete;

  std::shared_ptr<URLSessionDataTask> dataTaskWithRequest(const URLRequest& request,
                                                          CompletionHandler completion);

  /// True when called on this session's worker thread (inside a completion handler).
  bool isDelegateQueue() const;
  /// Tasks resumed and not yet completed; a task counts until its completion handler returns.
  std::size_t tasksInFlight() const;

 private:
  struct Engine;
  friend class URLSessionDataTask;
  URLSession();
  void start(std::shared_ptr<URLSessionDataTask> task);
  void wake();

  std::unique_ptr<Engine> engine_;
};

}  // namespace zorva::platform
