#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "zorva-adserver/Campaign.h"

namespace zorva::tools {

/// The campaigns every server starts with, one per ad format the SDK plays, by ad unit id:
///
///   "banner"           HTML banner, 320x50, a link to https://example.com/zorva/banner, and
///                      SKAdNetwork data in "ext"."skadn" (version "2.0", network, campaign,
///                      itunesitem, a fresh nonce, sourceapp, timestamp, a test signature)
///   "interstitial"     full-screen HTML with a link; no size of its own (echoes the request's)
///   "video"            VAST 3.0 InLine Linear: the 4 s MP4 at /media/zorva.mp4 (video/mp4),
///                      Impression, Error with [ERRORCODE], start/firstQuartile/midpoint/
///                      thirdQuartile/complete trackers, ClickThrough to example.com
///   "video-wrapper"    VAST 3.0 Wrapper (the document at /vast/wrapper1.xml) pointing to
///                      /vast/wrapper2.xml, a second Wrapper pointing to the InLine at
///                      /vast/inline.xml; each Wrapper has its own Impression, Error and trackers
///   "video-nonlinear"  VAST 3.0 InLine with NonLinearAds/NonLinear: a StaticResource (image/png,
///                      /media/zorva.png), minSuggestedDuration 00:00:05, Impression and Error
///   "nofill"           no bid: {}
///   "broken"           a body that is not JSON, labelled application/json
///   "slow"             the banner's bid, sent after the slow delay
///
/// Every tracking URL is {{BASE_URL}}/track?doc=<document>&event=<event> (errors add
/// &code=[ERRORCODE]), where <document> is "inline", "wrapper1", "wrapper2" or "nonlinear".
///
/// With `cdata` the VAST documents are written the way ad servers write them: every URL in a
/// CDATA section on a line of its own, indented, and the InLine linear and NonLinear creatives
/// carry a click tracker (event "click"). The SDK reads such documents only with its CDATA
/// setting on.
class BuiltinCampaigns {
 public:
  /// The campaigns above; "slow" waits `slowDelay`.
  static std::vector<Campaign> all(std::chrono::milliseconds slowDelay, bool cdata = false);

  /// VAST documents served at GET /vast/<name>.xml besides the campaigns' own: "inline",
  /// "wrapper1" and "wrapper2".
  static std::map<std::string, std::string> documents(bool cdata = false);
};

}  // namespace zorva::tools
