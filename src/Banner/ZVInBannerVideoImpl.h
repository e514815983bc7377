#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include <zorva/ZVInBannerVideo.h>

#include "Common/ZVAdLoader.h"
#include "Common/ZVAdLoaderDelegate.h"
#include "Common/ZVBoundedVideoLoad.h"
#include "Players/ZVAdPlayerDelegate.h"
#include "Players/ZVAdPlaying.h"

namespace zorva {

/// The in-banner video's loading and playing logic, apart from its public view;
/// the loader's and the player's delegate. Built like the banner's (see
/// `ZVBannerView::Impl`) without refresh: it reaches its view weakly, and the
/// failure path that may run on a network thread touches only the atomic state
/// and the delegate, keeping the view alive while it runs and letting it go on
/// the main thread.
class ZORVA_HIDDEN ZVInBannerVideo::Impl
    : public ZVAdLoaderDelegate,
      public ZVAdPlayerDelegate,
      public std::enable_shared_from_this<ZVInBannerVideo::Impl> {
 public:
  Impl(std::shared_ptr<ZVAdRequest> request, ZVAdSize adSize)
      : request_(std::move(request)), adSize_(adSize) {}

  static Impl& of(const ZVInBannerVideo& video) { return *video.impl_; }

  std::shared_ptr<ZVInBannerVideoDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZVInBannerVideoDelegate> delegate);
  std::shared_ptr<platform::ViewController> presentationViewController() const;
  void setPresentationViewController(std::weak_ptr<platform::ViewController> controller);
  ZVAdSize adSize() const { return adSize_; }
  const std::shared_ptr<ZVAdRequest>& request() const { return request_; }
  long state() const { return state_; }

  /// Made on first use. The loader is configured as for display while its
  /// builder asks for a video impression: only the builder's flag shapes the
  /// request.
  std::shared_ptr<ZVAdLoader> adLoader();
  std::shared_ptr<ZVAdPlaying> player() const;

  void loadAd();
  void intarnalLoadAd();
  void playAd();
  void notifyError(const Error& error);

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
  friend class ZVInBannerVideo;

  /// Releases the loader first, then the player. Main thread, from the view's
  /// destructor.
  void teardown();
  template <typename Call>
  void tellDelegate(Call&& call);
  /// With `ZorvaSDK::videoLoadBounded`, puts a new bounded load between this and the loader
  /// (and later the player) of the load starting now; otherwise they report here, as always.
  void boundLoad();
  /// Fails the bounded load that timed out; the next load asks a new loader, as the old one's
  /// answer may still come.
  void loadTimedOut(const Error& error);

  std::weak_ptr<ZVInBannerVideo> owner_;
  const std::shared_ptr<ZVAdRequest> request_;
  const ZVAdSize adSize_;
  std::atomic<long> state_{0};

  mutable std::mutex mutex_;
  std::weak_ptr<ZVInBannerVideoDelegate> delegate_;
  std::weak_ptr<platform::ViewController> presentationViewController_;
  std::shared_ptr<ZVAdLoader> adLoader_;
  std::shared_ptr<ZVAdPlaying> player_;
  ZVBoundedVideoLoadSlot boundedLoad_;
};

}  // namespace zorva
