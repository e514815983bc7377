#pragma once

#include <zorva/ZVTypes.h>

namespace zorva {

/// The winning bid of a bid response, as every later stage sees it. Values are carried as the
/// response held them: `creative` is normally the markup string (HTML, or a whole VAST document),
/// but whatever stood under "adm" is kept, and null means absent; `price` keeps the JSON number
/// as parsed (integer or real).
struct ZorvaAd {
  Value creative;
  Value bidId;
  Value price;
  /// "w" and "h" read as single-precision numbers, widened; 0 when absent.
  ZVAdSize size;
  /// The bid's "ext"."skadn" object, unchanged; null when absent.
  Value skadn;
};

}  // namespace zorva
