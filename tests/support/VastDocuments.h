#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Vast/ZVVast.h"
#include "Vast/ZVVastAd.h"

namespace zorva::test {

/// The progress events the VAST player tracks, in firing order.
inline constexpr const char* kProgressEvents[] = {"start", "firstQuartile", "midpoint",
                                                  "thirdQuartile", "complete"};

/// A VAST 3.0 InLine ad (id "inline") with one Linear creative: one media file of `mime` at
/// `mediaUrl`, the click-through when given, the Error URL "http://err/inline?code=[ERRORCODE]",
/// the Impression "http://imp/inline", and one tracker per progress event
/// ("http://track/<event>").
std::string linearVast(const std::string& mime = "video/mp4",
                       const std::optional<std::string>& clickThrough = "http://click/through",
                       const std::string& mediaUrl = "http://media/ad.mp4");

/// A VAST 3.0 InLine ad (id "overlay") with one NonLinear creative whose static resource is
/// `content` (escaped), suggested to last 15 s.
std::string nonLinearVast(const std::string& content);

/// The document model of `xml` (a document without ads when it does not parse).
std::shared_ptr<ZVVast> vastDocument(const std::string& xml);
/// The first ad of `xml`.
std::shared_ptr<ZVVastAd> firstAd(const std::string& xml);

}  // namespace zorva::test
