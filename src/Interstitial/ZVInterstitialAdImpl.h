#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include <zorva/ZVInterstitialAd.h>

#include "Common/ZVAdLoader.h"
#include "Common/ZVAdLoaderDelegate.h"
#include "Common/ZVBoundedVideoLoad.h"
#include "Interstitial/ZVModalViewController.h"
#include "Players/ZVAdPlayerDelegate.h"
#include "Players/ZVAdPlaying.h"

namespace zorva {

/// The interstitial's loading and presenting logic: the loader's and the player's delegate, and
/// the owner of the modal controller it shows the ad in. It reaches the interstitial weakly and
/// does nothing once it is gone.
///
/// Threads: main, except `didFailToReceivedAd` with a transport or request-building error, which
/// the loader delivers on its network or builder thread; that path touches only the atomic state
/// and the delegate, keeps the interstitial alive while it runs and lets it go on the main thread.
class ZORVA_HIDDEN ZVInterstitialAd::Impl
    : public ZVAdLoaderDelegate,
      public ZVAdPlayerDelegate,
      public ZVModalViewControllerDelegate,
      public std::enable_shared_from_this<ZVInterstitialAd::Impl> {
 public:
  explicit Impl(std::shared_ptr<ZVAdRequest> request) : request_(std::move(request)) {}

  static Impl& of(const ZVInterstitialAd& ad) { return *ad.impl_; }

  bool switchToVideo() const { return switchToVideo_; }
  void setSwitchToVideo(bool value) { switchToVideo_ = value; }
  std::shared_ptr<ZVInterstitialAdDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZVInterstitialAdDelegate> delegate);
  const std::shared_ptr<ZVAdRequest>& request() const { return request_; }
  long state() const { return state_; }

  /// Made on first use, asking for an interstitial, video when `switchToVideo` is set then.
  std::shared_ptr<ZVAdLoader> adLoader();
  std::shared_ptr<ZVAdPlaying> player() const;
  std::shared_ptr<ZVModalViewController> modalController() const;

  void loadAd();
  void intarnalLoadAd();
  void showFromViewController(const std::shared_ptr<platform::ViewController>& presenter);
  void notifyError(const Error& error);
  /// Not reached by the close button: the interstitial never makes itself the modal
  /// controller's delegate.
  void modalDidDissmiss() override;

  void didReceiveAd(std::shared_ptr<ZorvaAd> ad) override;
  void didFailToReceivedAd(const Error& error) override;

  void playerWillPresentModal() override;
  void playerDidDismissModal() override;
  void playerDidLoad() override;
  void playerDidStartPlaying() override;
  void playerDidEndPlaying() override;
  void playerDidFailWithError(const Error& error) override;
  bool respondsToPlayerWillPresentModal() const override { return true; }
  bool respondsToPlayerDidDismissModal() const override { return true; }

 private:
  friend class ZVInterstitialAd;

  /// Releases the loader first, then the player and the modal controller. Main thread, from the
  /// interstitial's destructor.
  void teardown();
  template <typename Call>
  void tellDelegate(Call&& call);
  /// A loader asking for an interstitial, video or not, reporting here.
  std::shared_ptr<ZVAdLoader> makeLoader(bool video);
  /// With `ZorvaSDK::videoLoadBounded` and `switchToVideo`, puts a new bounded load between this
  /// and the loader (and later the player) of the load starting now; otherwise they report here,
  /// as always.
  void boundLoad();
  /// Fails the bounded load that timed out. The loader is replaced by one asking for the same, as
  /// the old one's answer may still come.
  void loadTimedOut(const Error& error);

  std::weak_ptr<ZVInterstitialAd> owner_;
  const std::shared_ptr<ZVAdRequest> request_;
  std::atomic<bool> switchToVideo_{false};
  std::atomic<long> state_{0};

  mutable std::mutex mutex_;
  std::weak_ptr<ZVInterstitialAdDelegate> delegate_;
  std::shared_ptr<ZVAdLoader> adLoader_;
  std::shared_ptr<ZVAdPlaying> player_;
  std::shared_ptr<ZVModalViewController> modalController_;
  ZVBoundedVideoLoadSlot boundedLoad_;
};

}  // namespace zorva
