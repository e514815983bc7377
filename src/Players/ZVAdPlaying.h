#pragma once

#include <memory>

#include <zorva/platform/View.h>

#include "Players/ZVAdPlayerDelegate.h"

namespace zorva {

/// What an ad object sees of any player: the display player or the VAST player.
class ZVAdPlaying {
 public:
  virtual ~ZVAdPlaying() = default;

  /// Starts rendering.
  virtual void play() = 0;
  /// The view to put on screen.
  virtual std::shared_ptr<platform::View> playerView() = 0;
  virtual std::shared_ptr<ZVAdPlayerDelegate> delegate() const = 0;
  /// Held weakly.
  virtual void setDelegate(std::weak_ptr<ZVAdPlayerDelegate> delegate) = 0;
};

}  // namespace zorva
