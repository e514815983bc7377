#include "Vast/XMLReader.h"

#include <expat.h>

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

namespace zorva {

namespace {

// Separates a namespace URI from the local name in what expat reports. U+0001 cannot occur in an
// XML 1.0 document, not even as a character reference, so it never occurs inside a URI.
constexpr XML_Char kNamespaceSeparator = '\x01';

// Elements with more keys than this get a hash index; below it a scan is faster.
constexpr std::size_t kIndexThreshold = 16;

// White space and newline characters as the phone platform's trimming knows them: the Unicode
// space separators, tab, the line and paragraph separators and the C0/C1 line breaks.
bool isWhitespaceOrNewline(char32_t c) {
  switch (c) {
    case 0x09:
    case 0x0A:
    case 0x0B:
    case 0x0C:
    case 0x0D:
    case 0x20:
    case 0x85:
    case 0xA0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
      return true;
    default:
      return c >= 0x2000 && c <= 0x200A;
  }
}

// Decodes the code point that starts at `text[at]` (expat hands out valid UTF-8) and its length.
std::pair<char32_t, std::size_t> decodeAt(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
  const unsigned char lead = byte(0);
  std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  length = std::min(length, text.size() - at);
  char32_t c = length == 1 ? lead : lead & (0x3F >> (length - 1));
  for (std::size_t i = 1; i < length; ++i) c = (c << 6) | (byte(i) & 0x3F);
  return {c, length};
}

std::string trimmed(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const auto [c, length] = decodeAt(text, begin);
    if (!isWhitespaceOrNewline(c)) break;
    begin += length;
  }
  std::size_t end = text.size();
  while (end > begin) {
    std::size_t start = end - 1;
    while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
    if (!isWhitespaceOrNewline(decodeAt(text, start).first)) break;
    end = start;
  }
  return std::string(text.substr(begin, end - begin));
}

// Path components as the phone platform splits a path: a leading or trailing "/" is a component
// of its own, empty components in between vanish.
std::vector<std::string_view> pathComponents(std::string_view path) {
  std::vector<std::string_view> components;
  if (path.starts_with('/')) components.emplace_back("/");
  std::size_t at = 0;
  while (at <= path.size()) {
    const std::size_t slash = std::min(path.find('/', at), path.size());
    if (slash > at) components.push_back(path.substr(at, slash - at));
    at = slash + 1;
  }
  if (path.size() > 1 && path.ends_with('/')) components.emplace_back("/");
  return components;
}

}  // namespace

struct XMLReader::Handlers {
  static void start(void* reader, const XML_Char* name, const XML_Char** attributes) {
    static_cast<XMLReader*>(reader)->startElement(name, attributes);
  }
  static void end(void* reader, const XML_Char*) { static_cast<XMLReader*>(reader)->endElement(); }
  static void characters(void* reader, const XML_Char* text, int length) {
    static_cast<XMLReader*>(reader)->characters(
        std::string_view(text, static_cast<std::size_t>(length)));
  }
  static void startCdata(void* reader) { static_cast<XMLReader*>(reader)->inCdata_ = true; }
  static void endCdata(void* reader) { static_cast<XMLReader*>(reader)->inCdata_ = false; }
};

Value* XMLReader::Frame::find(const std::string& key) {
  if (!index.empty()) {
    auto found = index.find(key);
    return found == index.end() ? nullptr : &entries[found->second].second;
  }
  for (auto& [name, value] : entries) {
    if (name == key) return &value;
  }
  return nullptr;
}

void XMLReader::Frame::add(std::string key, Value value) {
  if (!index.empty()) index.emplace(key, entries.size());
  entries.emplace_back(std::move(key), std::move(value));
  if (index.empty() && entries.size() > kIndexThreshold) {
    for (std::size_t i = 0; i < entries.size(); ++i) index.emplace(entries[i].first, i);
  }
}

Value XMLReader::Frame::dictionary() && {
  Value dictionary = Value::object();
  auto& object = dictionary.get_ref<Value::object_t&>();
  // Sized once: the tree's dictionaries keep their keys in a vector whose growth would copy
  // every finished child again.
  object.reserve(entries.size());
  for (auto& [key, value] : entries) object.emplace_back(std::move(key), std::move(value));
  entries.clear();
  index.clear();
  return dictionary;
}

std::optional<Value> XMLReader::dictionaryForXMLData(const Data& data,
                                                     std::optional<Error>* error) {
  return dictionaryForXMLData(data, 0, error);
}

std::optional<Value> XMLReader::dictionaryForXMLData(const Data& data, unsigned long options,
                                                     std::optional<Error>* error) {
  XMLReader reader(error);
  return reader.objectWithData(data, options);
}

std::optional<Value> XMLReader::dictionaryForXMLString(const std::string& string,
                                                       std::optional<Error>* error) {
  return dictionaryForXMLData(string, 0, error);
}

std::optional<Value> XMLReader::dictionaryForXMLString(const std::string& string,
                                                       unsigned long options,
                                                       std::optional<Error>* error) {
  return dictionaryForXMLData(string, options, error);
}

