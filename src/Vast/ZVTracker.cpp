#include "Vast/ZVTracker.h"

#include "Vast/XMLReader.h"

namespace zorva {

void ZVTracker::read(const XMLNode& dictionary, ZVXMLStrings& strings) {
  event = strings.copy(dictionary.find("event"));
  url = strings.copy(dictionary.find(kXMLReaderTextNodeKey));
}

}  // namespace zorva
