#include "Players/ZVPlayerBuilder.h"

#include "Players/ZVAdPlayTracker.h"
#include "Players/ZVDisplayAdPlayer.h"
#include "Vast/ZVVastPlayer.h"

namespace zorva {

std::shared_ptr<ZVAdPlaying> ZVPlayerBuilder::build(
    std::weak_ptr<ZVAdPlayerDelegate> delegate) const {
  const ZVPlayerConfig config = config_ ? *config_ : ZVPlayerConfig();
  std::shared_ptr<ZVAdPlaying> player;
  if (config.isExpectingVideoAd) {
    // No session tracker for video, whatever `sessionTime` says.
    player = ZVVastPlayer::create(config);
  } else {
    auto display = ZVDisplayAdPlayer::create(config);
    if (config.sessionTime != 0)
      display->setAdPlayTracker(ZVAdPlayTracker::create(config.sessionTime));
    player = display;
  }
  player->setDelegate(std::move(delegate));
  return player;
}

}  // namespace zorva
