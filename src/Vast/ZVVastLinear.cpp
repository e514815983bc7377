#include "Vast/ZVVastLinear.h"

#include <algorithm>

#include <zorva/ZorvaSDK.h>

#include "Vast/XMLReader.h"

namespace zorva {

namespace {
bool isListed(const std::optional<std::string_view>& type, const std::vector<std::string>& mimes) {
  return type && std::find(mimes.begin(), mimes.end(), *type) != mimes.end();
}
}  // namespace

std::shared_ptr<ZVVastLinear> ZVVastLinear::create(const XMLNode& dictionary,
                                                   ZVXMLStrings& strings) {
  if (!dictionary.isDictionary()) return nullptr;
  auto linear = std::make_shared<ZVVastLinear>();
  linear->strings_ = strings.owner();
  linear->mediaFiles_ =
      XMLReader::objectsInOneBlock<ZVMediaFile>("MediaFiles/MediaFile", dictionary, strings);
  linear->duration_ = strings.copy(XMLReader::textForPath("Duration", dictionary));
  linear->clickThrough_ =
      strings.copy(XMLReader::textForPath("VideoClicks/ClickThrough", dictionary));
  linear->trackers_ =
      XMLReader::objectsInOneBlock<ZVTracker>("TrackingEvents/Tracking", dictionary, strings);
  // Click trackers are only ever sent by the tracking transport; without it they stay unread.
  if (ZorvaSDK::shared()->trackingTransport()) {
    linear->clickTrackers_ = XMLReader::valuesForPath("VideoClicks/ClickTracking", dictionary);
  }
  return linear;
}

std::optional<std::vector<std::shared_ptr<ZVVastAdItem>>> ZVVastLinear::adItems() const {
  return std::vector<std::shared_ptr<ZVVastAdItem>>(mediaFiles_.begin(), mediaFiles_.end());
}

bool ZVVastLinear::itemExistsForMime(const std::vector<std::string>& mimes) const {
  return std::any_of(mediaFiles_.begin(), mediaFiles_.end(),
                     [&](const auto& file) { return isListed(file->type, mimes); });
}

std::optional<platform::URL> ZVVastLinear::creativeURLForMimes(
    const std::vector<std::string>& mimes) const {
  if (!itemExistsForMime(mimes)) return std::nullopt;
  return mediaFiles_.front()->url();
}

}  // namespace zorva
