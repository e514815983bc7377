#pragma once

#include <functional>
#include <memory>

#include <zorva/ZVAdRequest.h>
#include <zorva/ZVTypes.h>
#include <zorva/ZorvaExport.h>
#include <zorva/platform/View.h>
#include <zorva/platform/ViewController.h>

namespace zorva {

class ZVInBannerVideo;

/// What an in-banner video tells the app. Every slot is optional: an empty slot is not called.
/// The video holds the delegate weakly.
///
/// Order and threads of one ad:
///  1. `bannerViewDidReceiveAd` when the video is ready (main thread). Nothing is on screen yet:
///     call `playAd` to show it.
///  2. `bannerViewWillPresentModal` / `bannerViewDidDismissModal` around a click-through (main).
///  3. `bannerViewDidFinishPlayingAd` when the video has played to its end (main). The object
///     then refuses further loads; make a new one for the next ad.
/// `bannerViewDidFailToReceiveAdWithError` may come instead of 1 or after it; the object is
/// loadable again and nothing is retried. It arrives on the main thread, except transport
/// failures and request-building failures, which are delivered on the SDK's network thread,
/// deliberately: hop to your main thread before touching UI there.
///
/// Nothing is delivered after the object has been released.
struct ZORVA_EXPORT ZVInBannerVideoDelegate {
  std::function<void(ZVInBannerVideo& video)> bannerViewDidReceiveAd;
  std::function<void(ZVInBannerVideo& video, const Error& error)>
      bannerViewDidFailToReceiveAdWithError;
  std::function<void(ZVInBannerVideo& video)> bannerViewWillPresentModal;
  std::function<void(ZVInBannerVideo& video)> bannerViewDidDismissModal;
  std::function<void(ZVInBannerVideo& video)> bannerViewDidFinishPlayingAd;
};

/// A video ad in a banner-sized slot. Create, use and release it on the main thread.
class ZORVA_EXPORT ZVInBannerVideo : public platform::View {
 public:
  /// `request` must carry `publisherId` and `adunitId`; `adSize` is the slot size asked for.
  static std::shared_ptr<ZVInBannerVideo> create(std::shared_ptr<ZVAdRequest> request,
                                                 ZVAdSize adSize);
  ~ZVInBannerVideo() override;

  /// Starts a load when idle (state 0); otherwise logs "Ad Not in loadable state" and does
  /// nothing.
  void loadAd();
  /// Shows the loaded video in the view (typically after `bannerViewDidReceiveAd`).
  void playAd();

  std::shared_ptr<ZVInBannerVideoDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZVInBannerVideoDelegate> delegate);
  /// Kept for the app; the video does not read it.
  std::shared_ptr<platform::ViewController> presentationViewController() const;
  void setPresentationViewController(std::weak_ptr<platform::ViewController> controller);

  ZVAdSize adSize() const;
  const std::shared_ptr<ZVAdRequest>& request() const;
  /// 0 idle, 1 loading, 2 playing, 3 finished playing.
  long state() const;

  /// The SDK's side of the video.
  class Impl;

 private:
  friend class Impl;
  ZVInBannerVideo();

  std::shared_ptr<Impl> impl_;
};

}  // namespace zorva
