#include "zorva/platform/HeadlessMediaEngine.h"

#include <algorithm>
#include <atomic>

#include "zorva/platform/PlayerItem.h"

namespace zorva::platform {

namespace {
std::atomic<bool> automaticDefault{true};
std::atomic<double> automaticMediaDuration{15.0};
constexpr std::int32_t kNanosecondTimescale = 1'000'000'000;
}  // namespace

std::shared_ptr<HeadlessMediaEngine> HeadlessMediaEngine::create(
    std::weak_ptr<MediaEngineClient> client) {
  return std::shared_ptr<HeadlessMediaEngine>(new HeadlessMediaEngine(std::move(client)));
}

HeadlessMediaEngine::HeadlessMediaEngine(std::weak_ptr<MediaEngineClient> client)
    : client_(std::move(client)), automatic_(automaticByDefault()) {}

HeadlessMediaEngine::~HeadlessMediaEngine() { cancelEnd(); }

void HeadlessMediaEngine::setAutomaticByDefault(bool automatic) { automaticDefault = automatic; }
bool HeadlessMediaEngine::automaticByDefault() { return automaticDefault; }
void HeadlessMediaEngine::setAutomaticDuration(double seconds) { automaticMediaDuration = seconds; }
double HeadlessMediaEngine::automaticDuration() { return automaticMediaDuration; }

std::shared_ptr<HeadlessMediaEngine> HeadlessMediaEngine::of(const PlayerItem& item) {
  return std::dynamic_pointer_cast<HeadlessMediaEngine>(item.engine());
}

void HeadlessMediaEngine::load(const URL& url) {
  url_ = url;
  if (!automatic_) return;
  MainQueue::shared().post([weakSelf = weak_from_this()] {
    auto self = weakSelf.lock();
    if (!self || self->failed_) return;
    self->setDuration(automaticDuration());
    self->becomeReady();
    self->setLoadedTimeRanges({TimeRange{MediaTime::zero(), self->duration_}});
  });
}

void HeadlessMediaEngine::play() {
  if (playing_ || failed_) return;
  setPosition(position());
  playing_ = true;
  scheduleEnd();
}

void HeadlessMediaEngine::pause() {
  if (!playing_) return;
  setPosition(position());
  playing_ = false;
  cancelEnd();
}

MediaTime HeadlessMediaEngine::currentTime() const { return MediaTime::fromDuration(position()); }

Duration HeadlessMediaEngine::position() const {
  if (!(automatic_ && playing_ && ready_)) return anchor_;
  Duration p = anchor_ + (MainQueue::shared().now() - anchorTime_);
  if (duration_.isNumeric()) p = std::min(p, duration_.duration());
  return p;
}

void HeadlessMediaEngine::setPosition(Duration p) {
  p = std::max(p, Duration::zero());
  if (duration_.isNumeric()) p = std::min(p, duration_.duration());
  anchor_ = p;
  anchorTime_ = MainQueue::shared().now();
}

void HeadlessMediaEngine::scheduleEnd() {
  cancelEnd();
  if (!(automatic_ && playing_ && ready_ && duration_.isNumeric())) return;
  endTimer_ = MainQueue::shared().scheduleTimer(duration_.duration() - position(),
                                                [weakSelf = weak_from_this()] {
                                                  if (auto self = weakSelf.lock()) self->reachEnd();
                                                });
}

void HeadlessMediaEngine::cancelEnd() {
  if (endTimer_) endTimer_->invalidate();
  endTimer_.reset();
}

void HeadlessMediaEngine::setDuration(double seconds) {
  setPosition(position());
  duration_ = MediaTime::makeWithSeconds(seconds, kNanosecondTimescale);
  if (auto c = client()) c->mediaEngineDidLoadDuration(duration_);
  scheduleEnd();
}

void HeadlessMediaEngine::becomeReady() {
  if (ready_) return;
  setPosition(position());
  ready_ = true;
  if (auto c = client()) c->mediaEngineDidBecomeReady();
  scheduleEnd();
}

void HeadlessMediaEngine::setLoadedTimeRanges(std::vector<TimeRange> ranges) {
  if (auto c = client()) c->mediaEngineDidLoadTimeRanges(ranges);
}

void HeadlessMediaEngine::setCurrentTime(double seconds) {
  setPosition(platform::seconds(seconds));
  scheduleEnd();
}

void HeadlessMediaEngine::advancePlayTime(double seconds) {
  setPosition(position() + platform::seconds(seconds));
  scheduleEnd();
}

void HeadlessMediaEngine::fail(const Error& error) {
  if (failed_) return;
  setPosition(position());
  failed_ = true;
  playing_ = false;
  cancelEnd();
  if (auto c = client()) c->mediaEngineDidFail(error);
}

void HeadlessMediaEngine::stall() {
  if (auto c = client()) c->mediaEngineDidStall();
}

void HeadlessMediaEngine::reachEnd() {
  cancelEnd();
  if (duration_.isNumeric()) {
    setPosition(duration_.duration());
  } else {
    setPosition(position());
  }
  playing_ = false;
  if (auto c = client()) c->mediaEngineDidPlayToEnd();
}

}  // namespace zorva::platform
