#include <zorva/ZVBannerView.h>

#include "Banner/ZVBannerViewImpl.h"

namespace zorva {

ZVBannerView::ZVBannerView() : View(platform::Rect()) {}

std::shared_ptr<ZVBannerView> ZVBannerView::create(std::shared_ptr<ZVAdRequest> request,
                                                   ZVAdSize adSize) {
  std::shared_ptr<ZVBannerView> banner(new ZVBannerView());
  banner->impl_ = std::make_shared<Impl>(std::move(request), adSize);
  banner->impl_->owner_ = banner;
  return banner;
}

ZVBannerView::~ZVBannerView() { impl_->teardown(); }

void ZVBannerView::loadAd() { impl_->loadAd(); }

std::shared_ptr<ZVBannerViewDelegate> ZVBannerView::delegate() const { return impl_->delegate(); }

void ZVBannerView::setDelegate(std::weak_ptr<ZVBannerViewDelegate> delegate) {
  impl_->setDelegate(std::move(delegate));
}

std::shared_ptr<platform::ViewController> ZVBannerView::presentationViewController() const {
  return impl_->presentationViewController();
}

void ZVBannerView::setPresentationViewController(
    std::weak_ptr<platform::ViewController> controller) {
  impl_->setPresentationViewController(std::move(controller));
}

unsigned long ZVBannerView::refreshInterval() const { return impl_->refreshInterval(); }

void ZVBannerView::setRefreshInterval(unsigned long seconds) { impl_->setRefreshInterval(seconds); }

ZVAdSize ZVBannerView::adSize() const { return impl_->adSize(); }

const std::shared_ptr<ZVAdRequest>& ZVBannerView::request() const { return impl_->request(); }

long ZVBannerView::state() const { return impl_->state(); }

}  // namespace zorva
