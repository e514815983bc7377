#include "Vast/XMLTree.h"

#include <algorithm>

namespace zorva {

namespace {

const XMLNode kNullNode;

}  // namespace

const XMLNode* XMLNode::find(std::string_view key) const {
  for (const Entry& entry : entries()) {
    if (entry.key == key) return &entry.value;
  }
  return nullptr;
}

const XMLNode& XMLNode::operator[](std::string_view key) const {
  const XMLNode* found = find(key);
  return found != nullptr ? *found : kNullNode;
}

Value XMLNode::toValue() const {
  switch (kind_) {
    case Kind::kNull:
      return Value();
    case Kind::kString:
      return Value(std::string(string()));
    case Kind::kArray: {
      Value array = Value::array();
      for (const XMLNode& element : elements()) array.push_back(element.toValue());
      return array;
    }
    case Kind::kDictionary:
      break;
  }
  Value dictionary = Value::object();
  auto& object = dictionary.get_ref<Value::object_t&>();
  object.reserve(size_);
  for (const Entry& entry : entries()) object.emplace_back(entry.key, entry.value.toValue());
  return dictionary;
}

void* XMLArena::allocateInNewBlock(std::size_t size) {
  // A request larger than a block gets a block of its own size; blocks come from the global
  // allocator, aligned for every object kind the tree holds.
  const std::size_t blockSize = std::max(size, blockSize_);
  blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(blockSize));
  std::byte* block = blocks_.back().get();
  next_ = block + size;
  left_ = blockSize - size;
  return block;
}

}  // namespace zorva
