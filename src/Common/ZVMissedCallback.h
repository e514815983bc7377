#pragma once

#include <zorva/ZorvaSDK.h>

#include <memory>

#include "Common/ZVLog.h"

namespace zorva {

/// The level of the "Ad Not in loadable state" message of a refused `loadAd`: a warning, or an
/// error with `ZorvaSDK::logMissedCallbacks` on.
inline unsigned long refusedLoadLogLevel() {
  return ZorvaSDK::shared()->logMissedCallbacks() ? 1 : 2;
}

/// With `ZorvaSDK::logMissedCallbacks` on, logs at level 1 that a callback found the app's
/// delegate released: `delegate` was set (it is not an empty reference) and has expired. An
/// app that never set a delegate hears nothing, as it asked.
template <typename T>
void logIfDelegateGone(const std::weak_ptr<T>& delegate, const char* function) {
  const std::weak_ptr<T> never;
  const bool wasSet = delegate.owner_before(never) || never.owner_before(delegate);
  if (!wasSet || !delegate.expired() || !ZorvaSDK::shared()->logMissedCallbacks()) return;
  ZV_LOG(1, function, "%s",
         "the delegate was released before this callback: keep the delegate alive as long as "
         "the ad object");
}

}  // namespace zorva
