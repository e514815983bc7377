#include "Vast/ZVVastLinearAdPlayer.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/NotificationCenter.h>

#include "Vast/ZVVastError.h"
#include "Vast/ZVVastLinear.h"

namespace zorva {

namespace {
// The asset's duration in seconds; 0 without an item (an item always has an asset).
double assetSeconds(const std::shared_ptr<platform::PlayerItem>& item) {
  return item ? item->asset()->duration().seconds() : 0.0;
}
}  // namespace

std::shared_ptr<ZVVastLinearAdPlayer> ZVVastLinearAdPlayer::create(const platform::Rect& frame) {
  std::shared_ptr<ZVVastLinearAdPlayer> player(new ZVVastLinearAdPlayer(frame));
  player->setTranslatesAutoresizingMaskIntoConstraints(false);
  player->setUpProgressView();
  return player;
}

void ZVVastLinearAdPlayer::setUpProgressView() {
  progressView_ = platform::ProgressView::create(platform::ProgressViewStyle::Default);
  progressView_->setProgressTintColor(
      platform::Color::colorWithRed(245.0 / 255.0, 214.0 / 255.0, 107.0 / 255.0, 1.0));
  progressView_->setTrackTintColor(
      platform::Color::colorWithRed(40.0 / 255.0, 46.0 / 255.0, 99.0 / 255.0, 1.0));
  addSubview(progressView_);
}

void ZVVastLinearAdPlayer::layoutSubviews() {
  View::layoutSubviews();
  const platform::Rect bounds = this->bounds();
  if (playerLayer_) playerLayer_->setFrame(bounds);
  // The bar hangs 2 points below the bottom edge; only its upper half shows.
  progressView_->setFrame(platform::Rect(0, bounds.size.height - 2, bounds.size.width, 4));
}

void ZVVastLinearAdPlayer::load(std::shared_ptr<ZVVastAd> ad) {
  ad_ = std::move(ad);
  const std::vector<std::string> mimes{kPlayableMime};
  const auto creative = ad_ ? ad_->adCreative() : nullptr;
  if (!creative || !creative->itemExistsForMime(mimes)) {
    if (auto d = delegate()) d->playerDidFailedWithError(ZVVastError::vastErrorForErrorCode(403));
    return;
  }
  const auto linear = std::dynamic_pointer_cast<ZVVastLinear>(creative);
  const auto url = linear ? linear->creativeURLForMimes(mimes) : std::nullopt;
  if (!url) return;
  // The media is loaded once: a later ad changes `ad` only.
  if (player_) return;

  playerItem_ = platform::PlayerItem::create(*url);
  player_ = platform::Player::create(playerItem_);
  playerLayer_ = platform::PlayerLayer::create(player_);
  playerLayer_->setVideoGravity(platform::LayerVideoGravity::ResizeAspect);
  // Lowest, so the progress bar stays above the video.
  layer()->insertSublayer(playerLayer_, 0);
  if (platform::Device::currentDevice().systemVersionAtLeast("10.0")) {
    player_->setAutomaticallyWaitsToMinimizeStalling(true);
  }

  auto me = self();
  playerItem_->addObserver(me, platform::PlayerItem::kStatusKeyPath);
  playerItem_->addObserver(me, platform::PlayerItem::kLoadedTimeRangesKeyPath);

  auto& center = platform::NotificationCenter::defaultCenter();
  std::weak_ptr<ZVVastLinearAdPlayer> weakSelf = me;
  auto reachEnd = [weakSelf](const platform::Notification& n) {
    if (auto s = weakSelf.lock()) s->playerItemDidReachEnd(n);
  };
  auto failToPlay = [weakSelf](const platform::Notification& n) {
    if (auto s = weakSelf.lock()) s->playerItemDidFailToPlay(n);
  };
  center.addObserver(me, reachEnd, platform::kPlayerItemDidPlayToEndTimeNotification,
                     playerItem_.get());
  center.addObserver(me, failToPlay, platform::kPlayerItemPlaybackStalledNotification,
                     playerItem_.get());
  // Registered under the name of a user-info key, which no notification carries: it never fires,
  // so a failure to play to the end reaches this player only through the status observation.
  center.addObserver(me, failToPlay, platform::kPlayerItemFailedToPlayToEndTimeErrorKey,
                     playerItem_.get());
}

void ZVVastLinearAdPlayer::play() {
  if (player_) player_->play();
}

void ZVVastLinearAdPlayer::didMoveToWindow() {
  View::didMoveToWindow();
  if (player_) player_->play();
}

void ZVVastLinearAdPlayer::touchesEnded() {
  const auto creative = ad_ ? ad_->adCreative() : nullptr;
  std::optional<std::string> clickThrough;
  if (creative && creative->clickThrough()) clickThrough.emplace(*creative->clickThrough());
  if (auto d = delegate()) d->playerDidIteractedWithTargetUrl(clickThrough);
}

double ZVVastLinearAdPlayer::mediaDuration() { return assetSeconds(playerItem_); }

void ZVVastLinearAdPlayer::observeValueForKeyPath(const std::string& keyPath,
                                                  const std::shared_ptr<platform::PlayerItem>&) {
  if (!player_) return;
  const auto& item = player_->currentItem();
  if (keyPath == platform::PlayerItem::kStatusKeyPath &&
      item->status() == platform::PlayerItemStatus::Failed) {
    if (auto d = delegate()) d->playerDidFailedWithError(ZVVastError::vastErrorForErrorCode(405));
  }
  if (keyPath == platform::PlayerItem::kLoadedTimeRangesKeyPath) {
    const auto& ranges = item->loadedTimeRanges();
    if (ranges.empty()) return;
    // Single precision throughout, so that 15.0 of 30 s is not past half and 0 of 0 (NaN) is not,
    // while anything over a zero duration (infinity) is.
    const float buffered = static_cast<float>(ranges.front().start.seconds()) +
                           static_cast<float>(ranges.front().duration.seconds());
    const float total = static_cast<float>(assetSeconds(item));
    if (buffered * 100.0f / total > 50.0f) {
      notifyFinishLoad();
      item->removeObserver(this, platform::PlayerItem::kLoadedTimeRangesKeyPath);
    }
  }
}

void ZVVastLinearAdPlayer::notifyFinishLoad() {
  if (auto d = delegate()) d->playerDidLoad();
  reportsStart_ = ZorvaSDK::shared()->trackingTransport();
  std::weak_ptr<ZVVastLinearAdPlayer> weakSelf = self();
  timeBoundryObserver_ = player_->addPeriodicTimeObserverForInterval(
      platform::MediaTime::make(1, 400), [weakSelf](const platform::MediaTime& time) {
        if (auto s = weakSelf.lock()) s->progressTick(time);
      });
}

// Runs every 2.5 ms of play: two time conversions, a status read, one report and a bar update,
// and no allocation.
void ZVVastLinearAdPlayer::progressTick(const platform::MediaTime& time) {
  const double current = time.seconds();
  const double duration = assetSeconds(player_->currentItem());
  if (player_->currentItem()->status() != platform::PlayerItemStatus::ReadyToPlay) return;
  if (reportsStart_ && !playbackStarted_) {
    playbackStarted_ = true;
    if (auto d = delegate()) d->playerDidStartPlaying();
  }
  if (auto d = delegate()) d->playerDidProgress(current);
  progressView_->setProgress(static_cast<float>(current / duration));
}

void ZVVastLinearAdPlayer::playerItemDidReachEnd(const platform::Notification&) {
  if (auto d = delegate()) d->playerDidEndPlaying();
}

void ZVVastLinearAdPlayer::playerItemDidFailToPlay(const platform::Notification&) {
  if (auto d = delegate()) d->playerDidFailedWithError(ZVVastError::vastErrorForErrorCode(405));
}

}  // namespace zorva
