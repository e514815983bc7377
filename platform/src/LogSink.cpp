#include "zorva/platform/LogSink.h"

#include <cstdio>

namespace zorva::platform {

LogSink& LogSink::shared() {
  static LogSink* sink = new LogSink();
  return *sink;
}

void LogSink::write(std::string_view entry) {
  std::lock_guard lock(mutex_);
  if (handler_) {
    handler_(entry);
    return;
  }
  std::fwrite(entry.data(), 1, entry.size(), stderr);
  if (entry.empty() || entry.back() != '\n') std::fputc('\n', stderr);
  std::fflush(stderr);
}

void LogSink::setHandler(Handler handler) {
  std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

}  // namespace zorva::platform
