#include "Interstitial/ZVInterstitialAdImpl.h"

#include <zorva/ZorvaSDK.h>

#include "Common/ZVLog.h"
#include "Common/ZVMissedCallback.h"
#include "Common/ZVRTBRequestBuilder.h"
#include "Common/ZVReleaseOnMainQueue.h"
#include "Common/ZVUtility.h"
#include "Players/ZVPlayerBuilder.h"
#include "Players/ZVPlayerConfig.h"

namespace zorva {

template <typename Call>
void ZVInterstitialAd::Impl::tellDelegate(Call&& call) {
  auto ad = owner_.lock();
  if (!ad) return;
  auto delegate = this->delegate();
  if (delegate) {
    call(*delegate, *ad);
  } else {
    std::lock_guard lock(mutex_);
    logIfDelegateGone(delegate_, "-[ZVInterstitialAd tellDelegate]");
  }
  releaseOnMainQueue(std::move(delegate));
  releaseOnMainQueue(std::move(ad));
}

std::shared_ptr<ZVInterstitialAdDelegate> ZVInterstitialAd::Impl::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void ZVInterstitialAd::Impl::setDelegate(std::weak_ptr<ZVInterstitialAdDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<ZVAdLoader> ZVInterstitialAd::Impl::adLoader() {
  std::lock_guard lock(mutex_);
  if (!adLoader_) adLoader_ = makeLoader(switchToVideo());
  return adLoader_;
}

std::shared_ptr<ZVAdLoader> ZVInterstitialAd::Impl::makeLoader(bool video) {
  auto config = std::make_shared<ZVAdLoaderConfig>();
  config->isVideo = video;
  auto loader = ZVAdLoader::create(config);
  auto builder = ZVRTBRequestBuilder::create(request_);
  builder->setIsVideo(video);
  builder->setIsInterstitial(true);
  loader->setRequestBuilder(builder);
  loader->setDelegate(weak_from_this());
  return loader;
}

std::shared_ptr<ZVAdPlaying> ZVInterstitialAd::Impl::player() const {
  std::lock_guard lock(mutex_);
  return player_;
}

std::shared_ptr<ZVModalViewController> ZVInterstitialAd::Impl::modalController() const {
  std::lock_guard lock(mutex_);
  return modalController_;
}

void ZVInterstitialAd::Impl::loadAd() {
  if (state_ != 0) {
    ZV_LOG(refusedLoadLogLevel(), "-[ZVInterstitialAd loadAd]", "%s", "Ad Not in loadable state");
    return;
  }
  boundLoad();
  // The state is set after the load has started, so a failure told
  // synchronously inside the load is overwritten by the 1.
  intarnalLoadAd();
  state_ = 1;
}

void ZVInterstitialAd::Impl::intarnalLoadAd() { adLoader()->load(); }

void ZVInterstitialAd::Impl::boundLoad() {
  auto settings = ZorvaSDK::shared();
  std::shared_ptr<ZVBoundedVideoLoad> bound;
  if (settings->videoLoadBounded() && switchToVideo()) {
    bound =
        ZVBoundedVideoLoad::start(weak_from_this(), weak_from_this(), settings->videoLoadTimeout(),
                                  [weakSelf = weak_from_this()](const Error& error) {
                                    if (auto self = weakSelf.lock()) self->loadTimedOut(error);
                                  });
  }
  boundedLoad_.replace(std::move(bound), *adLoader(), weak_from_this());
}

void ZVInterstitialAd::Impl::loadTimedOut(const Error& error) {
  std::shared_ptr<ZVAdLoader> old;
  {
    std::lock_guard lock(mutex_);
    old = std::exchange(adLoader_, makeLoader(adLoader_->config()->isVideo));
  }
  old.reset();
  didFailToReceivedAd(error);
}

void ZVInterstitialAd::Impl::showFromViewController(
    const std::shared_ptr<platform::ViewController>& presenter) {
  auto ad = owner_.lock();
  if (!ad) return;
  auto current = player();
  auto view = current ? current->playerView() : nullptr;
  const auto orientation = ZVUtility::currentOrientaion();
  auto controller =
      ZVModalViewController::create(view, platform::kInterfaceOrientationMaskAll, orientation);
  controller->setAllowRotation(true);
  // The close (its "X", or a host's Escape, which takes the same path) reaches the app only when
  // asked: by default the modal has no delegate.
  if (ZorvaSDK::shared()->interstitialCloseDismisses()) {
    controller->setDelegate(weak_from_this());
  }
  std::shared_ptr<ZVModalViewController> replaced;
  {
    std::lock_guard lock(mutex_);
    replaced = std::exchange(modalController_, controller);
  }
  // Without a presenter the controller is still kept; only the presentation does nothing.
  if (!presenter) return;
  // The completion keeps the interstitial until the presentation has ended.
  presenter->presentViewController(controller, false, [ad] {
    auto& self = of(*ad);
    auto delegate = self.delegate();
    if (delegate && delegate->interstitialWillPresentAd) {
      delegate->interstitialWillPresentAd(*ad);
      self.state_ = 3;
    }
  });
}

void ZVInterstitialAd::Impl::notifyError(const Error& error) {
  state_ = 0;
  ZV_LOG(1, "-[ZVInterstitialAd notifyError:]", "%s", error.localizedDescription().c_str());
  tellDelegate([&](ZVInterstitialAdDelegate& delegate, ZVInterstitialAd& ad) {
    if (delegate.interstitialDidFailToReceiveAdWithError) {
      delegate.interstitialDidFailToReceiveAdWithError(ad, error);
    }
  });
}

void ZVInterstitialAd::Impl::modalDidDissmiss() {
  tellDelegate([](ZVInterstitialAdDelegate& delegate, ZVInterstitialAd& ad) {
    if (delegate.interstitialDidDismissAd) delegate.interstitialDidDismissAd(ad);
  });
  state_ = 0;
}

void ZVInterstitialAd::Impl::didReceiveAd(std::shared_ptr<ZorvaAd> ad) {
  if (owner_.expired()) return;
  auto config = std::make_shared<ZVPlayerConfig>();
  config->ad = std::move(ad);
  config->isExpectingVideoAd = switchToVideo();
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
  // The player loads off screen; showFromViewController puts its view up.
  player->play();
}

void ZVInterstitialAd::Impl::didFailToReceivedAd(const Error& error) {
  // See the banner: keep the interstitial alive while a network-thread failure
  // is told, release it on the main thread, and tell nothing once it is gone.
  auto ad = owner_.lock();
  if (!ad) return;
  notifyError(error);
  releaseOnMainQueue(std::move(ad));
}

void ZVInterstitialAd::Impl::playerWillPresentModal() {
  tellDelegate([](ZVInterstitialAdDelegate& delegate, ZVInterstitialAd& ad) {
    if (delegate.interstitialDidClickAd) delegate.interstitialDidClickAd(ad);
  });
}

void ZVInterstitialAd::Impl::playerDidDismissModal() {}

void ZVInterstitialAd::Impl::playerDidLoad() {
  if (owner_.expired()) return;
  tellDelegate([](ZVInterstitialAdDelegate& delegate, ZVInterstitialAd& ad) {
    if (delegate.interstitialDidReceiveAd) delegate.interstitialDidReceiveAd(ad);
  });
  state_ = 2;
}

void ZVInterstitialAd::Impl::playerDidStartPlaying() {}

void ZVInterstitialAd::Impl::playerDidEndPlaying() {}

void ZVInterstitialAd::Impl::playerDidFailWithError(const Error& error) {
  didFailToReceivedAd(error);
}

void ZVInterstitialAd::Impl::teardown() {
  std::shared_ptr<ZVAdLoader> loader;
  std::shared_ptr<ZVAdPlaying> player;
  std::shared_ptr<ZVModalViewController> controller;
  {
    std::lock_guard lock(mutex_);
    loader = std::move(adLoader_);
    player = std::move(player_);
    controller = std::move(modalController_);
  }
  boundedLoad_.end();
  loader.reset();
}

}  // namespace zorva
