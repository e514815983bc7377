#pragma once

#include <memory>

#include <zorva/ZVTypes.h>
#include <zorva/platform/View.h>

#include "Players/ZVVastAdplayerDelegate.h"
#include "Vast/ZVVastAd.h"

namespace zorva {

/// A VAST creative player: the linear video player or the non-linear HTML player.
class ZVVastAdplaying {
 public:
  virtual ~ZVVastAdplaying() = default;

  /// Prepares the creative of `ad`.
  virtual void load(std::shared_ptr<ZVVastAd> ad) = 0;
  virtual void play() = 0;
  /// The creative's view. (Spelt so; the VAST player calls it by this name.)
  virtual std::shared_ptr<platform::View> plaerView() = 0;
  /// Seconds.
  virtual double mediaDuration() = 0;
  /// The bid's SKAdNetwork data, handed to the link resolver on a click.
  virtual const Value& skadn() const = 0;
  virtual void setSkadn(Value skadn) = 0;
  virtual std::shared_ptr<ZVVastAdplayerDelegate> delegate() const = 0;
  /// Held weakly.
  virtual void setDelegate(std::weak_ptr<ZVVastAdplayerDelegate> delegate) = 0;
  /// The ad being played.
  virtual std::shared_ptr<ZVVastAd> ad() const = 0;
};

}  // namespace zorva
