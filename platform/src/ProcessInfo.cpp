#include "zorva/platform/ProcessInfo.h"

#include <errno.h>

#include <mutex>

namespace zorva::platform {

namespace {
std::mutex nameMutex;
std::string overriddenName;
}  // namespace

std::string ProcessInfo::processName() {
  std::lock_guard lock(nameMutex);
  if (!overriddenName.empty()) return overriddenName;
  return program_invocation_short_name;
}

void ProcessInfo::setProcessName(std::string name) {
  std::lock_guard lock(nameMutex);
  overriddenName = std::move(name);
}

}  // namespace zorva::platform
