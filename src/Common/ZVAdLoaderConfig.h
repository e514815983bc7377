#pragma once

namespace zorva {

/// How an ad format configures its loader. The loader keeps it for the format and does not read
/// it itself.
struct ZVAdLoaderConfig {
  /// True when the ad format expects a video ad.
  bool isVideo = false;
};

}  // namespace zorva
