#pragma once

#include <memory>
#include <string>

namespace zorva::platform {

class PlayerItem;

/// Receives the changes of the key paths it observes on a player item ("status",
/// "loadedTimeRanges"), the platform's key-value observing. A report is made after the new value
/// is in place (so the observer reads it from the object), once per change, never for the value
/// at registration time. Observers are held weakly; main thread only.
class KeyValueObserver {
 public:
  virtual ~KeyValueObserver() = default;

  virtual void observeValueForKeyPath(const std::string& keyPath,
                                      const std::shared_ptr<PlayerItem>& object) = 0;
};

}  // namespace zorva::platform
