#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

#include <zorva/platform/MainQueue.h>

#include "Common/ZVAdLoaderDelegate.h"
#include "Players/ZVAdPlayerDelegate.h"

namespace zorva {

class ZVAdLoader;

/// One video load of an ad object, bounded in time (`ZorvaSDK::videoLoadBounded`). The ad object
/// makes one for each load and holds it; that load's loader and player report to it (holding it
/// weakly, as their delegate), and it passes their reports on to the ad object, held weakly too.
///
/// The load ends once, at the first of: the player loaded, a failure, the time-out. The time-out
/// is a main-queue timer that holds this weakly; when the load has neither loaded nor failed by
/// then, it calls `timedOut` with `ZVUtility::videoLoadTimeoutError` on the main thread. After a
/// time-out or a failure nothing more is passed on: a wrapper fetch that answers late or a media
/// that becomes ready late reaches no one, least of all a later load of the same object, which
/// reports through a bounded load of its own. A loaded load goes on passing on the player's
/// reports (end, clicks, a failure while playing) until it ends.
///
/// Threads: failures may arrive on a network thread; everything else, and the time-out, on the
/// main thread.
class ZVBoundedVideoLoad final : public ZVAdLoaderDelegate, public ZVAdPlayerDelegate {
 public:
  using TimedOut = std::function<void(const Error&)>;

  /// Starts the clock of a load whose loader and player report to the ad object given as both
  /// targets; it ends after `seconds` at the latest.
  static std::shared_ptr<ZVBoundedVideoLoad> start(std::weak_ptr<ZVAdLoaderDelegate> loaderTarget,
                                                   std::weak_ptr<ZVAdPlayerDelegate> playerTarget,
                                                   double seconds, TimedOut timedOut);
  ~ZVBoundedVideoLoad() override;
  ZVBoundedVideoLoad(const ZVBoundedVideoLoad&) = delete;
  ZVBoundedVideoLoad& operator=(const ZVBoundedVideoLoad&) = delete;

  /// Ends the load without a word: the ad object is going, or starting another load.
  void end();

  void didReceiveAd(std::shared_ptr<ZorvaAd> ad) override;
  void didFailToReceivedAd(const Error& error) override;

  void playerWillPresentModal() override;
  void playerDidDismissModal() override;
  void playerDidLoad() override;
  void playerDidStartPlaying() override;
  void playerDidEndPlaying() override;
  void playerDidFailWithError(const Error& error) override;
  bool respondsToPlayerWillPresentModal() const override;
  bool respondsToPlayerDidDismissModal() const override;

 private:
  enum Phase : int { kLoading, kLoaded, kEnded };

  ZVBoundedVideoLoad(std::weak_ptr<ZVAdLoaderDelegate> loaderTarget,
                     std::weak_ptr<ZVAdPlayerDelegate> playerTarget, double seconds,
                     TimedOut timedOut)
      : loaderTarget_(std::move(loaderTarget)),
        playerTarget_(std::move(playerTarget)),
        seconds_(seconds),
        timedOut_(std::move(timedOut)) {}
  /// The ad object, while this load has not ended.
  std::shared_ptr<ZVAdPlayerDelegate> live() const;
  /// Ends the load with a failure; true for the one caller that ends it, as the timer and a
  /// failure on a network thread may race.
  bool fail();

  std::atomic<int> phase_{kLoading};
  const std::weak_ptr<ZVAdLoaderDelegate> loaderTarget_;
  const std::weak_ptr<ZVAdPlayerDelegate> playerTarget_;
  const double seconds_;
  const TimedOut timedOut_;
  // Set once, by `start`, before anything else can reach this.
  std::shared_ptr<platform::Timer> timer_;
};

/// The bounded load an ad object is in, if any, behind a lock of its own: the ad object replaces
/// it at each load and ends it when going; the players it makes ask it whom to report to.
class ZVBoundedVideoLoadSlot {
 public:
  /// Ends the load held, holds `next` (null for a load that is not bounded) and points `loader`
  /// at whichever now hears its reports: `next`, or `owner` again after a bounded load.
  void replace(std::shared_ptr<ZVBoundedVideoLoad> next, ZVAdLoader& loader,
               const std::weak_ptr<ZVAdLoaderDelegate>& owner);
  /// Where a player made for the current load reports: its bounded load, else `owner`.
  std::weak_ptr<ZVAdPlayerDelegate> playerDelegate(std::weak_ptr<ZVAdPlayerDelegate> owner) const;
  /// Ends the load held, if any: the ad object is going.
  void end();

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<ZVBoundedVideoLoad> load_;
};

}  // namespace zorva
