#include "Vast/XMLReader.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace zorva {

namespace {

// Separates a namespace URI from the local name in what expat reports. U+0001 cannot occur in an
// XML 1.0 document, not even as a character reference, so it never occurs inside a URI.
constexpr XML_Char kNamespaceSeparator = '\x01';

// Elements with more keys than this get a hash index; below it a scan is faster.
constexpr std::size_t kIndexThreshold = 16;

// How many entries and array elements the frames a conversion leaves may have room for and
// still be kept for the next conversion on the thread: a few typical VAST documents' worth.
constexpr std::size_t kSpareRoom = 4096;

// The largest document after which the parser is kept for the next conversion on the thread:
// expat keeps its input buffer, about the document's size, across a reset.
constexpr std::size_t kSpareParserBytes = 64 * 1024;

struct ParserFree {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using Parser = std::unique_ptr<XML_ParserStruct, ParserFree>;

// One parser per thread for each namespace mode (the mode is fixed when a parser is made).
Parser& spareParser(bool namespaces) {
  thread_local std::array<Parser, 2> parsers;
  return parsers[namespaces ? 1 : 0];
}

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

std::string_view trimmed(std::string_view text) {
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
  return text.substr(begin, end - begin);
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

XMLReader::PathComponents::PathComponents(std::string_view path) {
  if (path.starts_with('/')) push("/");
  std::size_t at = 0;
  while (at <= path.size()) {
    const std::size_t slash = std::min(path.find('/', at), path.size());
    if (slash > at) push(path.substr(at, slash - at));
    at = slash + 1;
  }
  if (path.size() > 1 && path.ends_with('/')) push("/");
}

void XMLReader::PathComponents::push(std::string_view component) {
  if (count_ < inline_.size()) {
    inline_[count_++] = component;
    return;
  }
  if (more_.empty()) more_.assign(inline_.begin(), inline_.end());
  more_.push_back(component);
}

XMLReader::Pending* XMLReader::Frame::find(std::string_view key) {
  if (!index.empty()) {
    auto found = index.find(key);
    return found == index.end() ? nullptr : &entries[found->second];
  }
  for (Pending& entry : entries) {
    if (entry.key == key) return &entry;
  }
  return nullptr;
}

void XMLReader::Frame::add(std::string_view key, XMLNode value) {
  if (!index.empty()) index.emplace(key, entries.size());
  entries.push_back({key, value});
  if (index.empty() && entries.size() > kIndexThreshold) {
    for (std::size_t i = 0; i < entries.size(); ++i) index.emplace(entries[i].key, i);
  }
}

void XMLReader::Frame::append(Pending& entry, XMLNode value) {
  if (entry.array == Pending::kNoArray) {
    if (arraysInUse == arrays.size()) arrays.emplace_back();
    entry.array = arraysInUse++;
    arrays[entry.array].clear();
    arrays[entry.array].push_back(entry.value);
  }
  arrays[entry.array].push_back(value);
}

void XMLReader::Frame::clear() {
  name = {};
  entries.clear();
  index.clear();
  arraysInUse = 0;
}

XMLNode XMLReader::Frame::dictionary(XMLArena& arena) {
  auto* stored = arena.allocate<XMLNode::Entry>(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    XMLNode value = entries[i].value;
    if (entries[i].array != Pending::kNoArray) {
      const auto& elements = arrays[entries[i].array];
      auto* storedElements = arena.allocate<XMLNode>(elements.size());
      std::uninitialized_copy(elements.begin(), elements.end(), storedElements);
      value = XMLNode(XMLNode::Kind::kArray, storedElements, elements.size());
    }
    new (stored + i) XMLNode::Entry{entries[i].key, value};
  }
  const XMLNode dictionary(XMLNode::Kind::kDictionary, stored, entries.size());
  clear();
  return dictionary;
}

std::optional<XMLTree> XMLReader::dictionaryForXMLData(const Data& data,
                                                       std::optional<Error>* error) {
  return dictionaryForXMLData(data, 0, error);
}

std::optional<XMLTree> XMLReader::dictionaryForXMLData(const Data& data, unsigned long options,
                                                       std::optional<Error>* error) {
  XMLReader reader(error);
  return reader.objectWithData(data, options);
}

std::optional<XMLTree> XMLReader::dictionaryForXMLString(const std::string& string,
                                                         std::optional<Error>* error) {
  return dictionaryForXMLData(string, 0, error);
}

std::optional<XMLTree> XMLReader::dictionaryForXMLString(const std::string& string,
                                                         unsigned long options,
                                                         std::optional<Error>* error) {
  return dictionaryForXMLData(string, options, error);
}

std::vector<XMLReader::Frame>& XMLReader::spareFrames() {
  thread_local std::vector<Frame> frames;
  return frames;
}

std::optional<XMLTree> XMLReader::objectWithData(const Data& data, unsigned long options) {
  // The frames the last conversion on this thread left, with the room they had grown to.
  dictionaryStack_ = std::exchange(spareFrames(), {});
  if (dictionaryStack_.empty()) dictionaryStack_.emplace_back();
  depth_ = 1;
  textInProgress_.clear();
  inCdata_ = false;
  tooDeep_ = false;
  // Blocks about the document's size: a typical answer's tree fits in one or two of them.
  arena_ = std::make_unique<XMLArena>(std::clamp<std::size_t>(data.size(), 4096, 64 * 1024));
  namespaces_ = (options & kProcessNamespaces) != 0;
  gatherCdata_ = (options & kGatherCdata) != 0;

  // Prefix reports and external entities need no set-up: the reader ignores prefix mappings and
  // installs no external-entity handler, so expat skips such references and never reads a DTD
  // from outside the document. The thread's last parser of the same mode is reset rather than a
  // new one made: a reset parser starts as a new one (handlers, user data, options, DTD, hash
  // salt) but keeps its buffers and tables.
  Parser kept = std::move(spareParser(namespaces_));
  if (kept) {
    XML_ParserReset(kept.get(), nullptr);
  } else {
    kept.reset(namespaces_ ? XML_ParserCreateNS(nullptr, kNamespaceSeparator)
                           : XML_ParserCreate(nullptr));
    if (!kept) throw std::bad_alloc();
  }
  XML_Parser parser = kept.get();
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

  std::optional<XMLTree> result;
  if (status == XML_STATUS_OK) {
    const XMLNode root = dictionaryStack_.front().dictionary(*arena_);
    result = XMLTree(std::move(arena_), root);
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
  parser_ = nullptr;
  if (data.size() <= kSpareParserBytes) spareParser(namespaces_) = std::move(kept);
  // Handed on to the next conversion on this thread, unless a large document left much room.
  std::size_t room = 0;
  for (Frame& frame : dictionaryStack_) {
    frame.clear();
    room += frame.entries.capacity();
    for (const auto& array : frame.arrays) room += array.capacity();
  }
  if (room <= kSpareRoom) spareFrames() = std::move(dictionaryStack_);
  dictionaryStack_.clear();
  depth_ = 0;
  textInProgress_.clear();
  arena_.reset();
  return result;
}

std::string_view XMLReader::reportedName(const char* name) const {
  const std::string_view text(name);
  if (!namespaces_) return text;
  // The local name follows the last separator (memrchr: names are measured and searched by the
  // C library's word-at-a-time loops, not byte by byte).
  const void* separator = memrchr(text.data(), kNamespaceSeparator, text.size());
  if (separator == nullptr) return text;
  return text.substr(static_cast<std::size_t>(static_cast<const char*>(separator) - name) + 1);
}

void XMLReader::startElement(const char* name, const char** attributes) {
  if (depth_ > kMaximumDepth) {
    tooDeep_ = true;
    XML_StopParser(parser_, XML_FALSE);
    return;
  }
  if (depth_ == dictionaryStack_.size()) dictionaryStack_.emplace_back();
  Frame& child = dictionaryStack_[depth_];
  child.name = arena_->copy(reportedName(name));
  bool prefixed = false;
  for (const char** attribute = attributes; *attribute != nullptr; attribute += 2) {
    const std::string_view value = arena_->copy(attribute[1]);
    const XMLNode string(XMLNode::Kind::kString, value.data(), value.size());
    // Two attributes can share a local name when their prefixes differ; the later one wins.
    // Expat refuses a name written twice, so names can only meet once a prefix has been read
    // away: until then there is nothing to look for.
    const std::string_view key = reportedName(attribute[0]);
    prefixed = prefixed || key.data() != attribute[0];
    if (Pending* existing = prefixed ? child.find(key) : nullptr) {
      *existing = {existing->key, string};
    } else {
      child.add(arena_->copy(key), string);
    }
  }
  ++depth_;
}

void XMLReader::endElement() {
  if (tooDeep_) return;
  Frame& current = dictionaryStack_[depth_ - 1];
  if (!textInProgress_.empty()) {
    const std::string_view text = arena_->copy(trimmed(textInProgress_));
    const XMLNode string(XMLNode::Kind::kString, text.data(), text.size());
    if (Pending* existing = current.find(kXMLReaderTextNodeKey)) {
      *existing = {existing->key, string};
    } else {
      current.add(kXMLReaderTextNodeKey, string);
    }
    textInProgress_.clear();
  }
  const std::string_view name = current.name;
  const XMLNode child = current.dictionary(*arena_);
  --depth_;

  // The first child of a name is stored as it is; a second one turns the entry into an array of
  // both, and later ones are appended. An attribute of the same name joins the array first.
  Frame& parent = dictionaryStack_[depth_ - 1];
  if (Pending* existing = parent.find(name)) {
    parent.append(*existing, child);
  } else {
    parent.add(name, child);
  }
}

void XMLReader::characters(std::string_view text) {
  if (inCdata_ && !gatherCdata_) return;
  textInProgress_.append(text);
}

std::vector<const XMLNode*> XMLReader::objectsForPath(std::string_view path, const XMLNode& data) {
  std::vector<const XMLNode*> nodes;
  forEachNodeAtPath(path, data, [&](const XMLNode& node) {
    nodes.push_back(&node);
    return true;
  });
  return nodes;
}

std::optional<std::string> XMLReader::valueForPath(std::string_view path, const XMLNode& data) {
  const XMLNode* text = textForPath(path, data);
  if (text == nullptr) return std::nullopt;
  return std::optional<std::string>(std::in_place, text->string());
}

const XMLNode* XMLReader::textForPath(std::string_view path, const XMLNode& data) {
  const XMLNode* found = nullptr;
  forEachNodeAtPath(path, data, [&](const XMLNode& node) {
    if (const XMLNode* text = node.find(kXMLReaderTextNodeKey); text && text->isString()) {
      found = text;
    }
    return false;  // only the first node counts
  });
  return found;
}

std::vector<std::string> XMLReader::valuesForPath(std::string_view path, const XMLNode& data) {
  std::vector<std::string> values;
  forEachNodeAtPath(path, data, [&](const XMLNode& node) {
    if (const XMLNode* text = node.find(kXMLReaderTextNodeKey); text && text->isString()) {
      values.emplace_back(text->string());
    }
    return true;
  });
  return values;
}

}  // namespace zorva
