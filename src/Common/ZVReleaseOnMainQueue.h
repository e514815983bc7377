#pragma once

#include <memory>

#include <zorva/platform/MainQueue.h>

namespace zorva {

/// Drops one reference to `object` on the main thread: here when called there, otherwise in a
/// task posted to the main queue. A network-thread callback that had to keep an ad object (or
/// the app's delegate) alive while it ran lets go through this, so that if it held the last
/// reference the object and its views are still destroyed on the main thread.
template <typename T>
void releaseOnMainQueue(std::shared_ptr<T> object) {
  if (!object) return;
  auto& queue = platform::MainQueue::shared();
  if (queue.isCurrent()) return;
  queue.post([object = std::move(object)] {});
}

}  // namespace zorva
