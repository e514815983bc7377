#include "Vast/ZVMediaFile.h"

#include <string_view>
#include <utility>

#include "Vast/XMLReader.h"

namespace zorva {

void ZVMediaFile::read(const XMLNode& dictionary) {
  static constexpr std::pair<std::string_view, std::optional<std::string> ZVMediaFile::*>
      kFields[] = {
          {"id", &ZVMediaFile::mediaFileId},    {"delivery", &ZVMediaFile::delivery},
          {"width", &ZVMediaFile::width},       {"height", &ZVMediaFile::height},
          {"type", &ZVMediaFile::type},         {"bitrate", &ZVMediaFile::bitrate},
          {"scalable", &ZVMediaFile::scalable}, {kXMLReaderTextNodeKey, &ZVMediaFile::mediaUrl}};
  // One pass over the entries instead of a look-up per field: a dictionary's keys are unique, so
  // each field meets its key at most once. An entry that is not a string reads as absent.
  for (const XMLNode::Entry& entry : dictionary.entries()) {
    if (!entry.value.isString()) continue;
    for (const auto& [key, field] : kFields) {
      if (key == entry.key) {
        (this->*field).emplace(entry.value.string());
        break;
      }
    }
  }
}

std::optional<platform::URL> ZVMediaFile::url() const {
  if (!mediaUrl) return std::nullopt;
  return platform::URL::URLWithString(*mediaUrl);
}

}  // namespace zorva
