#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <zorva/ZVTypes.h>

namespace zorva {

/// One node of the XML reader's tree: a dictionary (entries in document order), an array, a
/// string, or nothing (the node a missing key answers). Nodes are read-only views into the
/// `XMLTree` that holds them and live as long as it does.
class XMLNode {
 public:
  struct Entry;
  enum class Kind : std::uint8_t { kNull, kDictionary, kArray, kString };

  constexpr XMLNode() = default;

  Kind kind() const { return kind_; }
  bool isNull() const { return kind_ == Kind::kNull; }
  bool isDictionary() const { return kind_ == Kind::kDictionary; }
  bool isArray() const { return kind_ == Kind::kArray; }
  bool isString() const { return kind_ == Kind::kString; }

  /// A string's text; empty for every other kind.
  std::string_view string() const {
    return isString() ? std::string_view(static_cast<const char*>(data_), size_) : "";
  }
  /// A dictionary's entries in document order; empty for every other kind.
  std::span<const Entry> entries() const;
  /// An array's elements in document order; empty for every other kind.
  std::span<const XMLNode> elements() const {
    return isArray() ? std::span(static_cast<const XMLNode*>(data_), size_)
                     : std::span<const XMLNode>();
  }
  /// How many entries or elements a dictionary or an array holds; 0 for the other kinds.
  std::size_t size() const { return isDictionary() || isArray() ? size_ : 0; }

  /// The entry under `key` of a dictionary, or nullptr (also for the other kinds).
  const XMLNode* find(std::string_view key) const;
  /// The entry under `key`, or a null node when there is none.
  const XMLNode& operator[](std::string_view key) const;

  /// The same tree as the platform's dynamic value (dictionary = object, array, string, null),
  /// for callers that keep or write it.
  Value toValue() const;

 private:
  friend class XMLReader;
  XMLNode(Kind kind, const void* data, std::size_t size) : kind_(kind), size_(size), data_(data) {}

  Kind kind_ = Kind::kNull;
  std::size_t size_ = 0;
  const void* data_ = nullptr;
};

struct XMLNode::Entry {
  std::string_view key;
  XMLNode value;
};

inline std::span<const XMLNode::Entry> XMLNode::entries() const {
  return isDictionary() ? std::span(static_cast<const Entry*>(data_), size_)
                        : std::span<const Entry>();
}

/// Bump storage for one tree: its nodes, entries and strings live in a few large blocks that go
/// away together, so a document costs a handful of allocations instead of several per element.
class XMLArena {
 public:
  explicit XMLArena(std::size_t blockSize) : blockSize_(blockSize) {}
  XMLArena(const XMLArena&) = delete;
  XMLArena& operator=(const XMLArena&) = delete;

  /// `count` uninitialised objects of `T` (trivially destructible: nothing is ever destroyed).
  template <class T>
  T* allocate(std::size_t count) {
    static_assert(std::is_trivially_destructible_v<T>);
    const std::size_t size = count * sizeof(T);
    // The cursor is rounded up to the type's alignment; blocks start aligned for any type.
    const std::size_t padding = -reinterpret_cast<std::uintptr_t>(next_) & (alignof(T) - 1);
    if (next_ != nullptr && padding + size <= left_) {
      T* result = reinterpret_cast<T*>(next_ + padding);
      next_ += padding + size;
      left_ -= padding + size;
      return result;
    }
    return static_cast<T*>(allocateInNewBlock(size));
  }
  /// A copy of `text` that lives as long as the arena.
  std::string_view copy(std::string_view text) {
    if (text.empty()) return {};
    auto* bytes = allocate<char>(text.size());
    std::memcpy(bytes, text.data(), text.size());
    return {bytes, text.size()};
  }

 private:
  void* allocateInNewBlock(std::size_t size);

  std::size_t blockSize_;
  std::vector<std::unique_ptr<std::byte[]>> blocks_;
  std::byte* next_ = nullptr;
  std::size_t left_ = 0;
};

/// A converted document: the root dictionary and the storage behind every node under it. Moving
/// a tree keeps its nodes where they are and leaves the moved-from tree empty.
class XMLTree {
 public:
  /// An empty tree: its root is a null node.
  XMLTree() = default;
  XMLTree(XMLTree&& other) noexcept
      : arena_(std::move(other.arena_)), root_(std::exchange(other.root_, XMLNode())) {}
  XMLTree& operator=(XMLTree&& other) noexcept {
    arena_ = std::move(other.arena_);
    root_ = std::exchange(other.root_, XMLNode());
    return *this;
  }

  const XMLNode& root() const { return root_; }
  const XMLNode* find(std::string_view key) const { return root_.find(key); }
  const XMLNode& operator[](std::string_view key) const { return root_[key]; }

 private:
  friend class XMLReader;
  XMLTree(std::unique_ptr<XMLArena> arena, XMLNode root) : arena_(std::move(arena)), root_(root) {}

  std::unique_ptr<XMLArena> arena_;
  XMLNode root_;
};

}  // namespace zorva
