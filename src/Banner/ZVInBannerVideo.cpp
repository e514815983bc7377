#include <zorva/ZVInBannerVideo.h>

#include "Banner/ZVInBannerVideoImpl.h"

namespace zorva {

ZVInBannerVideo::ZVInBannerVideo() : View(platform::Rect()) {}

std::shared_ptr<ZVInBannerVideo> ZVInBannerVideo::create(std::shared_ptr<ZVAdRequest> request,
                                                         ZVAdSize adSize) {
  std::shared_ptr<ZVInBannerVideo> video(new ZVInBannerVideo());
  video->impl_ = std::make_shared<Impl>(std::move(request), adSize);
  video->impl_->owner_ = video;
  return video;
}

ZVInBannerVideo::~ZVInBannerVideo() { impl_->teardown(); }

void ZVInBannerVideo::loadAd() { impl_->loadAd(); }

void ZVInBannerVideo::playAd() { impl_->playAd(); }

std::shared_ptr<ZVInBannerVideoDelegate> ZVInBannerVideo::delegate() const {
  return impl_->delegate();
}

void ZVInBannerVideo::setDelegate(std::weak_ptr<ZVInBannerVideoDelegate> delegate) {
  impl_->setDelegate(std::move(delegate));
}

std::shared_ptr<platform::ViewController> ZVInBannerVideo::presentationViewController() const {
  return impl_->presentationViewController();
}

void ZVInBannerVideo::setPresentationViewController(
    std::weak_ptr<platform::ViewController> controller) {
  impl_->setPresentationViewController(std::move(controller));
}

ZVAdSize ZVInBannerVideo::adSize() const { return impl_->adSize(); }

const std::shared_ptr<ZVAdRequest>& ZVInBannerVideo::request() const { return impl_->request(); }

long ZVInBannerVideo::state() const { return impl_->state(); }

}  // namespace zorva
