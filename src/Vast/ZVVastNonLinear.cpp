#include "Vast/ZVVastNonLinear.h"

#include <zorva/ZorvaSDK.h>

#include "Vast/XMLReader.h"

namespace zorva {

std::shared_ptr<ZVVastNonLinear> ZVVastNonLinear::create(const XMLNode& dictionary,
                                                         ZVXMLStrings& strings) {
  if (!dictionary.isDictionary()) return nullptr;
  auto nonLinear = std::make_shared<ZVVastNonLinear>();
  nonLinear->minSuggestedDuration_ = stringForKey(dictionary, "minSuggestedDuration");
  nonLinear->resource_ = XMLReader::firstObject<ZVResource>("StaticResource", dictionary, strings);
  nonLinear->trackers_ =
      XMLReader::objectsInOneBlock<ZVTracker>("TrackingEvents/Tracking", dictionary, strings);
  // Click trackers are only ever sent by the tracking transport; without it they stay unread.
  if (ZorvaSDK::shared()->trackingTransport()) {
    nonLinear->clickTrackers_ = XMLReader::valuesForPath("NonLinearClickTracking", dictionary);
  }
  return nonLinear;
}

std::optional<std::vector<std::shared_ptr<ZVVastAdItem>>> ZVVastNonLinear::adItems() const {
  if (!resource_) return std::nullopt;
  return std::vector<std::shared_ptr<ZVVastAdItem>>{resource_};
}

std::optional<std::string> ZVVastNonLinear::creativeContent() const {
  if (!resource_) return std::nullopt;
  return resource_->content;
}

bool ZVVastNonLinear::itemExistsForMime(const std::vector<std::string>&) const { return true; }

}  // namespace zorva
