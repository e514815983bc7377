#pragma once

#include <cstdint>
#include <memory>

#include <zorva/ZVTypes.h>

#include "Common/ZorvaAd.h"

namespace zorva {

/// What to play and how. The player builder reads `isExpectingVideoAd` and `sessionTime`; the
/// players read only `ad`. `requestedAdSize` travels along but no player sizes itself from it.
struct ZVPlayerConfig {
  /// True builds the VAST video player, false the display (HTML) player.
  bool isExpectingVideoAd = false;
  std::shared_ptr<ZorvaAd> ad;
  /// Seconds a display ad stays "playing" before its player reports the end; 0 means never.
  std::uint64_t sessionTime = 0;
  ZVAdSize requestedAdSize;
};

}  // namespace zorva
