#pragma once

#include <string>

namespace zorva {

/// The SDK's leveled logger. One process-wide level (initially 1); a message prints when its
/// level is at most the current level, as one system-log entry:
///   "Zorva SDK: <tag> <file name> #<line> <function> => \n<message>\n"
/// Levels: 1 error "- E -", 2 warning "- W -", 3 info "- I -", 4 debug "- D -", 5 verbose
/// "- V -"; any other level prints "|W|".
class ZVLog {
 public:
  static void setLevel(unsigned long level);
  static unsigned long level();

  /// Formats `format` (printf conventions) and writes the entry. `file` is the caller's source
  /// path (only its last component is printed); `function` the caller's name as it should read
  /// in the log ("-[ZVAdLoader makeRequest:]"). Nothing happens when `format` is null or the
  /// level is above the current one.
  static void logWithLevel(unsigned long level, const char* file, const char* function,
                           unsigned long line, const char* format, ...)
      __attribute__((format(printf, 5, 6)));

  static std::string stringifiedLogLevel(unsigned long level);
};

}  // namespace zorva

/// Logs through `ZVLog` with the caller's file and line.
#define ZV_LOG(level, function, ...) \
  ::zorva::ZVLog::logWithLevel((level), __FILE__, (function), __LINE__, __VA_ARGS__)
