#include "Common/ZVBoundedVideoLoad.h"

#include "Common/ZVAdLoader.h"
#include "Common/ZVUtility.h"

namespace zorva {

std::shared_ptr<ZVBoundedVideoLoad> ZVBoundedVideoLoad::start(
    std::weak_ptr<ZVAdLoaderDelegate> loaderTarget, std::weak_ptr<ZVAdPlayerDelegate> playerTarget,
    double seconds, TimedOut timedOut) {
  std::shared_ptr<ZVBoundedVideoLoad> load(new ZVBoundedVideoLoad(
      std::move(loaderTarget), std::move(playerTarget), seconds, std::move(timedOut)));
  // The timer holds the load weakly: a load its ad object let go of never times out.
  load->timer_ = platform::MainQueue::shared().scheduleTimer(
      platform::seconds(seconds), [weakLoad = std::weak_ptr<ZVBoundedVideoLoad>(load)] {
        auto self = weakLoad.lock();
        int loading = kLoading;
        if (self && self->phase_.compare_exchange_strong(loading, kEnded)) {
          self->timedOut_(ZVUtility::videoLoadTimeoutError(self->seconds_));
        }
      });
  return load;
}

ZVBoundedVideoLoad::~ZVBoundedVideoLoad() { timer_->invalidate(); }

void ZVBoundedVideoLoad::end() {
  phase_ = kEnded;
  timer_->invalidate();
}

bool ZVBoundedVideoLoad::fail() {
  if (phase_.exchange(kEnded) == kEnded) return false;
  timer_->invalidate();
  return true;
}

std::shared_ptr<ZVAdPlayerDelegate> ZVBoundedVideoLoad::live() const {
  return phase_ == kEnded ? nullptr : playerTarget_.lock();
}

void ZVBoundedVideoLoad::didReceiveAd(std::shared_ptr<ZorvaAd> ad) {
  if (phase_ != kLoading) return;
  if (auto target = loaderTarget_.lock()) target->didReceiveAd(std::move(ad));
}

void ZVBoundedVideoLoad::didFailToReceivedAd(const Error& error) {
  if (!fail()) return;
  if (auto target = loaderTarget_.lock()) target->didFailToReceivedAd(error);
}

void ZVBoundedVideoLoad::playerDidLoad() {
  // The first load report ends the wait; a later one (the player parsed again) is passed on.
  int expected = kLoading;
  if (phase_.compare_exchange_strong(expected, kLoaded)) {
    timer_->invalidate();
  } else if (expected == kEnded) {
    return;
  }
  if (auto target = playerTarget_.lock()) target->playerDidLoad();
}

void ZVBoundedVideoLoad::playerDidFailWithError(const Error& error) {
  // While loading or while the ad plays.
  if (!fail()) return;
  if (auto target = playerTarget_.lock()) target->playerDidFailWithError(error);
}

void ZVBoundedVideoLoad::playerWillPresentModal() {
  if (auto target = live()) target->playerWillPresentModal();
}

void ZVBoundedVideoLoad::playerDidDismissModal() {
  if (auto target = live()) target->playerDidDismissModal();
}

void ZVBoundedVideoLoad::playerDidStartPlaying() {
  if (auto target = live()) target->playerDidStartPlaying();
}

void ZVBoundedVideoLoad::playerDidEndPlaying() {
  if (auto target = live()) target->playerDidEndPlaying();
}

bool ZVBoundedVideoLoad::respondsToPlayerWillPresentModal() const {
  auto target = playerTarget_.lock();
  return target && target->respondsToPlayerWillPresentModal();
}

bool ZVBoundedVideoLoad::respondsToPlayerDidDismissModal() const {
  auto target = playerTarget_.lock();
  return target && target->respondsToPlayerDidDismissModal();
}

void ZVBoundedVideoLoadSlot::replace(std::shared_ptr<ZVBoundedVideoLoad> next, ZVAdLoader& loader,
                                     const std::weak_ptr<ZVAdLoaderDelegate>& owner) {
  std::shared_ptr<ZVBoundedVideoLoad> previous;
  {
    std::lock_guard lock(mutex_);
    previous = std::exchange(load_, next);
  }
  if (previous) previous->end();
  if (next) {
    loader.setDelegate(next);
  } else if (previous) {
    loader.setDelegate(owner);
  }
}

std::weak_ptr<ZVAdPlayerDelegate> ZVBoundedVideoLoadSlot::playerDelegate(
    std::weak_ptr<ZVAdPlayerDelegate> owner) const {
  std::lock_guard lock(mutex_);
  if (load_) return load_;
  return owner;
}

void ZVBoundedVideoLoadSlot::end() {
  std::shared_ptr<ZVBoundedVideoLoad> load;
  {
    std::lock_guard lock(mutex_);
    load = std::move(load_);
  }
  if (load) load->end();
}

}  // namespace zorva
