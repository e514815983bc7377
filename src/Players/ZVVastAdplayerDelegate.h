#pragma once

#include <optional>
#include <string>

#include <zorva/ZVTypes.h>

namespace zorva {

/// How a VAST creative player (linear or non-linear) reports to the VAST player, on the main
/// thread.
class ZVVastAdplayerDelegate {
 public:
  virtual ~ZVVastAdplayerDelegate() = default;

  virtual void playerDidLoad() = 0;
  virtual void playerDidStartPlaying() = 0;
  virtual void playerDidEndPlaying() = 0;
  /// The viewer clicked; the click-through URL text, which the creative may lack.
  virtual void playerDidIteractedWithTargetUrl(const std::optional<std::string>& url) = 0;
  /// Seconds of media played so far.
  virtual void playerDidProgress(double seconds) = 0;
  /// Note "Failed", unlike the ad player delegate's `playerDidFailWithError`.
  virtual void playerDidFailedWithError(const Error& error) = 0;
};

}  // namespace zorva
