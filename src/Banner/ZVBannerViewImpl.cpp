#include "Banner/ZVBannerViewImpl.h"

#include <zorva/ZorvaSDK.h>

#include "Common/ZVLog.h"
#include "Common/ZVMissedCallback.h"
#include "Common/ZVRTBRequestBuilder.h"
#include "Common/ZVReleaseOnMainQueue.h"
#include "Common/ZVViewUtils.h"
#include "Players/ZVPlayerBuilder.h"
#include "Players/ZVPlayerConfig.h"

namespace zorva {

template <typename Call>
void ZVBannerView::Impl::tellDelegate(Call&& call) {
  auto banner = owner_.lock();
  if (!banner) return;
  auto delegate = this->delegate();
  if (delegate) {
    call(*delegate, *banner);
  } else {
    std::lock_guard lock(mutex_);
    logIfDelegateGone(delegate_, "-[ZVBannerView tellDelegate]");
  }
  releaseOnMainQueue(std::move(delegate));
  releaseOnMainQueue(std::move(banner));
}

std::shared_ptr<ZVBannerViewDelegate> ZVBannerView::Impl::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void ZVBannerView::Impl::setDelegate(std::weak_ptr<ZVBannerViewDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<platform::ViewController> ZVBannerView::Impl::presentationViewController() const {
  std::lock_guard lock(mutex_);
  return presentationViewController_.lock();
}

void ZVBannerView::Impl::setPresentationViewController(
    std::weak_ptr<platform::ViewController> controller) {
  std::lock_guard lock(mutex_);
  presentationViewController_ = std::move(controller);
}

std::shared_ptr<ZVAdLoader> ZVBannerView::Impl::adLoader() {
  std::lock_guard lock(mutex_);
  if (!adLoader_) {
    auto config = std::make_shared<ZVAdLoaderConfig>();
    config->isVideo = false;
    adLoader_ = ZVAdLoader::create(config);
    auto builder = ZVRTBRequestBuilder::create(request_);
    builder->setIsInterstitial(false);
    builder->setIsVideo(false);
    builder->setRequestedAdSize(adSize_);
    adLoader_->setRequestBuilder(builder);
    adLoader_->setDelegate(weak_from_this());
  }
  return adLoader_;
}

std::shared_ptr<ZVAdPlaying> ZVBannerView::Impl::player() const {
  std::lock_guard lock(mutex_);
  return player_;
}

std::shared_ptr<ZVAdPlayTracker> ZVBannerView::Impl::adPlayTracker() const {
  std::lock_guard lock(mutex_);
  return adPlayTracker_;
}

void ZVBannerView::Impl::loadAd() {
  long idle = 0;
  if (state_.compare_exchange_strong(idle, 1)) {
    intarnalLoadAd();
    return;
  }
  ZV_LOG(refusedLoadLogLevel(), "-[ZVBannerView loadAd]", "%s", "Ad Not in loadable state");
}

void ZVBannerView::Impl::intarnalLoadAd() { adLoader()->load(); }

void ZVBannerView::Impl::scheduleRefreshIfApplicable() {
  const unsigned long interval = refreshInterval();
  if (interval == 0) return;
  auto tracker = ZVAdPlayTracker::create();
  tracker->setSessionTime(interval);
  std::weak_ptr<ZVBannerView> weakBanner = owner_;
  tracker->trackCompletion([weakBanner] {
    if (auto banner = weakBanner.lock()) of(*banner).intarnalLoadAd();
  });
  std::shared_ptr<ZVAdPlayTracker> replaced;
  {
    std::lock_guard lock(mutex_);
    replaced = std::exchange(adPlayTracker_, std::move(tracker));
  }
  // Let go of outside the lock. Its timer, if still pending, keeps it and still retries.
}

void ZVBannerView::Impl::notifyError(const Error& error) {
  scheduleRefreshIfApplicable();
  if (refreshInterval() == 0) state_ = 0;
  ZV_LOG(1, "-[ZVBannerView notifyError:]", "%s", error.localizedDescription().c_str());
  tellDelegate([&](ZVBannerViewDelegate& delegate, ZVBannerView& banner) {
    if (delegate.bannerViewDidFailToReceiveAdWithError) {
      delegate.bannerViewDidFailToReceiveAdWithError(banner, error);
    }
  });
}

void ZVBannerView::Impl::didReceiveAd(std::shared_ptr<ZorvaAd> ad) {
  if (owner_.expired()) return;
  auto config = std::make_shared<ZVPlayerConfig>();
  config->requestedAdSize = adSize_;
  config->ad = std::move(ad);
  config->isExpectingVideoAd = false;
  config->sessionTime = refreshInterval();
  auto builder = ZVPlayerBuilder::create();
  builder->setConfig(config);
  auto player = builder->build(shared_from_this());
  std::shared_ptr<ZVAdPlaying> replaced;
  {
    std::lock_guard lock(mutex_);
    replaced = std::exchange(player_, player);
  }
  player->setDelegate(weak_from_this());
  player->play();
}

void ZVBannerView::Impl::didFailToReceivedAd(const Error& error) {
  // On a network thread this keeps the banner alive until the failure has been
  // told, and releases it on the main thread; once the banner is gone nothing
  // is told or retried.
  auto banner = owner_.lock();
  if (!banner) return;
  notifyError(error);
  releaseOnMainQueue(std::move(banner));
}

void ZVBannerView::Impl::playerWillPresentModal() {
  tellDelegate([](ZVBannerViewDelegate& delegate, ZVBannerView& banner) {
    if (delegate.bannerViewWillPresentModal) delegate.bannerViewWillPresentModal(banner);
  });
}

void ZVBannerView::Impl::playerDidDismissModal() {
  tellDelegate([](ZVBannerViewDelegate& delegate, ZVBannerView& banner) {
    if (delegate.bannerViewDidDismissModal) delegate.bannerViewDidDismissModal(banner);
  });
}

void ZVBannerView::Impl::playerDidLoad() {
  auto banner = owner_.lock();
  auto current = player();
  if (!banner || !current) return;
  // A refreshed ad's view goes on top of the earlier ones, which stay where
  // they are unless the app asked for them to go.
  auto view = current->playerView();
  banner->addSubview(view);
  ZVViewUtils::alignToParent(view);
  std::shared_ptr<platform::View> earlier;
  {
    std::lock_guard lock(mutex_);
    earlier = std::exchange(shownView_, view).lock();
  }
  if (earlier && earlier != view && ZorvaSDK::shared()->bannerRemovesEarlierAds()) {
    earlier->removeFromSuperview();
  }
  tellDelegate([](ZVBannerViewDelegate& delegate, ZVBannerView& banner) {
    if (delegate.bannerViewDidReceiveAd) delegate.bannerViewDidReceiveAd(banner);
  });
}

void ZVBannerView::Impl::playerDidStartPlaying() { state_ = 2; }

void ZVBannerView::Impl::playerDidEndPlaying() {
  state_ = 3;
  // The session time given to the player was the refresh interval: the next ad
  // loads now.
  if (refreshInterval() != 0 && !owner_.expired()) intarnalLoadAd();
}

void ZVBannerView::Impl::playerDidFailWithError(const Error& error) { didFailToReceivedAd(error); }

void ZVBannerView::Impl::teardown() {
  std::shared_ptr<ZVAdLoader> loader;
  std::shared_ptr<ZVAdPlaying> player;
  std::shared_ptr<ZVAdPlayTracker> tracker;
  {
    std::lock_guard lock(mutex_);
    loader = std::move(adLoader_);
    player = std::move(player_);
    tracker = std::move(adPlayTracker_);
  }
  loader.reset();
}

}  // namespace zorva
