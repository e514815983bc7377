// XML → VAST document → every aggregation a player asks for.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Vast/XMLReader.h"
#include "Vast/ZVVast.h"
#include "Vast/ZVVastLinear.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const zorva::Data bytes(reinterpret_cast<const char*>(data), size);
  std::optional<zorva::Error> error;
  const auto tree =
      zorva::XMLReader::dictionaryForXMLData(bytes, zorva::XMLReader::kProcessNamespaces, &error);
  if (!tree) return 0;
  const auto vast = zorva::ZVVast::create((*tree)["VAST"]);
  // Chain the ads as a wrapper resolution would, each under the one before it.
  std::shared_ptr<zorva::ZVVastAd> previous;
  for (const auto& ad : vast->ads) {
    ad->setParent(previous);
    previous = ad;
  }
  for (const auto& ad : vast->ads) {
    (void)ad->aggregatedErrorUrlsbyReplacingErrorWithValue("402");
    (void)ad->aggregatedImpressionUrl();
    for (const char* event : {"start", "firstQuartile", "midpoint", "thirdQuartile", "complete"}) {
      (void)ad->aggregatedTrackersForEvent(event);
    }
    if (const auto creative = ad->adCreative()) {
      (void)creative->itemExistsForMime({"video/mp4"});
      (void)creative->creativeContent();
      if (const auto items = creative->adItems()) {
        for (const auto& item : *items) (void)item->url();
      }
      if (const auto linear = std::dynamic_pointer_cast<zorva::ZVVastLinear>(creative)) {
        (void)linear->creativeURLForMimes({"video/mp4", "video/webm"});
      }
    }
  }
  return 0;
}
