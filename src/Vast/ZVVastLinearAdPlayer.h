#pragma once

#include <memory>
#include <optional>
#include <string>

#include <zorva/platform/KeyValueObserver.h>
#include <zorva/platform/NotificationCenter.h>
#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>
#include <zorva/platform/PlayerLayer.h>
#include <zorva/platform/ProgressView.h>
#include <zorva/platform/View.h>

#include "Players/ZVVastAdplaying.h"

namespace zorva {

/// Plays the media file of a VAST Linear creative: the video in a player layer under a thin
/// progress bar along the bottom edge. It calls the ad loaded the first time more than half of
/// the media is buffered, then reports the play time every 1/400 s while the item is ready;
/// it reports the end, failures (403: no "video/mp4" file; 405: the item failed or stalled) and
/// taps. It never reports a start. All tracking is its delegate's (the VAST player).
///
/// Playback starts whenever the view enters or leaves a window (and on `play`), not on `load`.
/// Nothing is unregistered besides the buffering observation: the status observation, the
/// notifications and the periodic observer last as long as the objects, so a failing item may
/// report 405 more than once. Main thread only.
class ZVVastLinearAdPlayer : public platform::View,
                             public ZVVastAdplaying,
                             public platform::KeyValueObserver {
 public:
  /// The one type of media file this player plays.
  static constexpr const char* kPlayableMime = "video/mp4";

  static std::shared_ptr<ZVVastLinearAdPlayer> create(const platform::Rect& frame = {});

  // ZVVastAdplaying
  /// Keeps `ad`; fails with 403 without a "video/mp4" file; otherwise, the first time, makes the
  /// player for the creative's media URL and starts buffering (a creative without URL stays
  /// silent).
  void load(std::shared_ptr<ZVVastAd> ad) override;
  void play() override;
  std::shared_ptr<platform::View> plaerView() override { return shared_from_this(); }
  /// The asset's duration in seconds; 0 without an item.
  double mediaDuration() override;
  const Value& skadn() const override { return skadn_; }
  void setSkadn(Value skadn) override { skadn_ = std::move(skadn); }
  std::shared_ptr<ZVVastAdplayerDelegate> delegate() const override { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<ZVVastAdplayerDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  std::shared_ptr<ZVVastAd> ad() const override { return ad_; }

  // View hooks
  void layoutSubviews() override;
  /// Calls the player's `play`, whether the view entered a window or left one.
  void didMoveToWindow() override;
  /// Sends the creative's click-through (possibly absent); the touch goes no further.
  void touchesEnded() override;

  // KeyValueObserver
  void observeValueForKeyPath(const std::string& keyPath,
                              const std::shared_ptr<platform::PlayerItem>& object) override;

  void playerItemDidReachEnd(const platform::Notification& notification);
  void playerItemDidFailToPlay(const platform::Notification& notification);

  void setUpProgressView();
  void notifyFinishLoad();

  /// Set at the first progress report when the start is reported, which happens only with
  /// `ZorvaSDK::trackingTransport` on when the media loaded; without it nothing sets it.
  bool playbackStarted() const { return playbackStarted_; }
  const std::shared_ptr<platform::Player>& player() const { return player_; }
  const std::shared_ptr<platform::PlayerItem>& playerItem() const { return playerItem_; }
  const std::shared_ptr<platform::PlayerLayer>& playerLayer() const { return playerLayer_; }
  const std::shared_ptr<platform::Player::TimeObserver>& timeBoundryObserver() const {
    return timeBoundryObserver_;
  }
  const std::shared_ptr<platform::ProgressView>& progressView() const { return progressView_; }

 private:
  explicit ZVVastLinearAdPlayer(const platform::Rect& frame) : View(frame) {}
  std::shared_ptr<ZVVastLinearAdPlayer> self() {
    return std::static_pointer_cast<ZVVastLinearAdPlayer>(shared_from_this());
  }
  void progressTick(const platform::MediaTime& time);

  bool playbackStarted_ = false;
  // Whether the first progress report is preceded by `playerDidStartPlaying` (whose hand-over
  // of the impressions the tracking transport sends); taken when the media has loaded.
  bool reportsStart_ = false;
  Value skadn_;
  std::weak_ptr<ZVVastAdplayerDelegate> delegate_;
  std::shared_ptr<ZVVastAd> ad_;
  std::shared_ptr<platform::Player> player_;
  std::shared_ptr<platform::PlayerItem> playerItem_;
  std::shared_ptr<platform::PlayerLayer> playerLayer_;
  std::shared_ptr<platform::Player::TimeObserver> timeBoundryObserver_;
  std::shared_ptr<platform::ProgressView> progressView_;
};

}  // namespace zorva
