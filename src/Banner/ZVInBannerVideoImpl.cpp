#include "Banner/ZVInBannerVideoImpl.h"

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
void ZVInBannerVideo::Impl::tellDelegate(Call&& call) {
  auto video = owner_.lock();
  if (!video) return;
  auto delegate = this->delegate();
  if (delegate) {
    call(*delegate, *video);
  } else {
    std::lock_guard lock(mutex_);
    logIfDelegateGone(delegate_, "-[ZVInBannerVideo tellDelegate]");
  }
  releaseOnMainQueue(std::move(delegate));
  releaseOnMainQueue(std::move(video));
}

std::shared_ptr<ZVInBannerVideoDelegate> ZVInBannerVideo::Impl::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void ZVInBannerVideo::Impl::setDelegate(std::weak_ptr<ZVInBannerVideoDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<platform::ViewController> ZVInBannerVideo::Impl::presentationViewController()
    const {
  std::lock_guard lock(mutex_);
  return presentationViewController_.lock();
}

void ZVInBannerVideo::Impl::setPresentationViewController(
    std::weak_ptr<platform::ViewController> controller) {
  std::lock_guard lock(mutex_);
  presentationViewController_ = std::move(controller);
}

std::shared_ptr<ZVAdLoader> ZVInBannerVideo::Impl::adLoader() {
  std::lock_guard lock(mutex_);
  if (!adLoader_) {
    auto config = std::make_shared<ZVAdLoaderConfig>();
    config->isVideo = false;
    adLoader_ = ZVAdLoader::create(config);
    auto builder = ZVRTBRequestBuilder::create(request_);
    builder->setIsInterstitial(false);
    builder->setIsVideo(true);
    builder->setRequestedAdSize(adSize_);
    adLoader_->setRequestBuilder(builder);
    adLoader_->setDelegate(weak_from_this());
  }
  return adLoader_;
}

std::shared_ptr<ZVAdPlaying> ZVInBannerVideo::Impl::player() const {
  std::lock_guard lock(mutex_);
  return player_;
}

void ZVInBannerVideo::Impl::loadAd() {
  long idle = 0;
  if (state_.compare_exchange_strong(idle, 1)) {
    boundLoad();
    intarnalLoadAd();
    return;
  }
  ZV_LOG(refusedLoadLogLevel(), "-[ZVInBannerVideo loadAd]", "%s", "Ad Not in loadable state");
}

void ZVInBannerVideo::Impl::intarnalLoadAd() { adLoader()->load(); }

void ZVInBannerVideo::Impl::boundLoad() {
  auto settings = ZorvaSDK::shared();
  std::shared_ptr<ZVBoundedVideoLoad> bound;
  if (settings->videoLoadBounded()) {
    bound =
        ZVBoundedVideoLoad::start(weak_from_this(), weak_from_this(), settings->videoLoadTimeout(),
                                  [weakSelf = weak_from_this()](const Error& error) {
                                    if (auto self = weakSelf.lock()) self->loadTimedOut(error);
                                  });
  }
  boundedLoad_.replace(std::move(bound), *adLoader(), weak_from_this());
}

void ZVInBannerVideo::Impl::loadTimedOut(const Error& error) {
  std::shared_ptr<ZVAdLoader> loader;
  {
    std::lock_guard lock(mutex_);
    loader = std::move(adLoader_);
  }
  loader.reset();
  didFailToReceivedAd(error);
}

void ZVInBannerVideo::Impl::playAd() {
  auto video = owner_.lock();
  auto current = player();
  if (!video || !current) return;
  auto view = current->playerView();
  if (!view) return;
  view->setTranslatesAutoresizingMaskIntoConstraints(false);
  video->addSubview(view);
  ZVViewUtils::alignToParent(view);
}

void ZVInBannerVideo::Impl::notifyError(const Error& error) {
  state_ = 0;
  ZV_LOG(1, "-[ZVInBannerVideo notifyError:]", "%s", error.localizedDescription().c_str());
  tellDelegate([&](ZVInBannerVideoDelegate& delegate, ZVInBannerVideo& video) {
    if (delegate.bannerViewDidFailToReceiveAdWithError) {
      delegate.bannerViewDidFailToReceiveAdWithError(video, error);
    }
  });
}

void ZVInBannerVideo::Impl::didReceiveAd(std::shared_ptr<ZorvaAd> ad) {
  if (owner_.expired()) return;
  auto config = std::make_shared<ZVPlayerConfig>();
  config->requestedAdSize = adSize_;
  config->ad = std::move(ad);
  config->isExpectingVideoAd = true;
  auto builder = ZVPlayerBuilder::create();
  builder->setConfig(config);
  const auto delegate = boundedLoad_.playerDelegate(weak_from_this());
  auto player = builder->build(delegate);
  std::shared_ptr<ZVAdPlaying> replaced;
  {
    std::lock_guard lock(mutex_);
    replaced = std::exchange(player_, player);
  }
  player->setDelegate(delegate);
  player->play();
}

void ZVInBannerVideo::Impl::didFailToReceivedAd(const Error& error) {
  // See the banner: keep the view alive while a network-thread failure is told,
  // release it on the main thread, and tell nothing once it is gone.
  auto video = owner_.lock();
  if (!video) return;
  notifyError(error);
  releaseOnMainQueue(std::move(video));
}

void ZVInBannerVideo::Impl::playerWillPresentModal() {
  tellDelegate([](ZVInBannerVideoDelegate& delegate, ZVInBannerVideo& video) {
    if (delegate.bannerViewWillPresentModal) delegate.bannerViewWillPresentModal(video);
  });
}

void ZVInBannerVideo::Impl::playerDidDismissModal() {
  tellDelegate([](ZVInBannerVideoDelegate& delegate, ZVInBannerVideo& video) {
    if (delegate.bannerViewDidDismissModal) delegate.bannerViewDidDismissModal(video);
  });
}

void ZVInBannerVideo::Impl::playerDidLoad() {
  // The view is shown only by playAd.
  tellDelegate([](ZVInBannerVideoDelegate& delegate, ZVInBannerVideo& video) {
    if (delegate.bannerViewDidReceiveAd) delegate.bannerViewDidReceiveAd(video);
  });
}

void ZVInBannerVideo::Impl::playerDidStartPlaying() { state_ = 2; }

void ZVInBannerVideo::Impl::playerDidEndPlaying() {
  state_ = 3;
  tellDelegate([](ZVInBannerVideoDelegate& delegate, ZVInBannerVideo& video) {
    if (delegate.bannerViewDidFinishPlayingAd) delegate.bannerViewDidFinishPlayingAd(video);
  });
}

void ZVInBannerVideo::Impl::playerDidFailWithError(const Error& error) {
  didFailToReceivedAd(error);
}

void ZVInBannerVideo::Impl::teardown() {
  std::shared_ptr<ZVAdLoader> loader;
  std::shared_ptr<ZVAdPlaying> player;
  {
    std::lock_guard lock(mutex_);
    loader = std::move(adLoader_);
    player = std::move(player_);
  }
  boundedLoad_.end();
  loader.reset();
}

}  // namespace zorva
