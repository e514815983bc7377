#include "zorva/platform/Clock.h"

namespace zorva::platform {

TimePoint VirtualClock::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

void VirtualClock::setNow(TimePoint t) {
  std::lock_guard lock(mutex_);
  if (t > now_) now_ = t;
}

}  // namespace zorva::platform
