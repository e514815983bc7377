#include "Vast/ZVTracker.h"

#include "Vast/XMLReader.h"

namespace zorva {

std::shared_ptr<ZVTracker> ZVTracker::create(const XMLNode& dictionary) {
  if (!dictionary.isDictionary()) return nullptr;
  auto tracker = std::make_shared<ZVTracker>();
  tracker->event = stringForKey(dictionary, "event");
  tracker->url = stringForKey(dictionary, kXMLReaderTextNodeKey);
  return tracker;
}

}  // namespace zorva
