#include "Vast/ZVMediaFile.h"

#include "Vast/XMLReader.h"

namespace zorva {

std::shared_ptr<ZVMediaFile> ZVMediaFile::create(const XMLNode& dictionary) {
  if (!dictionary.isDictionary()) return nullptr;
  auto file = std::make_shared<ZVMediaFile>();
  file->mediaFileId = stringForKey(dictionary, "id");
  file->delivery = stringForKey(dictionary, "delivery");
  file->width = stringForKey(dictionary, "width");
  file->height = stringForKey(dictionary, "height");
  file->type = stringForKey(dictionary, "type");
  file->bitrate = stringForKey(dictionary, "bitrate");
  file->scalable = stringForKey(dictionary, "scalable");
  file->mediaUrl = stringForKey(dictionary, kXMLReaderTextNodeKey);
  return file;
}

std::optional<platform::URL> ZVMediaFile::url() const {
  if (!mediaUrl) return std::nullopt;
  return platform::URL::URLWithString(*mediaUrl);
}

}  // namespace zorva
