#include "Network/ZVTrackingTransport.h"

#include <zorva/platform/TimeZone.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>

#include "Common/ZVLog.h"

namespace zorva {

namespace {

using std::chrono::system_clock;

constexpr const char* kFunction = "-[ZVTrackingTransport send:]";

double secondsSinceEpoch(system_clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

struct ProcessTransport {
  std::mutex mutex;
  std::shared_ptr<ZVTrackingTransport> transport;
  std::optional<ZVTrackingTransport::Options> testOptions;
};

ProcessTransport& processTransport() {
  static ProcessTransport instance;
  return instance;
}

std::mt19937_64& randomEngine() {
  thread_local std::mt19937_64 engine{std::random_device{}()};
  return engine;
}

void replaceAll(std::string& text, const std::string& macro, const std::string& value) {
  for (auto at = text.find(macro); at != std::string::npos;
       at = text.find(macro, at + value.size())) {
    text.replace(at, macro.size(), value);
  }
}

// "2026-03-01T14:05:09.042+01:00", with ':' and '+' percent-encoded for a query.
std::string timestamp(system_clock::time_point now) {
  const auto offset = platform::TimeZone::systemTimeZone().secondsFromGMTForDate(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
  const std::time_t local = static_cast<std::time_t>(std::floor(millis / 1000.0)) + offset;
  std::tm fields{};
  gmtime_r(&local, &fields);
  char text[64];
  std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d%%3A%02d%%3A%02d.%03d%s%02d%%3A%02d",
                fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                fields.tm_min, fields.tm_sec, static_cast<int>(((millis % 1000) + 1000) % 1000),
                offset < 0 ? "-" : "%2B", std::abs(offset) / 3600, std::abs(offset) % 3600 / 60);
  return text;
}

}  // namespace

std::string ZVTrackingTransport::defaultQueuePath() {
  std::filesystem::path base;
  const char* cache = std::getenv("XDG_CACHE_HOME");
  const char* home = std::getenv("HOME");
  if (cache && std::filesystem::path(cache).is_absolute()) {
    base = cache;
  } else if (home && *home) {
    base = std::filesystem::path(home) / ".cache";
  }
  return (base / "zorva" / "tracking.sqlite").string();
}

void ZVTrackingTransport::start(const Options& options) {
  auto& process = processTransport();
  std::lock_guard lock(process.mutex);
  if (process.transport) return;
  Options chosen = process.testOptions.value_or(options);
  chosen.queuePath = options.queuePath;
  process.transport = std::make_shared<ZVTrackingTransport>(chosen);
}

void ZVTrackingTransport::stop() {
  std::shared_ptr<ZVTrackingTransport> stopped;
  {
    auto& process = processTransport();
    std::lock_guard lock(process.mutex);
    stopped.swap(process.transport);
  }
}

std::shared_ptr<ZVTrackingTransport> ZVTrackingTransport::running() {
  auto& process = processTransport();
  std::lock_guard lock(process.mutex);
  return process.transport;
}

void ZVTrackingTransport::setOptionsForTesting(std::optional<Options> options) {
  auto& process = processTransport();
  std::lock_guard lock(process.mutex);
  process.testOptions = std::move(options);
}

std::string ZVTrackingTransport::expandMacros(const std::string& url,
                                              system_clock::time_point now) {
  std::string expanded = url;
  if (expanded.find("[CACHEBUSTING]") != std::string::npos) {
    std::uniform_int_distribution<int> digits(10000000, 99999999);
    replaceAll(expanded, "[CACHEBUSTING]", std::to_string(digits(randomEngine())));
  }
  if (expanded.find("[TIMESTAMP]") != std::string::npos) {
    replaceAll(expanded, "[TIMESTAMP]", timestamp(now));
  }
  return expanded;
}

ZVTrackingTransport::ZVTrackingTransport(const Options& options)
    : options_(options),
      queue_(options.queuePath, options.capacity),
      session_(platform::URLSession::create()) {
  worker_ = std::thread([this] { run(); });
}

ZVTrackingTransport::~ZVTrackingTransport() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  worker_.join();
  // Cancels the requests in flight; their completions have run when this returns.
  session_.reset();
}

void ZVTrackingTransport::send(const std::vector<std::string>& urls) {
  {
    std::lock_guard lock(mutex_);
    queue_.append(urls, secondsSinceEpoch(system_clock::now()));
    poked_ = true;
  }
  wake_.notify_one();
}

std::size_t ZVTrackingTransport::pending() {
  std::lock_guard lock(mutex_);
  return queue_.size();
}

void ZVTrackingTransport::run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    poked_ = false;
    auto tasks = takeDue();
    if (!tasks.empty()) {
      // The session's thread takes this lock to report: start the requests without it.
      lock.unlock();
      for (auto& task : tasks) task->resume();
      lock.lock();
      continue;
    }
    const auto wakeUp = [this] { return stopping_ || poked_; };
    if (inFlight_.size() >= options_.concurrency) {
      wake_.wait(lock, wakeUp);
    } else if (const auto next = queue_.nextDue(inFlight_)) {
      const auto at = system_clock::time_point(
          std::chrono::duration_cast<system_clock::duration>(std::chrono::duration<double>(*next)));
      wake_.wait_until(lock, at, wakeUp);
    } else {
      wake_.wait(lock, wakeUp);
    }
  }
}

