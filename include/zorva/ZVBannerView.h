#pragma once

#include <functional>
#include <memory>

#include <zorva/ZVAdRequest.h>
#include <zorva/ZVTypes.h>
#include <zorva/ZorvaExport.h>
#include <zorva/platform/View.h>
#include <zorva/platform/ViewController.h>

namespace zorva {

class ZVBannerView;

/// What a banner tells the app. Every slot is optional: an empty slot is not called. The banner
/// holds the delegate weakly; keep it alive as long as you want to hear from the banner.
///
/// Order and threads of one load:
///  1. `bannerViewDidReceiveAd` once the ad's view is in the banner (main thread); or
///     `bannerViewDidFailToReceiveAdWithError` (see below).
///  2. `bannerViewWillPresentModal` / `bannerViewDidDismissModal` around a click-through (main).
///  3. With a refresh interval, each ad's session ends after that many seconds and the next load
///     starts at once; a failure is retried after the interval.
/// Failures arrive on the main thread, except transport failures (no connection, time-out) and
/// request-building failures, which are delivered on the SDK's network thread, deliberately:
/// hop to your main thread before touching UI in that callback. The retry after such a failure
/// is still timed on the main queue and does fire.
///
/// Nothing is delivered after the banner has been released, including a failure that was on
/// its way on the network thread.
struct ZORVA_EXPORT ZVBannerViewDelegate {
  std::function<void(ZVBannerView& banner)> bannerViewDidReceiveAd;
  std::function<void(ZVBannerView& banner, const Error& error)>
      bannerViewDidFailToReceiveAdWithError;
  std::function<void(ZVBannerView& banner)> bannerViewWillPresentModal;
  std::function<void(ZVBannerView& banner)> bannerViewDidDismissModal;
};

/// A banner ad: a view the app places in its layout, then asks to `loadAd`. Each new ad's view
/// is stacked on top of the previous ones. Create, use and release it on the main thread.
class ZORVA_EXPORT ZVBannerView : public platform::View {
 public:
  /// `request` must carry `publisherId` and `adunitId`; `adSize` is the slot size asked for.
  /// The banner starts with a zero frame: give it a frame or constraints.
  static std::shared_ptr<ZVBannerView> create(std::shared_ptr<ZVAdRequest> request,
                                              ZVAdSize adSize);
  ~ZVBannerView() override;

  /// Starts a load when the banner is idle (state 0); otherwise logs "Ad Not in loadable state"
  /// and does nothing.
  void loadAd();

  std::shared_ptr<ZVBannerViewDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZVBannerViewDelegate> delegate);
  /// Kept for the app; the banner does not read it.
  std::shared_ptr<platform::ViewController> presentationViewController() const;
  void setPresentationViewController(std::weak_ptr<platform::ViewController> controller);
  /// Seconds each ad stays before the next is loaded, and the retry delay after a failure;
  /// 0 (the default) means no refresh. Read afresh at every ad and every failure.
  unsigned long refreshInterval() const;
  void setRefreshInterval(unsigned long seconds);

  ZVAdSize adSize() const;
  const std::shared_ptr<ZVAdRequest>& request() const;
  /// 0 idle, 1 loading, 2 playing, 3 finished playing. With a refresh interval a failure leaves
  /// the state as it was, so `loadAd` is refused while the retry is pending.
  long state() const;

  /// The SDK's side of the banner.
  class Impl;

 private:
  friend class Impl;
  ZVBannerView();

  std::shared_ptr<Impl> impl_;
};

}  // namespace zorva
