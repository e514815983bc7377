#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zorva/platform/Value.h"

namespace zorva::platform {

/// A posted notification: its name, its sender (null for none) and extra data.
struct Notification {
  std::string name;
  std::shared_ptr<const void> object;
  Value userInfo;
};

/// Delivers named notifications to the observers registered for them (`NSNotificationCenter`).
/// Delivery is synchronous, on the posting thread, to the observers registered when the post
/// begins. Observers are held weakly: a dead observer is never called. Thread-safe.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification& notification)>;

  static NotificationCenter& defaultCenter();

  /// Calls `handler` for each notification named `name` (any name when absent) whose sender is
  /// `object` (any sender when null) while `observer` lives. The observer-selector form: the
  /// handler is the selector bound to its target.
  void addObserver(const std::shared_ptr<const void>& observer, Handler handler,
                   std::optional<std::string> name, const void* object);
  /// Removes every registration of `observer`.
  void removeObserver(const void* observer);
  /// Removes the registrations of `observer` for `name` (all names when absent) and `object`
  /// (all senders when null).
  void removeObserver(const void* observer, const std::optional<std::string>& name,
                      const void* object);

  void postNotification(const Notification& notification);
  void postNotificationName(std::string name, std::shared_ptr<const void> object,
                            Value userInfo = nullptr);

 private:
  struct Registration {
    const void* key;
    std::weak_ptr<const void> observer;
    std::shared_ptr<Handler> handler;
    std::optional<std::string> name;
    const void* object;
  };

  std::mutex mutex_;
  std::vector<Registration> registrations_;
};

}  // namespace zorva::platform
