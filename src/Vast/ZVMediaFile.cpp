#include "Vast/ZVMediaFile.h"

#include <string_view>

#include "Vast/XMLReader.h"

namespace zorva {

namespace {

// The field an attribute (or the text) goes to, or nullptr. Switched on the length first, so that
// each comparison is one of known size.
std::optional<std::string_view> ZVMediaFile::*fieldFor(std::string_view key) {
  switch (key.size()) {
    case 2:
      return key == "id" ? &ZVMediaFile::mediaFileId : nullptr;
    case 4:
      return key == "type"                  ? &ZVMediaFile::type
             : key == kXMLReaderTextNodeKey ? &ZVMediaFile::mediaUrl
                                            : nullptr;
    case 5:
      return key == "width" ? &ZVMediaFile::width : nullptr;
    case 6:
      return key == "height" ? &ZVMediaFile::height : nullptr;
    case 7:
      return key == "bitrate" ? &ZVMediaFile::bitrate : nullptr;
    case 8:
      return key == "delivery"   ? &ZVMediaFile::delivery
             : key == "scalable" ? &ZVMediaFile::scalable
                                 : nullptr;
    default:
      return nullptr;
  }
}

}  // namespace

std::shared_ptr<ZVMediaFile> ZVMediaFile::create(const XMLNode& dictionary) {
  return readAlone<ZVMediaFile>(dictionary);
}

void ZVMediaFile::read(const XMLNode& dictionary, ZVXMLStrings& strings) {
  // One pass over the entries instead of a look-up per field: a dictionary's keys are unique, so
  // each field meets its key at most once. An entry that is not a string reads as absent.
  for (const XMLNode::Entry& entry : dictionary.entries()) {
    if (const auto field = fieldFor(entry.key); field != nullptr) {
      this->*field = strings.copy(&entry.value);
    }
  }
}

std::optional<platform::URL> ZVMediaFile::url() const {
  if (!mediaUrl) return std::nullopt;
  return platform::URL::URLWithString(*mediaUrl);
}

}  // namespace zorva
