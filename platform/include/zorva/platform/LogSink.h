#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace zorva::platform {

/// The system log. Each `write` is one entry, written whole to stderr (a newline is added when
/// the text lacks one), unless a handler has been installed: hosts forward entries to their own
/// logger, tests capture them. Safe from any thread; entries never interleave.
class LogSink {
 public:
  using Handler = std::function<void(std::string_view entry)>;

  static LogSink& shared();

  void write(std::string_view entry);
  /// Installs `handler` (nullptr: back to stderr).
  void setHandler(Handler handler);

 private:
  std::mutex mutex_;
  Handler handler_;
};

}  // namespace zorva::platform
