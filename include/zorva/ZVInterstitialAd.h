#pragma once

#include <functional>
#include <memory>

#include <zorva/ZVAdRequest.h>
#include <zorva/ZVTypes.h>
#include <zorva/ZorvaExport.h>
#include <zorva/platform/ViewController.h>

namespace zorva {

class ZVInterstitialAd;

/// What an interstitial tells the app. Every slot is optional: an empty slot is not called. The
/// interstitial holds the delegate weakly.
///
/// Order and threads:
///  1. `interstitialDidReceiveAd` when the ad is loaded, off screen (main thread); or
///     `interstitialDidFailToReceiveAdWithError` (see below).
///  2. `interstitialWillPresentAd` once `showFromViewController` has put the ad on screen (main,
///     on a later turn than the call).
///  3. `interstitialDidClickAd` when a tap is about to open the store or a browser (main).
/// Failures arrive on the main thread, except transport failures and request-building failures,
/// which are delivered on the SDK's network thread, deliberately: hop to your main thread before
/// touching UI there. After a failure the interstitial is loadable again.
///
/// Closing the ad with its "X" button is not reported, and the interstitial stays shown (it
/// refuses further loads): make a new interstitial for the next ad.
/// Nothing is delivered after the interstitial has been released.
struct ZORVA_EXPORT ZVInterstitialAdDelegate {
  std::function<void(ZVInterstitialAd& ad)> interstitialDidReceiveAd;
  std::function<void(ZVInterstitialAd& ad, const Error& error)>
      interstitialDidFailToReceiveAdWithError;
  /// Setting it also moves the interstitial to state 3 (shown) when it is presented; without it
  /// the state stays 2.
  std::function<void(ZVInterstitialAd& ad)> interstitialWillPresentAd;
  std::function<void(ZVInterstitialAd& ad)> interstitialDidClickAd;
  /// The one callback the system always sends (the delegate is expected to implement it); an
  /// empty slot is skipped.
  std::function<void(ZVInterstitialAd& ad)> interstitialDidDismissAd;
};

/// A full-screen ad: load it, wait for `interstitialDidReceiveAd`, then show it. Create, use and
/// release it on the main thread.
class ZORVA_EXPORT ZVInterstitialAd : public std::enable_shared_from_this<ZVInterstitialAd> {
 public:
  /// `request` must carry `publisherId` and `adunitId`.
  static std::shared_ptr<ZVInterstitialAd> create(std::shared_ptr<ZVAdRequest> request);
  ~ZVInterstitialAd();
  ZVInterstitialAd(const ZVInterstitialAd&) = delete;
  ZVInterstitialAd& operator=(const ZVInterstitialAd&) = delete;

  /// Starts a load when idle (state 0); otherwise logs "Ad Not in loadable state" and does
  /// nothing.
  void loadAd();
  /// Presents the ad full screen from `presenter`, in every orientation. Not checked against the
  /// state: before a load it presents an empty (white) screen.
  void showFromViewController(const std::shared_ptr<platform::ViewController>& presenter);

  /// Asks for a video ad. Read when the first load starts (later changes do not change the
  /// request) and at every received ad.
  bool switchToVideo() const;
  void setSwitchToVideo(bool value);
  std::shared_ptr<ZVInterstitialAdDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZVInterstitialAdDelegate> delegate);
  const std::shared_ptr<ZVAdRequest>& request() const;
  /// 0 idle, 1 loading, 2 loaded, 3 shown.
  long state() const;
  /// The modal controller of the last show (readable for apps and tests).
  std::shared_ptr<platform::ViewController> modalController() const;

  /// The SDK's side of the interstitial.
  class Impl;

 private:
  friend class Impl;
  ZVInterstitialAd();

  std::shared_ptr<Impl> impl_;
};

}  // namespace zorva