std::vector<std::shared_ptr<platform::URLSessionDataTask>> ZVTrackingTransport::takeDue() {
  std::vector<std::shared_ptr<platform::URLSessionDataTask>> tasks;
  if (inFlight_.size() >= options_.concurrency) return tasks;
  const auto now = system_clock::now();
  for (auto& entry :
       queue_.due(secondsSinceEpoch(now), options_.concurrency - inFlight_.size(), inFlight_)) {
    const std::string sent = expandMacros(entry.url, now);
    auto url = platform::URL::URLWithString(sent);
    if (!url) {
      ZV_LOG(4, kFunction, "Tracking dropped (not a URL): %s", sent.c_str());
      queue_.remove(entry.id);
      continue;
    }
    inFlight_.insert(entry.id);
    platform::URLRequest request(std::move(url),
                                 platform::URLRequestCachePolicy::ReloadIgnoringLocalCacheData,
                                 options_.timeout);
    tasks.push_back(session_->dataTaskWithRequest(
        request, [this, entry, sent](
                     std::optional<Data>, std::optional<platform::HTTPURLResponse> response,
                     std::optional<Error> error) { answered(entry, sent, response, error); }));
  }
  return tasks;
}

void ZVTrackingTransport::answered(const ZVTrackingQueue::Entry& entry, const std::string& sentUrl,
                                   const std::optional<platform::HTTPURLResponse>& response,
                                   const std::optional<Error>& error) {
  {
    std::lock_guard lock(mutex_);
    inFlight_.erase(entry.id);
    // Cancelled by a stop: the URL stays stored as it was, for the next start.
    if (stopping_) return;
    const long status = response ? response->statusCode : 0;
    const int attempts = entry.attempts + 1;
    if (!error && status < 400) {
      ZV_LOG(4, kFunction, "Tracking sent (%ld, attempt %d): %s", status, attempts,
             sentUrl.c_str());
      queue_.remove(entry.id);
    } else if (!error && status < 500) {
      ZV_LOG(4, kFunction, "Tracking refused (%ld, final): %s", status, sentUrl.c_str());
      queue_.remove(entry.id);
    } else {
      const std::string reason =
          error ? error->localizedDescription() : "status " + std::to_string(status);
      const double now = secondsSinceEpoch(system_clock::now());
      const double retry = now + retryDelay(attempts);
      const double age = std::chrono::duration<double>(options_.maxAge).count();
      if (retry - entry.createdAt > age) {
        ZV_LOG(4, kFunction, "Tracking given up after %d attempts (%s): %s", attempts,
               reason.c_str(), sentUrl.c_str());
        queue_.remove(entry.id);
      } else {
        ZV_LOG(4, kFunction, "Tracking failed (%s, attempt %d), retry in %.3f s: %s",
               reason.c_str(), attempts, retry - now, sentUrl.c_str());
        queue_.retryAt(entry.id, attempts, retry);
      }
    }
    poked_ = true;
  }
  wake_.notify_one();
}

double ZVTrackingTransport::retryDelay(int attempts) {
  const double first = std::chrono::duration<double>(options_.firstDelay).count();
  const double longest = std::chrono::duration<double>(options_.maxDelay).count();
  const double delay = std::min(longest, first * std::pow(2.0, std::min(attempts - 1, 30)));
  std::uniform_real_distribution<double> jitter(0.5, 1.5);
  return delay * jitter(randomEngine());
}

}  // namespace zorva
