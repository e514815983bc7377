#include "Common/ZVLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <vector>

#include <zorva/platform/LogSink.h>

namespace zorva {

namespace {
// Read on every log call from any thread, written whenever the app changes it.
std::atomic<unsigned long> currentLevel{1};

std::string lastPathComponent(const char* path) {
  std::string_view p(path != nullptr ? path : "");
  auto slash = p.find_last_of('/');
  return std::string(slash == std::string_view::npos ? p : p.substr(slash + 1));
}

std::string vformat(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (length <= 0) return std::string();
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  text.pop_back();
  return text;
}
}  // namespace

void ZVLog::setLevel(unsigned long level) { currentLevel.store(level, std::memory_order_relaxed); }

unsigned long ZVLog::level() { return currentLevel.load(std::memory_order_relaxed); }

void ZVLog::logWithLevel(unsigned long level, const char* file, const char* function,
                         unsigned long line, const char* format, ...) {
  if (format == nullptr || ZVLog::level() < level) return;
  va_list args;
  va_start(args, format);
  const std::string message = vformat(format, args);
  va_end(args);
  const std::string entry = "Zorva SDK: " + stringifiedLogLevel(level) + " " +
                            lastPathComponent(file) + " #" + std::to_string(line) + " " +
                            (function != nullptr ? function : "") + " => \n" + message + "\n";
  platform::LogSink::shared().write(entry);
}

std::string ZVLog::stringifiedLogLevel(unsigned long level) {
  switch (level) {
    case 1:
      return "- E -";
    case 2:
      return "- W -";
    case 3:
      return "- I -";
    case 4:
      return "- D -";
    case 5:
      return "- V -";
    default:
      return "|W|";
  }
}

}  // namespace zorva
