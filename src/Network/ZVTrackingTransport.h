#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <zorva/ZVTypes.h>
#include <zorva/platform/URLRequest.h>
#include <zorva/platform/URLSession.h>

#include "Network/ZVTrackingQueue.h"

namespace zorva {

/// Sends tracking URLs: each handed-over URL is stored in the queue by the transport's worker
/// thread, then GET with its macros expanded, at most `concurrency` at a time, and removed on a
/// final answer: any status below 400 (sent), 4xx (refused), or the URL's age passing `maxAge`
/// (given up); a text that is no URL is dropped unsent. Transport errors and 5xx are retried with
/// exponential back-off and jitter. Every outcome is logged at the debug level. One runs per
/// process while the SDK's tracking setting is on.
///
/// The queue's file may be shared by several processes: a URL is sent by the process that
/// claimed it, and by no other until that claim's lease ends. When the file cannot be opened or
/// written, the URLs handed over meanwhile are kept in an in-memory queue and sent from there;
/// the file is tried again with the same back-off as a failed send, and what memory still holds
/// moves into it once it works. A delete or update that fails is retried with that back-off too,
/// and the URL is not sent meanwhile.
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
    /// Each request's time-out, in seconds; at most half the lease.
    double timeout = 30;
    /// How long a claim keeps other processes from sending a URL: a process killed with URLs
    /// claimed delays them by this much.
    std::chrono::milliseconds lease{std::chrono::minutes(1)};
  };

  /// `$XDG_CACHE_HOME/zorva/<app>/tracking.sqlite`, `<app>` the main bundle's identifier (the
  /// program's name without one), `$HOME/.cache` standing in for an unset or relative
  /// `XDG_CACHE_HOME`; relative to the working directory without either.
  static std::string defaultQueuePath();

  /// Starts the process-wide transport with `options` unless one is running; the URLs its queue
  /// already holds go out at once, those another process had claimed when their lease ends.
  static void start(const Options& options);
  /// Stops the process-wide transport: its worker ends, requests in flight are cancelled and
  /// their URLs stay stored, to be sent when their lease ends.
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

  /// Hands `urls` to the worker, which stores them at once. Never touches the queue's file, so
  /// it never waits for another process: the URLs are in this process's memory when it returns,
  /// on disk after the worker's next commit.
  void send(const std::vector<std::string>& urls);
  /// URLs handed over and not yet finally answered, as far as this process can see: those of
  /// the file while it is open (any process's), of the in-memory queue, and those being stored.
  std::size_t pending();

 private:
  enum class Source { file, memory };
  // A final answer or a retry to be written to the queue the URL came from.
  struct Outcome {
    Source source;
    int generation;
    std::int64_t id;
    bool remove;
    int attempts = 0;
    double due = 0;
    // Failed writes so far, and when to try again.
    int failures = 0;
    double at = 0;
  };
  struct Answer {
    Source source;
    int generation;
    ZVTrackingQueue::Entry entry;
    std::string sent;
    std::optional<platform::HTTPURLResponse> response;
    std::optional<Error> error;
  };

  void run();
  /// One round of the worker: stores, settles, moves and claims; returns when to wake next.
  std::optional<double> step(const std::vector<std::string>& handed, std::vector<Answer> answers);
  void openFile(double now);
  void fileFailed(double now, const char* what);
  ZVTrackingQueue* queueOf(Source source, int generation);
  Outcome outcomeOf(const Answer& answer, double now);
  /// Writes `outcome`; on failure keeps it to be tried again after a back-off.
  void settle(Outcome outcome, double now);
  void claimAndSend(Source source, std::size_t& slots, double now);
  double retryDelay(int attempts);

  const Options options_;
  std::shared_ptr<platform::URLSession> session_;

  // Shared with the callers and the session's thread.
  std::mutex mutex_;
  std::condition_variable wake_;
  std::vector<std::string> handed_;
  std::vector<Answer> answers_;
  bool stopping_ = false;
  bool poked_ = true;
  std::size_t storing_ = 0;
  std::size_t stored_ = 0;

  // The worker's own.
  std::unique_ptr<ZVTrackingQueue> file_;
  int fileGeneration_ = 0;
  int fileFailures_ = 0;
  bool fileFailedThisRound_ = false;
  double reopenAt_ = 0;
  ZVTrackingQueue memory_;
  std::vector<Outcome> unsettled_;
  std::size_t inFlight_ = 0;

  std::thread worker_;
};

}  // namespace zorva
