#include "Players/ZVDisplayAdPlayer.h"

#include <zorva/platform/MainQueue.h>

#include "Common/ZVUtility.h"

namespace zorva {

using platform::NavigationType;

namespace {

/// The SDK's error code for a creative that cannot be rendered.
constexpr std::int64_t kRenderErrorCode = 2;

}  // namespace

std::shared_ptr<ZVDisplayAdPlayer> ZVDisplayAdPlayer::create(const ZVPlayerConfig& config) {
  auto player = std::shared_ptr<ZVDisplayAdPlayer>(new ZVDisplayAdPlayer(config.ad));
  player->linkResolver_ = ZVLinkResolver::create();
  player->linkResolver_->setDelegate(std::weak_ptr<ZVLinkResolverDelegate>(player));

  std::string creative;
  ZVAdSize size;
  if (const auto& ad = player->ad_) {
    size = ad->size;
    if (ad->creative.is_string()) {
      creative = ad->creative.get<std::string>();
    } else if (!ad->creative.is_null()) {
      player->creativeError_ = ZVUtility::errorWithCode(
          kRenderErrorCode, "The creative is neither markup nor a web address");
    }
  }
  player->htmlPlayer_ =
      ZVHTMLPlayer::create(platform::Rect(0, 0, size.width, size.height), std::move(creative));
  player->htmlPlayer_->setDelegate(std::weak_ptr<ZVHTMLPlayerDelegate>(player));
  return player;
}

ZVDisplayAdPlayer::~ZVDisplayAdPlayer() {
  if (adPlayTracker_ && adPlayTracker_->timer()) adPlayTracker_->timer()->invalidate();
}

void ZVDisplayAdPlayer::play() {
  if (!creativeError_) {
    htmlPlayer_->play();
    return;
  }
  // Reported on a later turn, as a page failure would be, so the caller is not re-entered.
  platform::MainQueue::shared().post([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    if (auto delegate = self->delegate()) delegate->playerDidFailWithError(*self->creativeError_);
  });
}

std::shared_ptr<platform::View> ZVDisplayAdPlayer::playerView() {
  return htmlPlayer_->contenView();
}

void ZVDisplayAdPlayer::htmlPlayerDidPlayAd() {
  if (adPlayTracker_) {
    adPlayTracker_->trackCompletion([weak = weak_from_this()] {
      auto self = weak.lock();
      if (!self) return;
      if (auto delegate = self->delegate()) delegate->playerDidEndPlaying();
    });
  }
  if (auto delegate = this->delegate()) delegate->playerDidLoad();
}

void ZVDisplayAdPlayer::htmlPlayerDidFailToPlayWithError(const Error& error) {
  if (auto delegate = this->delegate()) delegate->playerDidFailWithError(error);
}

bool ZVDisplayAdPlayer::htmlPlayerShouldLoadRequest(const platform::URLRequest& request,
                                                    NavigationType navigationType) {
  const bool click = navigationType == NavigationType::LinkActivated ||
                     (navigationType == NavigationType::Other && htmlPlayer_->loadingFinished());
  if (!click) return true;
  // A request whose address did not parse has nowhere to go; it is still not followed.
  if (request.url) linkResolver_->resolve(*request.url, ad_ ? ad_->skadn : Value());
  return false;
}

void ZVDisplayAdPlayer::resolverWillPresentModal(ZVLinkResolver&) {
  auto delegate = this->delegate();
  if (delegate && delegate->respondsToPlayerWillPresentModal()) delegate->playerWillPresentModal();
}

void ZVDisplayAdPlayer::resolverDidDismissModal(ZVLinkResolver&) {
  auto delegate = this->delegate();
  if (delegate && delegate->respondsToPlayerDidDismissModal()) delegate->playerDidDismissModal();
}

}  // namespace zorva
