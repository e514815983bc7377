#include "Network/ZVTrackingTransport.h"

#include <sqlite3.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/ProcessInfo.h>
#include <zorva/platform/TimeZone.h>

#include <algorithm>
#include <cctype>

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

// Never destroyed: a transport still running at exit is not torn down under its worker or under
// the URL session's thread.
ProcessTransport& processTransport() {
  static auto* instance = new ProcessTransport;
  return *instance;
}

system_clock::time_point timePoint(double seconds) {
  return system_clock::time_point(
      std::chrono::duration_cast<system_clock::duration>(std::chrono::duration<double>(seconds)));
}

double seconds(std::chrono::milliseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

// A bundle identifier as one folder name.
std::string folderName(std::string name) {
  for (auto& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_') c = '_';
  }
  return name.empty() || name == "." || name == ".." ? "app" : name;
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
  const auto app = platform::Bundle::mainBundle().bundleIdentifier().value_or(
      platform::ProcessInfo::processName());
  return (base / "zorva" / folderName(app) / "tracking.sqlite").string();
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
    : options_(options), session_(platform::URLSession::create()), memory_(options.capacity) {
  worker_ = std::thread([this] { run(); });
}

ZVTrackingTransport::~ZVTrackingTransport() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  worker_.join();
  // Cancels the requests in flight; their completions have run when this returns, and find the
  // transport stopping.
  session_.reset();
}

void ZVTrackingTransport::send(const std::vector<std::string>& urls) {
  {
    std::lock_guard lock(mutex_);
    handed_.insert(handed_.end(), urls.begin(), urls.end());
    poked_ = true;
  }
  wake_.notify_one();
}

std::size_t ZVTrackingTransport::pending() {
  std::lock_guard lock(mutex_);
  return handed_.size() + storing_ + stored_;
}

void ZVTrackingTransport::run() {
  std::unique_lock lock(mutex_);
  std::optional<double> wakeAt;
  for (;;) {
    const auto woken = [this] { return stopping_ || poked_; };
    if (wakeAt) {
      wake_.wait_until(lock, timePoint(*wakeAt), woken);
    } else {
      wake_.wait(lock, woken);
    }
    if (stopping_) return;
    poked_ = false;
    std::vector<std::string> handed;
    handed.swap(handed_);
    std::vector<Answer> answers;
    answers.swap(answers_);
    storing_ = handed.size();
    // The queue is the worker's alone: callers and completions only wait for this lock.
    lock.unlock();
    wakeAt = step(handed, std::move(answers));
    const std::size_t stored = (file_ ? file_->size().value_or(0) : 0) + memory_.size().value_or(0);
    lock.lock();
    storing_ = 0;
    stored_ = stored;
  }
}

std::optional<double> ZVTrackingTransport::step(const std::vector<std::string>& handed,
                                                std::vector<Answer> answers) {
  const double now = secondsSinceEpoch(system_clock::now());
  fileFailedThisRound_ = false;
  if (!file_ && now >= reopenAt_) openFile(now);

  if (!handed.empty() && !(file_ && file_->append(handed, now))) {
    if (file_) fileFailed(now, "storing");
    if (!memory_.append(handed, now)) {
      ZV_LOG(1, kFunction, "Tracking queue: %zu URLs lost, memory refused them", handed.size());
    }
  }
  for (const auto& answer : answers) {
    --inFlight_;
    settle(outcomeOf(answer, now), now);
  }
  // Writes that failed before, whose back-off has passed.
  auto unsettled = std::move(unsettled_);
  unsettled_.clear();
  for (auto& outcome : unsettled) {
    if (outcome.at <= now) {
      settle(outcome, now);
    } else {
      unsettled_.push_back(outcome);
    }
  }
  if (file_ && memory_.size().value_or(0) != 0 && !memory_.moveInto(*file_, now)) {
    fileFailed(now, "moving URLs from memory");
  }
  std::size_t slots = options_.concurrency - std::min(inFlight_, options_.concurrency);
  claimAndSend(Source::memory, slots, now);
  claimAndSend(Source::file, slots, now);
  if (!fileFailedThisRound_) fileFailures_ = 0;

  // Wakes for the next due URL only while a request may start; an answer wakes it anyway.
  std::optional<double> next;
  const auto earliest = [&next](std::optional<double> at) {
    if (at && (!next || *at < *next)) next = at;
  };
  if (slots > 0) {
    earliest(memory_.nextDue());
    if (file_) earliest(file_->nextDue());
  }
  if (!file_) earliest(reopenAt_);
  for (const auto& outcome : unsettled_) earliest(outcome.at);
  return next;
}

void ZVTrackingTransport::openFile(double now) {
  bool fresh = false;
  file_ = ZVTrackingQueue::open(options_.queuePath, options_.capacity, &fresh);
  if (fresh) {
    // A new file: the ids of the one set aside mean nothing in it.
    ++fileGeneration_;
    std::erase_if(unsettled_,
                  [](const Outcome& outcome) { return outcome.source == Source::file; });
  }
  if (!file_) {
    fileFailedThisRound_ = true;
    reopenAt_ = now + retryDelay(++fileFailures_);
  }
}

void ZVTrackingTransport::fileFailed(double now, const char* what) {
  fileFailedThisRound_ = true;
  reopenAt_ = now + retryDelay(++fileFailures_);
  ZV_LOG(1, kFunction, "Tracking queue %s: %s failed (%s); tried again in %.3f s",
         options_.queuePath.c_str(), what, file_->error().c_str(), reopenAt_ - now);
  file_.reset();
}

ZVTrackingQueue* ZVTrackingTransport::queueOf(Source source, int generation) {
  if (source == Source::memory) return &memory_;
  return generation == fileGeneration_ ? file_.get() : nullptr;
}

ZVTrackingTransport::Outcome ZVTrackingTransport::outcomeOf(const Answer& answer, double now) {
  const auto& entry = answer.entry;
  const char* sent = answer.sent.c_str();
  Outcome outcome{answer.source, answer.generation, entry.id, true};
  const long status = answer.response ? answer.response->statusCode : 0;
  const int attempts = entry.attempts + 1;
  if (!answer.error && status < 400) {
    ZV_LOG(4, kFunction, "Tracking sent (%ld, attempt %d): %s", status, attempts, sent);
  } else if (!answer.error && status < 500) {
    ZV_LOG(4, kFunction, "Tracking refused (%ld, final): %s", status, sent);
  } else {
    const std::string reason =
        answer.error ? answer.error->localizedDescription() : "status " + std::to_string(status);
    const double retry = now + retryDelay(attempts);
    if (retry - entry.createdAt > seconds(options_.maxAge)) {
      ZV_LOG(4, kFunction, "Tracking given up after %d attempts (%s): %s", attempts, reason.c_str(),
             sent);
    } else {
      ZV_LOG(4, kFunction, "Tracking failed (%s, attempt %d), retry in %.3f s: %s", reason.c_str(),
             attempts, retry - now, sent);
      outcome.remove = false;
      outcome.attempts = attempts;
      outcome.due = retry;
    }
  }
  return outcome;
}

void ZVTrackingTransport::settle(Outcome outcome, double now) {
  // A file set aside since: its rows are gone with it.
  if (outcome.source == Source::file && outcome.generation != fileGeneration_) return;
  auto* queue = queueOf(outcome.source, outcome.generation);
  const bool written =
      queue && (outcome.remove ? queue->remove(outcome.id)
                               : queue->retryAt(outcome.id, outcome.attempts, outcome.due));
  if (written) return;
  if (queue == file_.get() && file_) fileFailed(now, outcome.remove ? "deleting" : "rescheduling");
  // The URL stays claimed meanwhile, and a claim of it once its lease ends sends nothing.
  outcome.at = now + retryDelay(++outcome.failures);
  unsettled_.push_back(outcome);
}

void ZVTrackingTransport::claimAndSend(Source source, std::size_t& slots, double now) {
  auto* queue = queueOf(source, fileGeneration_);
  if (!queue || slots == 0) return;
  const double lease = seconds(options_.lease);
  const auto claimed = queue->claim(now, now + lease, slots);
  if (!claimed) {
    if (source == Source::file) fileFailed(now, "claiming");
    return;
  }
  const auto sentAt = timePoint(now);
  for (const auto& entry : *claimed) {
    const bool waiting = std::any_of(unsettled_.begin(), unsettled_.end(), [&](const Outcome& o) {
      return o.source == source && o.id == entry.id;
    });
    if (waiting) continue;
    const std::string sent = expandMacros(entry.url, sentAt);
    auto url = platform::URL::URLWithString(sent);
    if (!url) {
      ZV_LOG(4, kFunction, "Tracking dropped (not a URL): %s", sent.c_str());
      settle({source, fileGeneration_, entry.id, true}, now);
      continue;
    }
    --slots;
    ++inFlight_;
    platform::URLRequest request(std::move(url),
                                 platform::URLRequestCachePolicy::ReloadIgnoringLocalCacheData,
                                 std::min(options_.timeout, lease / 2));
    auto task = session_->dataTaskWithRequest(
        request, [this, answer = Answer{source, fileGeneration_, entry, sent, {}, {}}](
                     std::optional<Data>, std::optional<platform::HTTPURLResponse> response,
                     std::optional<Error> error) mutable {
          {
            std::lock_guard lock(mutex_);
            // Cancelled by a stop: the URL stays stored as it was.
            if (stopping_) return;
            answer.response = std::move(response);
            answer.error = std::move(error);
            answers_.push_back(std::move(answer));
            poked_ = true;
          }
          wake_.notify_one();
        });
    task->resume();
  }
}

double ZVTrackingTransport::retryDelay(int attempts) {
  const double first = std::chrono::duration<double>(options_.firstDelay).count();
  const double longest = std::chrono::duration<double>(options_.maxDelay).count();
  const double delay = std::min(longest, first * std::pow(2.0, std::min(attempts - 1, 30)));
  std::uniform_real_distribution<double> jitter(0.5, 1.5);
  return delay * jitter(randomEngine());
}

}  // namespace zorva
