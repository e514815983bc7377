#pragma once

#include <memory>

#include <zorva/ZVTypes.h>

#include "Common/ZorvaAd.h"

namespace zorva {

/// What an ad loader tells the ad format that owns it. Threads: `didReceiveAd` and failures to
/// read the response arrive on the main queue; transport failures arrive on the URL session's
/// worker thread, and request-building failures on the thread the builder answered on.
class ZVAdLoaderDelegate {
 public:
  virtual ~ZVAdLoaderDelegate() = default;
  /// The bid's ad, or nullptr when the response held no bid.
  virtual void didReceiveAd(std::shared_ptr<ZorvaAd> ad) = 0;
  virtual void didFailToReceivedAd(const Error& error) = 0;
};

}  // namespace zorva
