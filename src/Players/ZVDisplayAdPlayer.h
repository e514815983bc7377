#pragma once

#include <memory>
#include <optional>

#include "Common/ZVLinkResolver.h"
#include "Common/ZorvaAd.h"
#include "Players/ZVAdPlayTracker.h"
#include "Players/ZVAdPlaying.h"
#include "Players/ZVHTMLPlayer.h"
#include "Players/ZVHTMLPlayerDelegate.h"
#include "Players/ZVPlayerConfig.h"

namespace zorva {

/// The player of a display (HTML) ad: an HTML player sized to the ad, a link resolver for its
/// clicks and, when the builder gives it one, a play tracker that ends the display session.
///
/// Reports to its delegate on the main thread: `playerDidLoad` after every finished page load
/// (the session timer, if any, is started just before), `playerDidEndPlaying` when that timer
/// fires, `playerDidFailWithError` for a failed committed load or a creative that is not text,
/// and the two modal reports around a click-through when the delegate implements them. It never
/// sends `playerDidStartPlaying`.
///
/// The creative is the ad's markup (or web address) string; no ad, or a null creative, is an
/// empty page. A creative of any other kind (a number, an object) cannot be shown: `play` then
/// loads nothing and reports error code 2 on a later main-queue turn.
class ZVDisplayAdPlayer : public std::enable_shared_from_this<ZVDisplayAdPlayer>,
                          public ZVAdPlaying,
                          public ZVHTMLPlayerDelegate,
                          public ZVLinkResolverDelegate {
 public:
  static std::shared_ptr<ZVDisplayAdPlayer> create(const ZVPlayerConfig& config);
  /// Cancels the session timer: the pending timer would otherwise keep the tracker alive.
  ~ZVDisplayAdPlayer() override;

  void play() override;
  /// The HTML player's web view.
  std::shared_ptr<platform::View> playerView() override;
  std::shared_ptr<ZVAdPlayerDelegate> delegate() const override { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<ZVAdPlayerDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }

  /// Absent unless the builder sets one.
  const std::shared_ptr<ZVAdPlayTracker>& adPlayTracker() const { return adPlayTracker_; }
  void setAdPlayTracker(std::shared_ptr<ZVAdPlayTracker> tracker) {
    adPlayTracker_ = std::move(tracker);
  }
  const std::shared_ptr<ZVHTMLPlayer>& htmlPlayer() const { return htmlPlayer_; }
  const std::shared_ptr<ZorvaAd>& ad() const { return ad_; }
  const std::shared_ptr<ZVLinkResolver>& linkResolver() const { return linkResolver_; }

  // From the HTML player.
  void htmlPlayerDidPlayAd() override;
  void htmlPlayerDidFailToPlayWithError(const Error& error) override;
  /// The initial load (type "other" before the page has loaded) and every navigation but a
  /// tapped link are allowed; a tapped link, or an "other" navigation once the page has loaded,
  /// is a click: cancelled and handed to the link resolver.
  bool htmlPlayerShouldLoadRequest(const platform::URLRequest& request,
                                   platform::NavigationType navigationType) override;

  // From the link resolver.
  void resolverWillPresentModal(ZVLinkResolver& resolver) override;
  void resolverDidDismissModal(ZVLinkResolver& resolver) override;

 private:
  explicit ZVDisplayAdPlayer(std::shared_ptr<ZorvaAd> ad) : ad_(std::move(ad)) {}

  std::weak_ptr<ZVAdPlayerDelegate> delegate_;
  std::shared_ptr<ZVAdPlayTracker> adPlayTracker_;
  std::shared_ptr<ZVHTMLPlayer> htmlPlayer_;
  std::shared_ptr<ZorvaAd> ad_;
  std::shared_ptr<ZVLinkResolver> linkResolver_;
  /// Set when the creative cannot be shown; `play` reports it instead of loading.
  std::optional<Error> creativeError_;
};

}  // namespace zorva
