#pragma once

#include <memory>

#include "Common/ZorvaAd.h"

namespace zorva {

/// Reads the first bid of the first seat bid of an OpenRTB bid response into a `ZorvaAd`.
class ZorvaAdBuilder {
 public:
  static std::shared_ptr<ZorvaAdBuilder> create() { return std::make_shared<ZorvaAdBuilder>(); }

  const Value& json() const { return json_; }
  void setJson(Value json) { json_ = std::move(json); }

  /// The ad, or nullptr when the response has no seat bid or no bid. Values are not type-checked,
  /// but reading a key from something that is not an object raises `Exception` (a bid response
  /// that is a number or an array, a seat bid that is a string...).
  std::shared_ptr<ZorvaAd> build() const;

  /// `build`, moving the ad's values out of `json` instead of copying them: for a reader that
  /// has no further use for the response. `json` is left holding what the ad did not take.
  std::shared_ptr<ZorvaAd> buildTakingJson();

 private:
  Value json_;
};

}  // namespace zorva
