#pragma once

#include <string>

namespace zorva::platform {

/// Facts about the running process. Thread-safe.
class ProcessInfo {
 public:
  /// The executable's name, unless the host set another.
  static std::string processName();
  /// Overrides the name (empty: back to the executable's).
  static void setProcessName(std::string name);
};

}  // namespace zorva::platform
