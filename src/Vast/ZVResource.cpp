#include "Vast/ZVResource.h"

#include "Vast/XMLReader.h"

namespace zorva {

std::shared_ptr<ZVResource> ZVResource::create(const XMLNode& dictionary, ZVXMLStrings&) {
  if (!dictionary.isDictionary()) return nullptr;
  auto resource = std::make_shared<ZVResource>();
  resource->creativeType = stringForKey(dictionary, "creativeType");
  resource->content = stringForKey(dictionary, kXMLReaderTextNodeKey);
  return resource;
}

std::optional<platform::URL> ZVResource::url() const {
  if (!content) return std::nullopt;
  return platform::URL::URLWithString(*content);
}

}  // namespace zorva
