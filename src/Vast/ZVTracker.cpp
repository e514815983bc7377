#include "Vast/ZVTracker.h"

#include "Vast/XMLReader.h"

namespace zorva {

void ZVTracker::read(const XMLNode& dictionary) {
  event = stringForKey(dictionary, "event");
  url = stringForKey(dictionary, kXMLReaderTextNodeKey);
}

}  // namespace zorva
