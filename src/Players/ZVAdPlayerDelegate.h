#pragma once

#include <zorva/ZVTypes.h>

namespace zorva {

/// How a player reports to the ad object that holds it. Every report arrives on the main thread,
/// except that a VAST parse failure is passed on from the thread the parser reported it on.
///
/// The two modal reports are optional: players send them only when `respondsTo...` says the
/// delegate implements them. A delegate that implements one overrides both the report and its
/// `respondsTo...` query.
class ZVAdPlayerDelegate {
 public:
  virtual ~ZVAdPlayerDelegate() = default;

  /// A click-through is about to cover the screen.
  virtual void playerWillPresentModal() {}
  /// That screen has gone.
  virtual void playerDidDismissModal() {}
  /// The creative is ready and showing.
  virtual void playerDidLoad() = 0;
  /// Playback started (video).
  virtual void playerDidStartPlaying() = 0;
  /// Playback, or the display session, is over.
  virtual void playerDidEndPlaying() = 0;
  /// Rendering failed.
  virtual void playerDidFailWithError(const Error& error) = 0;

  virtual bool respondsToPlayerWillPresentModal() const { return false; }
  virtual bool respondsToPlayerDidDismissModal() const { return false; }
};

}  // namespace zorva
