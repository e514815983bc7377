#include "zorva/platform/Player.h"

#include <algorithm>

#include "zorva/platform/MainQueue.h"

namespace zorva::platform {

class Player::TimeObserver {
 public:
  TimeObserver(Duration interval, TimeObserverBlock block)
      : interval(interval), block(std::move(block)) {}

  const Duration interval;
  const TimeObserverBlock block;
  std::shared_ptr<Timer> timer;
};

std::shared_ptr<Player> Player::create(std::shared_ptr<PlayerItem> item) {
  std::shared_ptr<Player> player(new Player(std::move(item)));
  if (player->item_) player->item_->player_ = player;
  return player;
}

Player::~Player() { stopTicking(); }

void Player::play() {
  if (rate_ != 0 || !item_) return;
  if (item_->didPlayToEnd() || item_->status() == PlayerItemStatus::Failed) return;
  rate_ = 1;
  item_->engine()->play();
  for (const auto& observer : timeObservers_) startTicking(observer);
  postTimeReport();
}

void Player::pause() {
  if (rate_ == 0) return;
  rate_ = 0;
  item_->engine()->pause();
  stopTicking();
  postTimeReport();
}

MediaTime Player::currentTime() const { return item_ ? item_->currentTime() : MediaTime::zero(); }

std::shared_ptr<Player::TimeObserver> Player::addPeriodicTimeObserverForInterval(
    const MediaTime& interval, TimeObserverBlock block) {
  auto observer = std::make_shared<TimeObserver>(interval.duration(), std::move(block));
  timeObservers_.push_back(observer);
  if (rate_ != 0) startTicking(observer);
  return observer;
}

void Player::removeTimeObserver(const std::shared_ptr<TimeObserver>& observer) {
  auto it = std::find(timeObservers_.begin(), timeObservers_.end(), observer);
  if (it == timeObservers_.end()) return;
  if ((*it)->timer) (*it)->timer->invalidate();
  timeObservers_.erase(it);
}

void Player::startTicking(const std::shared_ptr<TimeObserver>& observer) {
  if (observer->timer) observer->timer->invalidate();
  // The tick locks two weak references, reads the position and calls the block: no allocation.
  observer->timer = MainQueue::shared().scheduleRepeatingTimer(
      observer->interval,
      [weakSelf = weak_from_this(), weakObserver = std::weak_ptr<TimeObserver>(observer)] {
        auto self = weakSelf.lock();
        auto observer = weakObserver.lock();
        if (!self || !observer) return;
        observer->block(self->currentTime());
      });
}

void Player::stopTicking() {
  for (const auto& observer : timeObservers_) {
    if (observer->timer) observer->timer->invalidate();
    observer->timer.reset();
  }
}

void Player::postTimeReport() {
  MainQueue::shared().post([weakSelf = weak_from_this()] {
    if (auto self = weakSelf.lock()) self->reportTime();
  });
}

void Player::reportTime() {
  const MediaTime time = currentTime();
  // A block may add or remove observers.
  const auto observers = timeObservers_;
  for (const auto& observer : observers) observer->block(time);
}

void Player::itemDidStop() {
  if (rate_ == 0) return;
  rate_ = 0;
  stopTicking();
  reportTime();
}

}  // namespace zorva::platform
