#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <zorva/platform/Clock.h>

namespace zorva::test {

/// Puts every process-wide piece back to its fresh state: the main queue (empty, real clock,
/// bound to the calling thread), the main bundle, the log level and sink, the SDK settings, the
/// shared network handler and location manager, the SDK's caches, and the platform's device
/// state (no windows, the phone profile, the machine's time zone, automatic headless web and
/// media engines, location not authorized). The test main runs it before every test.
void resetProcessState();

/// Switches the main queue to a virtual clock and returns it.
std::shared_ptr<platform::VirtualClock> useVirtualClock();

/// ZORVA_TEST_TIME_SCALE (the sanitizer builds' presets set it), or 1. Inline, for the suites
/// that link the SDK's shared libraries rather than this support library.
inline double timeScale() {
  const char* scale = std::getenv("ZORVA_TEST_TIME_SCALE");
  return scale ? std::atof(scale) : 1;
}

/// Runs the main queue until `predicate` holds, for at most `timeout` × `timeScale()` of real time.
bool runMainQueueUntil(const std::function<bool()>& predicate,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10));

/// Captures every log entry written while it lives.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<std::string> entries() const;
  /// Entries that contain `text`.
  std::vector<std::string> entriesContaining(const std::string& text) const;

 private:
  struct State {
    std::mutex mutex;
    std::vector<std::string> entries;
  };
  std::shared_ptr<State> state_;
};

/// Switches the C library's number reading and writing to German, whose decimal separator is a
/// comma, as a GTK host does when the environment names such a locale; "C" comes back when it
/// goes. The locale is compiled once per process into a temporary directory (hosts rarely have
/// it installed); `active()` tells whether that worked.
class CommaDecimalLocale {
 public:
  CommaDecimalLocale();
  ~CommaDecimalLocale();
  CommaDecimalLocale(const CommaDecimalLocale&) = delete;
  CommaDecimalLocale& operator=(const CommaDecimalLocale&) = delete;
  bool active() const { return active_; }

 private:
  bool active_ = false;
};

}  // namespace zorva::test
