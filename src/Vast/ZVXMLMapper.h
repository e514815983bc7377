#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <zorva/ZVTypes.h>

#include "Vast/XMLTree.h"

namespace zorva {

/// A model object made from one element dictionary of the XML reader's tree.
///
/// A mapper class offers `static std::shared_ptr<T> create(const XMLNode& dictionary)`, which
/// answers nullptr when it cannot make an object from the node (a string where an attribute
/// collided with a child element, for one); `XMLReader::obects<T>` makes objects through it.
/// The classes a document holds many of (trackers, media files) offer `void read(const XMLNode&
/// dictionary)` instead, which fills a default-made object from a dictionary, so that
/// `XMLReader::obectsInOneBlock<T>` can make a whole list in one allocation.
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
concept ZVXMLMapping = std::derived_from<T, ZVXMLMapper> && requires(const XMLNode& dictionary) {
  { T::create(dictionary) } -> std::same_as<std::shared_ptr<T>>;
};

template <class T>
concept ZVXMLListMapping = std::derived_from<T, ZVXMLMapper> && std::default_initializable<T> &&
    requires(T& object, const XMLNode& dictionary) {
  { object.read(dictionary) } -> std::same_as<void>;
};

}  // namespace zorva
