#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <zorva/ZVTypes.h>

#include "Vast/XMLTree.h"
#include "Vast/ZVXMLMapper.h"

struct XML_ParserStruct;  // expat

namespace zorva {

/// The key of an element's text in the reader's tree.
inline constexpr const char* kXMLReaderTextNodeKey = "text";
/// Exported for callers that mark attributes; the reader itself never prefixes attribute names.
inline constexpr const char* kXMLReaderAttributePrefix = "@";

/// Turns an XML document into a tree of dictionaries, arrays and strings (expat underneath) and
/// answers slash-separated path queries on such trees.
///
/// The tree: the root is a dictionary whose one entry is keyed by the document element's name.
/// An element is a dictionary holding its attributes (name → value) and its children (name →
/// dictionary; a second child of the same name turns the entry into an array of both, in document
/// order). Attributes, children and the text share one key space: an attribute and a child of the
/// same name become [attribute string, child dictionary], and an attribute named "text" is
/// overwritten by the element's text. The text (key "text", trimmed of white space and newlines)
/// is the character data read since the previous element ended, given to the next element that
/// ends — so indentation before a child lands, trimmed to "", in that child. CDATA content never
/// reaches any text, unless `kGatherCdata` asks for it.
///
/// Hostile input: external entities and external DTD subsets are never loaded, whatever the
/// options (no file is read, nothing is fetched); references to them are skipped. Entity
/// expansion is bounded by expat's amplification limit. Elements nested deeper than
/// `kMaximumDepth` end the conversion with expat's "parsing aborted" error, so that nothing that
/// walks the tree recursively can run out of stack.
///
/// The tree is an `XMLTree` of `XMLNode`s kept in one arena per document rather than the
/// platform's dynamic value, whose every dictionary and string is an allocation of its own:
/// building and freeing those cost more than expat's parse itself. `XMLNode::toValue` gives the
/// same tree as a dynamic value.
///
/// Conversions run synchronously on the caller's thread; the queries are pure functions.
class XMLReader {
 public:
  /// Option bits.
  enum Options : unsigned long {
    /// Names are reported without their namespace (local names); xmlns attributes are consumed.
    /// Without it, names are reported as written ("vast:Ad") and xmlns attributes are ordinary
    /// attributes.
    kProcessNamespaces = 1 << 0,
    /// Asks for namespace-prefix reports. The reader listens to no prefix-mapping events, so the
    /// tree is the same with or without it.
    kReportNamespacePrefixes = 1 << 1,
    /// Asks for external entities to be resolved. Accepted and not honoured: the reader never
    /// loads anything from outside the document, so the tree is the same with or without it.
    kResolveExternalEntities = 1 << 2,
    /// CDATA content is gathered exactly like plain character data: into the same text, with the
    /// same trimming. Without it, CDATA sections contribute nothing.
    kGatherCdata = 1 << 3,
  };

  /// How deep elements may nest (the document element is at depth 1).
  static constexpr std::size_t kMaximumDepth = 1024;
  /// Error domain of conversion failures; the code is expat's `XML_Error`.
  static constexpr const char* kErrorDomain = "expat";

  /// The root dictionary of `data`, or nothing when it is not well-formed; then `*error` holds
  /// the parse error (domain "expat", code, description with line and column). `*error` is left
  /// untouched on success. `error` must not be null.
  static std::optional<XMLTree> dictionaryForXMLData(const Data& data, std::optional<Error>* error);
  static std::optional<XMLTree> dictionaryForXMLData(const Data& data, unsigned long options,
                                                     std::optional<Error>* error);
  /// As the data variants, on the UTF-8 bytes of `string`.
  static std::optional<XMLTree> dictionaryForXMLString(const std::string& string,
                                                       std::optional<Error>* error);
  static std::optional<XMLTree> dictionaryForXMLString(const std::string& string,
                                                       unsigned long options,
                                                       std::optional<Error>* error);

