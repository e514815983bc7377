#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <zorva/platform/View.h>

#include "Common/ZVLinkResolver.h"
#include "Common/ZVLinkResolverDelegate.h"
#include "Common/ZorvaAd.h"
#include "Players/ZVAdPlaying.h"
#include "Players/ZVPlayerConfig.h"
#include "Players/ZVVastAdplayerDelegate.h"
#include "Players/ZVVastAdplaying.h"
#include "Vast/ZVVast.h"

namespace zorva {

class ZVNetworkHandler;

/// A progress event not yet fired: when it is due, its name, and its tracking URLs.
struct ZVTrackingPoint {
  /// Media time, in seconds.
  double time = 0;
  std::string event;
  std::vector<std::string> trackers;
};

/// The player of a VAST ad, and the view its owner shows. `play` has the ad's markup parsed
/// (wrappers followed), picks the first ad with a creative, and loads it in a linear (video) or
/// non-linear (HTML) creative player; then it does the ad's tracking: progress events at 0, ¼,
/// ½, ¾ and all of the duration, one per progress report; "complete" again at the end; the
/// impression on a start report (which no creative player sends); error URLs with the error's
/// code. Every list of URLs is handed to the shared network handler's tracking hand-over.
/// Clicks go to the link resolver with the bid's SKAdNetwork data.
///
/// Reports to its delegate on the main thread, except a parse failure, which is passed on from
/// the thread the parser reported it on (the caller's for malformed XML or an unsupported
/// version, the network thread for a failed wrapper chain); the references it took there to
/// itself and its delegate are let go of on the main queue. The creative player's media starts
/// when its view enters a window: this player adds it as a subview on load.
class ZVVastPlayer : public platform::View,
                     public ZVAdPlaying,
                     public ZVVastAdplayerDelegate,
                     public ZVLinkResolverDelegate {
 public:
  static std::shared_ptr<ZVVastPlayer> create(const ZVPlayerConfig& config);

  // ZVAdPlaying
  /// Parses the ad's markup and, on success, loads the first ad with a creative.
  void play() override;
  std::shared_ptr<platform::View> playerView() override { return shared_from_this(); }
  std::shared_ptr<ZVAdPlayerDelegate> delegate() const override { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<ZVAdPlayerDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }

  // ZVVastAdplayerDelegate
  void playerDidLoad() override;
  void playerDidStartPlaying() override;
  void playerDidEndPlaying() override;
  void playerDidIteractedWithTargetUrl(const std::optional<std::string>& url) override;
  /// Fires the first pending point if it is due. With none pending, each report still logs and
  /// hands over an empty list.
  void playerDidProgress(double seconds) override;
  void playerDidFailedWithError(const Error& error) override;

  // ZVLinkResolverDelegate
  void resolverWillPresentModal(ZVLinkResolver& resolver) override;
  void resolverDidDismissModal(ZVLinkResolver& resolver) override;

  /// Hands over `ad`'s error URLs (of the whole chain) with `error`'s code in place of the macro.
  void trackErrors(const Error& error, const std::shared_ptr<ZVVastAd>& ad);
  /// The first ad of `vast` that has a creative, or null.
  static std::shared_ptr<ZVVastAd> firstInlineAd(const ZVVast& vast);
  /// A linear player for a Linear creative, else a non-linear one, given the bid's skadn.
  std::shared_ptr<ZVVastAdplaying> vastAdPlayer(const std::shared_ptr<ZVVastAd>& ad);
  /// Rebuilds the five tracking points from the creative player's duration.
  void addEventPointsForAd(const std::shared_ptr<ZVVastAd>& ad);

  const std::shared_ptr<ZorvaAd>& ad() const { return ad_; }
  const std::shared_ptr<ZVVastAdplaying>& vastAdPlayer() const { return vastAdPlayer_; }
  const std::shared_ptr<ZVLinkResolver>& linkResolver() const { return linkResolver_; }
  const std::vector<ZVTrackingPoint>& trackingPoints() const { return trackingPoints_; }

 private:
  explicit ZVVastPlayer(std::shared_ptr<ZorvaAd> ad) : View(platform::Rect()), ad_(std::move(ad)) {}
  std::shared_ptr<ZVVastPlayer> self() {
    return std::static_pointer_cast<ZVVastPlayer>(shared_from_this());
  }
  void parsed(const std::shared_ptr<ZVVast>& vast, const std::optional<Error>& error);
  /// Gives `urls` to the network handler's tracking hand-over, with a completion that looks at
  /// nothing.
  void handOver(const std::vector<std::string>& urls);

  std::weak_ptr<ZVAdPlayerDelegate> delegate_;
  std::shared_ptr<ZorvaAd> ad_;
  std::shared_ptr<ZVVastAdplaying> vastAdPlayer_;
  std::shared_ptr<ZVLinkResolver> linkResolver_;
  // The shared network handler, taken once at creation: a progress report reaches it without
  // the factory's lock.
  std::shared_ptr<ZVNetworkHandler> networkHandler_;
  std::vector<ZVTrackingPoint> trackingPoints_;
};

}  // namespace zorva
