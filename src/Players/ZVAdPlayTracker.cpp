#include "Players/ZVAdPlayTracker.h"

namespace zorva {

std::shared_ptr<ZVAdPlayTracker> ZVAdPlayTracker::create(std::uint64_t sessionTime) {
  return std::shared_ptr<ZVAdPlayTracker>(new ZVAdPlayTracker(sessionTime));
}

ZVAdPlayTracker::~ZVAdPlayTracker() {
  if (timer_) timer_->invalidate();
  timer_.reset();
  completionBlock_ = nullptr;
}

void ZVAdPlayTracker::trackCompletion(Completion completion) {
  completionBlock_ = std::move(completion);
  // The earlier timer, if any, is deliberately left running. The queue releases the action,
  // and with it this tracker, once the timer has fired or been invalidated.
  timer_ = platform::MainQueue::shared().scheduleTimer(
      platform::seconds(static_cast<double>(sessionTime_)),
      [self = shared_from_this()] { self->onCompletion(); });
}

void ZVAdPlayTracker::onCompletion() {
  if (completionBlock_) completionBlock_();
}

}  // namespace zorva
