#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <zorva/ZVTypes.h>

#include "Vast/XMLTree.h"

namespace zorva {

/// Where the strings of one document's model live: the model objects hold views into it and
/// share its ownership, so that a string costs a copy into a block of characters rather than an
/// allocation of its own. Filled while the model is made, read-only afterwards.
class ZVXMLStrings {
 public:
  ZVXMLStrings() : arena_(std::make_shared<XMLArena>(kBlockSize)) {}

  /// A copy of `entry`'s string; nothing when there is no entry or it is not a string.
  std::optional<std::string_view> copy(const XMLNode* entry) {
    if (entry == nullptr || !entry->isString()) return std::nullopt;
    return arena_->copy(entry->string());
  }
  /// Shares the ownership of every copy made.
  std::shared_ptr<const void> owner() const { return arena_; }

 private:
  // About the strings of a typical document's model.
  static constexpr std::size_t kBlockSize = 4096;
  std::shared_ptr<XMLArena> arena_;
};

/// A model object made from one element dictionary of the XML reader's tree.
///
/// A mapper class offers `static std::shared_ptr<T> create(const XMLNode& dictionary,
/// ZVXMLStrings& strings)`, which answers nullptr when it cannot make an object from the node (a
/// string where an attribute collided with a child element, for one); `XMLReader::obects<T>`
/// makes objects through it. The classes a document holds many of (trackers, media files) also
/// offer `void read(const XMLNode& dictionary, ZVXMLStrings& strings)`, which fills a default-made
/// object from a dictionary, so that `XMLReader::objectsInOneBlock<T>` can make a whole list in
/// one allocation; their `create` takes the dictionary alone (`readAlone`). Strings kept as views
/// are copied into `strings`.
class ZVXMLMapper {
 public:
  virtual ~ZVXMLMapper() = 0;

 protected:
  /// The entry under `key` when it is a string (an attribute, or a text). An entry of another
  /// kind — a child element that shares the attribute's name — reads as absent.
  static std::optional<std::string> stringForKey(const XMLNode& dictionary, std::string_view key);
};

inline ZVXMLMapper::~ZVXMLMapper() = default;

inline std::optional<std::string> ZVXMLMapper::stringForKey(const XMLNode& dictionary,
                                                            std::string_view key) {
  const XMLNode* entry = dictionary.find(key);
  if (entry == nullptr || !entry->isString()) return std::nullopt;
  return std::optional<std::string>(std::in_place, entry->string());
}

template <class T>
concept ZVXMLMapping = std::derived_from<T, ZVXMLMapper> &&
    requires(const XMLNode& dictionary, ZVXMLStrings& strings) {
  { T::create(dictionary, strings) } -> std::same_as<std::shared_ptr<T>>;
};

template <class T>
concept ZVXMLListMapping = std::derived_from<T, ZVXMLMapper> && std::default_initializable<T> &&
    requires(T& object, const XMLNode& dictionary, ZVXMLStrings& strings) {
  { object.read(dictionary, strings) } -> std::same_as<void>;
};

/// One object read by `T::read` from `dictionary` with strings of its own, which the pointer
/// keeps alive; nullptr when the node is not a dictionary. The list classes' `create`.
template <ZVXMLListMapping T>
std::shared_ptr<T> readAlone(const XMLNode& dictionary) {
  if (!dictionary.isDictionary()) return nullptr;
  struct Block {
    std::shared_ptr<const void> strings;
    T object;
  };
  ZVXMLStrings strings;
  auto block = std::make_shared<Block>();
  block->strings = strings.owner();
  block->object.read(dictionary, strings);
  return std::shared_ptr<T>(block, &block->object);
}

}  // namespace zorva