  /// The nodes at `path` ("Ad/InLine", no leading "/") under the dictionary `data`: every match
  /// at every level fans out, in document order. An array entry is taken as it is, so a node may
  /// be a string where an attribute collided with a child element. The pointers point into
  /// `data` and live as long as it does unchanged.
  static std::vector<const XMLNode*> objectsForPath(std::string_view path, const XMLNode& data);
  /// The "text" of the first node at `path`, or nothing when there is no node, it is not a
  /// dictionary, or its text is missing or not a string.
  static std::optional<std::string> valueForPath(std::string_view path, const XMLNode& data);
  /// The string node `valueForPath` reads, or nullptr when it answers nothing.
  static const XMLNode* textForPath(std::string_view path, const XMLNode& data);
  /// The "text" of every node at `path` that has a string text, in document order.
  static std::vector<std::string> valuesForPath(std::string_view path, const XMLNode& data);
  /// The model objects made by `T::create` from the nodes at `path`, in order; nodes for which
  /// `create` answers nullptr are skipped.
  template <ZVXMLMapping T>
  static std::vector<std::shared_ptr<T>> obects(std::string_view path, const XMLNode& data,
                                                ZVXMLStrings& strings) {
    // Counted first, so that the list is made once at its size.
    std::size_t count = 0;
    forEachNodeAtPath(path, data, [&](const XMLNode&) { return ++count != 0; });
    std::vector<std::shared_ptr<T>> objects;
    objects.reserve(count);
    forEachNodeAtPath(path, data, [&](const XMLNode& node) {
      if (auto object = T::create(node, strings)) objects.push_back(std::move(object));
      return true;
    });
    return objects;
  }
  /// The first model object `T::create` makes from the nodes at `path`, or nullptr; the nodes
  /// after it are not read.
  template <ZVXMLMapping T>
  static std::shared_ptr<T> firstObject(std::string_view path, const XMLNode& data,
                                        ZVXMLStrings& strings) {
    std::shared_ptr<T> object;
    forEachNodeAtPath(path, data, [&](const XMLNode& node) {
      object = T::create(node, strings);
      return object == nullptr;
    });
    return object;
  }
  /// The model objects read by `T::read` from the dictionaries at `path`, in order (other nodes
  /// are skipped), made in one allocation: each pointer shares the ownership of all of them and
  /// of `strings`.
  template <ZVXMLListMapping T>
  static std::vector<std::shared_ptr<T>> objectsInOneBlock(std::string_view path,
                                                           const XMLNode& data,
                                                           ZVXMLStrings& strings) {
    std::size_t count = 0;
    forEachNodeAtPath(path, data, [&](const XMLNode& node) {
      count += node.isDictionary() ? 1 : 0;
      return true;
    });
    std::vector<std::shared_ptr<T>> objects;
    if (count == 0) return objects;
    objects.reserve(count);
    struct Block {
      std::shared_ptr<const void> strings;
      std::vector<T> objects;
    };
    const auto block = std::make_shared<Block>(Block{strings.owner(), std::vector<T>(count)});
    forEachNodeAtPath(path, data, [&](const XMLNode& node) {
      if (!node.isDictionary()) return true;
      T& object = block->objects[objects.size()];
      object.read(node, strings);
      objects.emplace_back(block, &object);
      return true;
    });
    return objects;
  }
  /// Calls `visit(node)` for each node `objectsForPath` would answer, in the same order, without
  /// gathering them; the walk stops when `visit` answers false.
  template <class Visit>
  static void forEachNodeAtPath(std::string_view path, const XMLNode& data, Visit&& visit) {
    const PathComponents components(path);
    if (!components.get().empty()) visitPath(components.get(), data, visit);
  }

  /// One conversion's state; use the class operations above.
  explicit XMLReader(std::optional<Error>* errorPointer) : errorPointer_(errorPointer) {}
  std::optional<XMLTree> objectWithData(const Data& data, unsigned long options);

 private:
  struct Handlers;

  // A path's components as the phone platform splits a path: a leading or trailing "/" is a
  // component of its own, empty components in between vanish. Short paths need no allocation.
  class PathComponents {
   public:
    explicit PathComponents(std::string_view path);
    std::span<const std::string_view> get() const {
      return more_.empty() ? std::span(inline_.data(), count_) : std::span(more_);
    }

   private:
    void push(std::string_view component);
    std::array<std::string_view, 8> inline_{};
    std::size_t count_ = 0;
    std::vector<std::string_view> more_;
  };

  template <class Visit>
  static bool visitPath(std::span<const std::string_view> components, const XMLNode& node,
                        Visit& visit) {
    if (components.empty()) return visit(node);
    const XMLNode* entry = node.find(components.front());
    if (entry == nullptr) return true;
    // An array is taken element by element, whatever each element is; a string entry is no node.
    if (entry->isArray()) {
      for (const XMLNode& element : entry->elements()) {
        if (!visitPath(components.subspan(1), element, visit)) return false;
      }
      return true;
    }
    return !entry->isDictionary() || visitPath(components.subspan(1), *entry, visit);
  }

  // An entry of an open element. A second child of the same name turns it into an array, whose
  // elements gather in the frame's array `array` until the element ends.
  struct Pending {
    static constexpr std::size_t kNoArray = static_cast<std::size_t>(-1);
    std::string_view key;
    XMLNode value;
    std::size_t array = kNoArray;
  };
  // An open element. Its entries are gathered here and become its dictionary in the arena when
  // it ends, so that nothing already built is copied while siblings keep arriving; `index` (made
  // once an element has many keys) keeps lookups cheap for elements with thousands of distinct
  // children. A frame is emptied, not freed, when its element ends, and serves the next element
  // opened at its depth with the room it already has.
  struct Frame {
    std::string_view name;
    std::vector<Pending> entries;
    std::vector<std::vector<XMLNode>> arrays;
    std::size_t arraysInUse = 0;
    std::unordered_map<std::string_view, std::size_t> index;
    Pending* find(std::string_view key);
    void add(std::string_view key, XMLNode value);
    void append(Pending& entry, XMLNode value);
    XMLNode dictionary(XMLArena& arena);
    void clear();
  };
  static std::vector<Frame>& spareFrames();

  void startElement(const char* name, const char** attributes);
  void endElement();
  void characters(std::string_view text);
  std::string_view reportedName(const char* name) const;

  std::optional<Error>* errorPointer_;
  ::XML_ParserStruct* parser_ = nullptr;
  std::unique_ptr<XMLArena> arena_;
  // Frames [0, depth_) are the open elements (0 is the root); later ones wait for reuse.
  std::vector<Frame> dictionaryStack_;
  std::size_t depth_ = 0;
  std::string textInProgress_;
  bool namespaces_ = false;
  bool inCdata_ = false;
  bool gatherCdata_ = false;
  bool tooDeep_ = false;
};

}  // namespace zorva
