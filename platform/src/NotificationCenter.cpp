#include "zorva/platform/NotificationCenter.h"

#include <algorithm>

namespace zorva::platform {

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: posts from other threads during process exit must find a live centre.
  static NotificationCenter* center = new NotificationCenter();
  return *center;
}

void NotificationCenter::addObserver(const std::shared_ptr<const void>& observer, Handler handler,
                                     std::optional<std::string> name, const void* object) {
  if (!observer || !handler) return;
  std::lock_guard lock(mutex_);
  registrations_.push_back(Registration{observer.get(), observer,
                                        std::make_shared<Handler>(std::move(handler)),
                                        std::move(name), object});
}

void NotificationCenter::removeObserver(const void* observer) {
  removeObserver(observer, std::nullopt, nullptr);
}

void NotificationCenter::removeObserver(const void* observer,
                                        const std::optional<std::string>& name,
                                        const void* object) {
  std::vector<Registration> removed;  // handlers are released outside the lock
  std::lock_guard lock(mutex_);
  auto matches = [&](const Registration& r) {
    return r.key == observer && (!name || r.name == name) &&
           (object == nullptr || r.object == object);
  };
  auto it = std::stable_partition(registrations_.begin(), registrations_.end(),
                                  [&](const Registration& r) { return !matches(r); });
  removed.assign(std::make_move_iterator(it), std::make_move_iterator(registrations_.end()));
  registrations_.erase(it, registrations_.end());
}

void NotificationCenter::postNotification(const Notification& notification) {
  struct Delivery {
    std::shared_ptr<const void> observer;  // kept alive for the call
    std::shared_ptr<Handler> handler;
  };
  std::vector<Delivery> deliveries;
  {
    std::lock_guard lock(mutex_);
    // Registrations of observers that are gone are dropped as the list is walked.
    std::erase_if(registrations_, [](const Registration& r) { return r.observer.expired(); });
    for (const auto& r : registrations_) {
      if (r.name && *r.name != notification.name) continue;
      if (r.object != nullptr && r.object != notification.object.get()) continue;
      if (auto observer = r.observer.lock()) deliveries.push_back({std::move(observer), r.handler});
    }
  }
  for (const auto& delivery : deliveries) (*delivery.handler)(notification);
}

void NotificationCenter::postNotificationName(std::string name, std::shared_ptr<const void> object,
                                              Value userInfo) {
  postNotification(Notification{std::move(name), std::move(object), std::move(userInfo)});
}

}  // namespace zorva::platform
