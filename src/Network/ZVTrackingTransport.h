#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <zorva/ZVTypes.h>
#include <zorva/platform/URLRequest.h>
#include <zorva/platform/URLSession.h>

#include "Network/ZVTrackingQueue.h"

namespace zorva {

/// Sends tracking URLs: each handed-over URL is stored in the durable queue before `send`
/// returns, then GET by a worker thread with its macros expanded, at most `concurrency` at a
/// time, and removed on a final answer: any status below 400 (sent), 4xx (refused), or the
/// URL's age passing `maxAge` (given up); a text that is no URL is dropped unsent. Transport
/// errors and 5xx are retried with exponential back-off and jitter. Every outcome is logged at the
/// debug level. One runs per process while the SDK's tracking setting is on.
class ZVTrackingTransport {
 public:
  struct Options {
    /// The queue's file.
    std::string queuePath;
    /// URLs kept at most; beyond it the oldest are dropped.
    std::size_t capacity = 1000;
    /// Requests in flight at most.
    std::size_t concurrency = 4;
    /// The first retry's delay; each further one doubles it, up to `maxDelay`. Each delay is
    /// scaled by a random factor in [0.5, 1.5).
    std::chrono::milliseconds firstDelay{2000};
    std::chrono::milliseconds maxDelay{std::chrono::minutes(10)};
    /// Past this age since its hand-over a failing URL is dropped.
    std::chrono::milliseconds maxAge{std::chrono::hours(24)};
    /// Each request's time-out, in seconds.
    double timeout = 30;
  };

  /// `$XDG_CACHE_HOME/zorva/tracking.sqlite`, `$HOME/.cache` standing in for an unset or
  /// relative `XDG_CACHE_HOME`; relative to the working directory without either.
  static std::string defaultQueuePath();

  /// Starts the process-wide transport with `options` unless one is running; the URLs its queue
  /// already holds go out at once.
  static void start(const Options& options);
  /// Stops the process-wide transport: its worker ends, requests in flight are cancelled and
  /// their URLs stay stored for the next start.
  static void stop();
  /// The process-wide transport, or nothing when none is running.
  static std::shared_ptr<ZVTrackingTransport> running();

  /// Test seam: `start` takes these options instead, keeping only the queue path it was given.
  static void setOptionsForTesting(std::optional<Options> options);

  /// Replaces the macros a tracking URL may carry at the time it is sent: "[CACHEBUSTING]" by a
  /// random 8-digit number, "[TIMESTAMP]" by the date in ISO 8601 with milliseconds and the
  /// system zone's offset, percent-encoded. Others are left as they are.
  static std::string expandMacros(const std::string& url,
                                  std::chrono::system_clock::time_point now);

  explicit ZVTrackingTransport(const Options& options);
  ~ZVTrackingTransport();
  ZVTrackingTransport(const ZVTrackingTransport&) = delete;
  ZVTrackingTransport& operator=(const ZVTrackingTransport&) = delete;

  /// Stores `urls` (a bounded append to the queue's log) and wakes the worker.
  void send(const std::vector<std::string>& urls);
  /// URLs stored and not yet finally answered.
  std::size_t pending();

 private:
  void run();
  /// Marks the due URLs in flight and makes their requests, still suspended.
  std::vector<std::shared_ptr<platform::URLSessionDataTask>> takeDue();
  void answered(const ZVTrackingQueue::Entry& entry, const std::string& sentUrl,
                const std::optional<platform::HTTPURLResponse>& response,
                const std::optional<Error>& error);
  double retryDelay(int attempts);

  Options options_;
  std::mutex mutex_;
  std::condition_variable wake_;
  ZVTrackingQueue queue_;
  std::set<std::int64_t> inFlight_;
  bool stopping_ = false;
  bool poked_ = false;
  std::shared_ptr<platform::URLSession> session_;
  std::thread worker_;
};

}  // namespace zorva
