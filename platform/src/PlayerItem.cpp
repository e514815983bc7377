#include "zorva/platform/PlayerItem.h"

#include <algorithm>

#include "zorva/platform/NotificationCenter.h"
#include "zorva/platform/Player.h"

namespace zorva::platform {

std::shared_ptr<PlayerItem> PlayerItem::create(const URL& url) {
  std::shared_ptr<PlayerItem> item(new PlayerItem(url));
  // The engine reports to the item through its private client side.
  std::shared_ptr<MediaEngineClient> client(item, static_cast<MediaEngineClient*>(item.get()));
  item->engine_ = MediaEngine::make(client);
  item->engine_->load(url);
  return item;
}

void PlayerItem::addObserver(std::weak_ptr<KeyValueObserver> observer, std::string keyPath) {
  auto locked = observer.lock();
  if (!locked) return;
  observations_.push_back(Observation{locked.get(), std::move(observer), std::move(keyPath)});
}

void PlayerItem::removeObserver(const KeyValueObserver* observer, std::string_view keyPath) {
  auto it = std::find_if(observations_.begin(), observations_.end(), [&](const Observation& o) {
    return o.key == observer && o.keyPath == keyPath;
  });
  if (it != observations_.end()) observations_.erase(it);
}

void PlayerItem::didChangeValueForKey(const std::string& keyPath) {
  auto self = shared_from_this();
  // Observers may add or remove observations while they are told.
  std::vector<std::shared_ptr<KeyValueObserver>> toTell;
  for (const auto& o : observations_) {
    if (o.keyPath != keyPath) continue;
    if (auto observer = o.observer.lock()) toTell.push_back(std::move(observer));
  }
  for (const auto& observer : toTell) observer->observeValueForKeyPath(keyPath, self);
}

void PlayerItem::mediaEngineDidLoadDuration(const MediaTime& duration) {
  asset_->duration_ = duration;
}

void PlayerItem::mediaEngineDidBecomeReady() {
  if (status_ != PlayerItemStatus::Unknown) return;
  status_ = PlayerItemStatus::ReadyToPlay;
  didChangeValueForKey(kStatusKeyPath);
}

void PlayerItem::mediaEngineDidLoadTimeRanges(const std::vector<TimeRange>& ranges) {
  loadedTimeRanges_ = ranges;
  didChangeValueForKey(kLoadedTimeRangesKeyPath);
}

void PlayerItem::mediaEngineDidPlayToEnd() {
  auto self = shared_from_this();
  didPlayToEnd_ = true;
  if (auto player = player_.lock()) player->itemDidStop();
  NotificationCenter::defaultCenter().postNotificationName(kPlayerItemDidPlayToEndTimeNotification,
                                                           self);
}

void PlayerItem::mediaEngineDidStall() {
  NotificationCenter::defaultCenter().postNotificationName(kPlayerItemPlaybackStalledNotification,
                                                           shared_from_this());
}

void PlayerItem::mediaEngineDidFail(const Error& error) {
  if (status_ == PlayerItemStatus::Failed) return;
  auto self = shared_from_this();
  status_ = PlayerItemStatus::Failed;
  error_ = error;
  if (auto player = player_.lock()) player->itemDidStop();
  didChangeValueForKey(kStatusKeyPath);
}

}  // namespace zorva::platform