std::optional<Value> XMLReader::objectWithData(const Data& data, unsigned long options) {
  dictionaryStack_.clear();
  dictionaryStack_.emplace_back();
  depth_ = 1;
  textInProgress_.clear();
  inCdata_ = false;
  tooDeep_ = false;
  namespaces_ = (options & kProcessNamespaces) != 0;
  gatherCdata_ = (options & kGatherCdata) != 0;

  // Prefix reports and external entities need no set-up: the reader ignores prefix mappings and
  // installs no external-entity handler, so expat skips such references and never reads a DTD
  // from outside the document.
  XML_Parser parser =
      namespaces_ ? XML_ParserCreateNS(nullptr, kNamespaceSeparator) : XML_ParserCreate(nullptr);
  if (parser == nullptr) throw std::bad_alloc();
  parser_ = parser;
  XML_SetUserData(parser, this);
  XML_SetElementHandler(parser, &Handlers::start, &Handlers::end);
  XML_SetCharacterDataHandler(parser, &Handlers::characters);
  XML_SetCdataSectionHandler(parser, &Handlers::startCdata, &Handlers::endCdata);

  // Fed in pieces that expat's int length can hold; the last piece is marked final.
  XML_Status status = XML_STATUS_OK;
  std::size_t offset = 0;
  do {
    const std::size_t length = std::min<std::size_t>(data.size() - offset, INT_MAX / 2);
    const bool last = offset + length == data.size();
    status = XML_Parse(parser, data.data() + offset, static_cast<int>(length), last);
    offset += length;
  } while (status == XML_STATUS_OK && offset < data.size());

  std::optional<Value> result;
  if (status == XML_STATUS_OK) {
    result = std::move(dictionaryStack_.front()).dictionary();
  } else {
    const XML_Error code = XML_GetErrorCode(parser);
    std::string description = XML_ErrorString(code);
    description += " (line " + std::to_string(XML_GetCurrentLineNumber(parser)) + ", column " +
                   std::to_string(XML_GetCurrentColumnNumber(parser) + 1) + ")";
    Value userInfo = {{platform::kLocalizedDescriptionKey, description}};
    if (tooDeep_) {
      userInfo["reason"] =
          "elements nested deeper than " + std::to_string(kMaximumDepth) + " levels";
    }
    *errorPointer_ = Error(kErrorDomain, code, std::move(userInfo));
  }
  XML_ParserFree(parser);
  parser_ = nullptr;
  dictionaryStack_.clear();
  depth_ = 0;
  textInProgress_.clear();
  return result;
}

std::string_view XMLReader::reportedName(const char* name) const {
  std::string_view text(name);
  if (namespaces_) {
    const auto separator = text.rfind(kNamespaceSeparator);
    if (separator != std::string_view::npos) text.remove_prefix(separator + 1);
  }
  return text;
}

void XMLReader::startElement(const char* name, const char** attributes) {
  if (depth_ > kMaximumDepth) {
    tooDeep_ = true;
    XML_StopParser(parser_, XML_FALSE);
    return;
  }
  if (depth_ == dictionaryStack_.size()) dictionaryStack_.emplace_back();
  Frame& child = dictionaryStack_[depth_];
  child.name = reportedName(name);
  for (const char** attribute = attributes; *attribute != nullptr; attribute += 2) {
    std::string key(reportedName(attribute[0]));
    // Two attributes can share a local name when their prefixes differ; the later one wins.
    if (Value* existing = child.find(key)) {
      *existing = attribute[1];
    } else {
      child.add(std::move(key), attribute[1]);
    }
  }
  ++depth_;
}

void XMLReader::endElement() {
  if (tooDeep_) return;
  Frame& current = dictionaryStack_[depth_ - 1];
  if (!textInProgress_.empty()) {
    Value text = trimmed(textInProgress_);
    if (Value* existing = current.find(kXMLReaderTextNodeKey)) {
      *existing = std::move(text);
    } else {
      current.add(kXMLReaderTextNodeKey, std::move(text));
    }
    textInProgress_.clear();
  }
  std::string name = std::move(current.name);
  Value child = std::move(current).dictionary();
  --depth_;

  // The first child of a name is stored as it is; a second one turns the entry into an array of
  // both, and later ones are appended. An attribute of the same name joins the array first.
  Frame& parent = dictionaryStack_[depth_ - 1];
  if (Value* existing = parent.find(name)) {
    if (existing->is_array()) {
      existing->push_back(std::move(child));
    } else {
      Value both = Value::array();
      both.push_back(std::move(*existing));
      both.push_back(std::move(child));
      *existing = std::move(both);
    }
  } else {
    parent.add(std::move(name), std::move(child));
  }
}

void XMLReader::characters(std::string_view text) {
  if (inCdata_ && !gatherCdata_) return;
  textInProgress_.append(text);
}

std::vector<const Value*> XMLReader::objectsForPath(std::string_view path, const Value& data) {
  const auto components = pathComponents(path);
  if (components.empty()) return {};
  std::vector<const Value*> nodes{&data};
  for (const std::string_view component : components) {
    std::vector<const Value*> found;
    for (const Value* node : nodes) {
      if (!node->is_object()) continue;
      const auto entry = node->find(component);
      if (entry == node->end()) continue;
      if (entry->is_array()) {
        for (const Value& element : *entry) found.push_back(&element);
      } else if (entry->is_object()) {
        found.push_back(&*entry);
      }
    }
    nodes = std::move(found);
  }
  return nodes;
}

std::optional<std::string> XMLReader::valueForPath(std::string_view path, const Value& data) {
  const auto nodes = objectsForPath(path, data);
  if (nodes.empty() || !nodes.front()->is_object()) return std::nullopt;
  const auto text = nodes.front()->find(kXMLReaderTextNodeKey);
  if (text == nodes.front()->end() || !text->is_string()) return std::nullopt;
  return text->get<std::string>();
}

std::vector<std::string> XMLReader::valuesForPath(std::string_view path, const Value& data) {
  std::vector<std::string> values;
  for (const Value* node : objectsForPath(path, data)) {
    if (!node->is_object()) continue;
    const auto text = node->find(kXMLReaderTextNodeKey);
    if (text != node->end() && text->is_string()) values.push_back(text->get<std::string>());
  }
  return values;
}

}  // namespace zorva
