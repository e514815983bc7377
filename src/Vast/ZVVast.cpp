#include "Vast/ZVVast.h"

#include "Vast/XMLReader.h"

namespace zorva {

std::shared_ptr<ZVVast> ZVVast::create(const XMLNode& dictionary) {
  auto vast = std::make_shared<ZVVast>();
  ZVXMLStrings strings;
  vast->ads = XMLReader::obects<ZVVastAd>("Ad/Wrapper", dictionary, strings);
  auto inlineAds = XMLReader::obects<ZVVastAd>("Ad/InLine", dictionary, strings);
  vast->ads.insert(vast->ads.end(), inlineAds.begin(), inlineAds.end());
  vast->version = stringForKey(dictionary, "version");
  return vast;
}

}  // namespace zorva
