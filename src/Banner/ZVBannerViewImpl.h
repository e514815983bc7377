#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include <zorva/ZVBannerView.h>

#include "Common/ZVAdLoader.h"
#include "Common/ZVAdLoaderDelegate.h"
#include "Players/ZVAdPlayTracker.h"
#include "Players/ZVAdPlayerDelegate.h"
#include "Players/ZVAdPlaying.h"

namespace zorva {

/// The banner's loading, playing and refresh logic, apart from its public view.
/// It is the loader's and the player's delegate, so it lives in a `shared_ptr`
/// of its own that the banner owns; it reaches the banner through a weak
/// reference and does nothing once the banner is gone.
///
/// Threads: everything runs on the main thread except `didFailToReceivedAd`
/// with a transport or request-building error, which the loader delivers on its
/// network or builder thread. That path
/// (`notifyError`) touches only the atomic state and refresh interval, the
/// delegate and the retry tracker under `mutex_`, and schedules the retry on
/// the main queue, whose timers may be scheduled from any thread; it keeps the
/// banner alive while it runs and lets it go on the main thread.
class ZORVA_HIDDEN ZVBannerView::Impl : public ZVAdLoaderDelegate,
                                        public ZVAdPlayerDelegate,
                                        public std::enable_shared_from_this<ZVBannerView::Impl> {
 public:
  Impl(std::shared_ptr<ZVAdRequest> request, ZVAdSize adSize)
      : request_(std::move(request)), adSize_(adSize) {}

  static Impl& of(const ZVBannerView& banner) { return *banner.impl_; }

  std::shared_ptr<ZVBannerViewDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZVBannerViewDelegate> delegate);
  std::shared_ptr<platform::ViewController> presentationViewController() const;
  void setPresentationViewController(std::weak_ptr<platform::ViewController> controller);
  unsigned long refreshInterval() const { return refreshInterval_; }
  void setRefreshInterval(unsigned long seconds) { refreshInterval_ = seconds; }
  ZVAdSize adSize() const { return adSize_; }
  const std::shared_ptr<ZVAdRequest>& request() const { return request_; }
  long state() const { return state_; }

  /// Made on first use: a display loader whose builder asks for a banner of
  /// `adSize`.
  std::shared_ptr<ZVAdLoader> adLoader();
  std::shared_ptr<ZVAdPlaying> player() const;
  /// The timer of the retry after a failure.
  std::shared_ptr<ZVAdPlayTracker> adPlayTracker() const;

  void loadAd();
  /// Loads without looking at the state (the refresh and the retry come here).
  void intarnalLoadAd();
  void scheduleRefreshIfApplicable();
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
  friend class ZVBannerView;

  /// Releases the loader first, then the player and the retry timer. Main
  /// thread, from the banner's destructor.
  void teardown();
  /// Calls `call(delegate, banner)` when both are still there.
  template <typename Call>
  void tellDelegate(Call&& call);

  std::weak_ptr<ZVBannerView> owner_;
  const std::shared_ptr<ZVAdRequest> request_;
  const ZVAdSize adSize_;
  std::atomic<long> state_{0};
  std::atomic<unsigned long> refreshInterval_{0};

  mutable std::mutex mutex_;
  std::weak_ptr<ZVBannerViewDelegate> delegate_;
  std::weak_ptr<platform::ViewController> presentationViewController_;
  std::shared_ptr<ZVAdLoader> adLoader_;
  std::shared_ptr<ZVAdPlaying> player_;
  std::shared_ptr<ZVAdPlayTracker> adPlayTracker_;
  // The view of the ad on show, taken down when a refreshed one replaces it (if asked).
  std::weak_ptr<platform::View> shownView_;
};

}  // namespace zorva
