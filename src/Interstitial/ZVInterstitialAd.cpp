#include <zorva/ZVInterstitialAd.h>

#include "Interstitial/ZVInterstitialAdImpl.h"

namespace zorva {

ZVInterstitialAd::ZVInterstitialAd() = default;

std::shared_ptr<ZVInterstitialAd> ZVInterstitialAd::create(std::shared_ptr<ZVAdRequest> request) {
  std::shared_ptr<ZVInterstitialAd> ad(new ZVInterstitialAd());
  ad->impl_ = std::make_shared<Impl>(std::move(request));
  ad->impl_->owner_ = ad;
  return ad;
}

ZVInterstitialAd::~ZVInterstitialAd() { impl_->teardown(); }

void ZVInterstitialAd::loadAd() { impl_->loadAd(); }

void ZVInterstitialAd::showFromViewController(
    const std::shared_ptr<platform::ViewController>& presenter) {
  impl_->showFromViewController(presenter);
}

bool ZVInterstitialAd::switchToVideo() const { return impl_->switchToVideo(); }

void ZVInterstitialAd::setSwitchToVideo(bool value) { impl_->setSwitchToVideo(value); }

std::shared_ptr<ZVInterstitialAdDelegate> ZVInterstitialAd::delegate() const {
  return impl_->delegate();
}

void ZVInterstitialAd::setDelegate(std::weak_ptr<ZVInterstitialAdDelegate> delegate) {
  impl_->setDelegate(std::move(delegate));
}

const std::shared_ptr<ZVAdRequest>& ZVInterstitialAd::request() const { return impl_->request(); }

long ZVInterstitialAd::state() const { return impl_->state(); }

std::shared_ptr<platform::ViewController> ZVInterstitialAd::modalController() const {
  return impl_->modalController();
}

}  // namespace zorva
