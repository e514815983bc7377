#include "Vast/ZVTracker.h"

#include "Vast/XMLReader.h"

namespace zorva {

std::shared_ptr<ZVTracker> ZVTracker::create(const XMLNode& dictionary) {
  return readAlone<ZVTracker>(dictionary);
}

void ZVTracker::read(const XMLNode& dictionary, ZVXMLStrings& strings) {
  // One pass over the entries: a dictionary's keys are unique.
  for (const XMLNode::Entry& entry : dictionary.entries()) {
    if (entry.key == "event") {
      event = strings.copy(&entry.value);
    } else if (entry.key == kXMLReaderTextNodeKey) {
      url = strings.copy(&entry.value);
    }
  }
}

}  // namespace zorva
