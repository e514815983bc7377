#include "zorva/platform/JSONSerialization.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorva::platform {

namespace {

// 2^53: every whole double below it is exactly an integer.
constexpr double kLargestExactWhole = 9007199254740992.0;

// Whether every number in `v` is finite.
bool allNumbersFinite(const Value& v) {
  switch (v.type()) {
    case Value::value_t::object:
    case Value::value_t::array:
      for (const auto& child : v) {
        if (!allNumbersFinite(child)) return false;
      }
      return true;
    case Value::value_t::number_float:
      return std::isfinite(v.get<double>());
    default:
      return true;
  }
}

// Printable ASCII other than the quote and the backslash: written by nlohmann exactly as it is.
bool needsNoEscaping(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= 0x20 && c <= 0x7E && c != '"' && c != '\\'; });
}

void writeString(const std::string& text, std::string& out) {
  if (needsNoEscaping(text)) {
    out += '"';
    out += text;
    out += '"';
  } else {
    // Escapes, UTF-8 checks and their errors are nlohmann's own.
    out += Value(text).dump();
  }
}

template <typename Integer>
void writeInteger(Integer number, std::string& out) {
  char buffer[24];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, number).ptr;
  out.append(buffer, end);
}

// Appends the compact text nlohmann's dump gives for `v`, byte for byte, with whole reals below
// 2^53 written as integers. Containers and common strings are written here, without copying the
// tree; reals and strings that need escaping are written by nlohmann.
void write(const Value& v, std::string& out) {
  switch (v.type()) {
    case Value::value_t::object: {
      out += '{';
      bool first = true;
      for (const auto& [key, child] : v.get_ref<const Value::object_t&>()) {
        if (!first) out += ',';
        first = false;
        writeString(key, out);
        out += ':';
        write(child, out);
      }
      out += '}';
      return;
    }
    case Value::value_t::array: {
      out += '[';
      bool first = true;
      for (const auto& child : v) {
        if (!first) out += ',';
        first = false;
        write(child, out);
      }
      out += ']';
      return;
    }
    case Value::value_t::string:
      writeString(v.get_ref<const std::string&>(), out);
      return;
    case Value::value_t::boolean:
      out += v.get<bool>() ? "true" : "false";
      return;
    case Value::value_t::null:
      out += "null";
      return;
    case Value::value_t::number_integer:
      writeInteger(v.get<std::int64_t>(), out);
      return;
    case Value::value_t::number_unsigned:
      writeInteger(v.get<std::uint64_t>(), out);
      return;
    case Value::value_t::number_float: {
      const double d = v.get<double>();
      if (d == std::trunc(d) && std::fabs(d) < kLargestExactWhole) {
        writeInteger(static_cast<std::int64_t>(d), out);
      } else {
        out += v.dump();
      }
      return;
    }
    default:
      out += v.dump();
      return;
  }
}

void fail(std::optional<Error>* error, int code, const std::string& what) {
  if (error != nullptr)
    *error = Error::withDescription(JSONSerialization::kErrorDomain, code, what);
}

// Walks a text as nlohmann's reader asks for it, one character at a time, reading a run of white
// space between tokens longer than `kLongRun` as its first character. The reader keeps every
// character of the token it is at, white space before it included, for its error messages: a
// body of 50 MB of spaces was held twice more, and its error described it in full. The values
// read are the same; an error's position counts such a run as one character.
//
// Over a text the reader owns (`release`), the pages already read are given back to the system
// as it goes: the reader holds a string token twice (what it means and, for errors, what it
// said), so a 50 MB string would otherwise be held three times. Nothing behind the reader's
// place is read again.
class CollapsingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  static constexpr std::ptrdiff_t kLongRun = 4096;

  CollapsingIterator(const char* at, const char* end, bool release = false)
      : at_(at), end_(end), released_(release ? pageAfter(at) : nullptr) {}

  reference operator*() const { return *at_; }
  bool operator==(const CollapsingIterator& other) const { return at_ == other.at_; }

  CollapsingIterator& operator++() {
    const char c = *at_++;
    if (inString_) {
      if (escaped_) {
        escaped_ = false;
      } else if (c == '\\') {
        escaped_ = true;
      } else if (c == '"') {
        inString_ = false;
      }
    } else if (c == '"') {
      inString_ = true;
    } else if (isSpace(c) && at_ >= runEnd_) {
      // A run is measured once, at its first character.
      runEnd_ = std::find_if_not(at_, end_, isSpace);
      if (runEnd_ - at_ >= kLongRun) at_ = runEnd_;
    }
    if (released_ != nullptr && at_ - released_ >= kReleaseStep) {
      const char* const upTo = pageAfter(at_ - pageSize() + 1);  // the page holding at_ stays
      madvise(const_cast<char*>(released_), static_cast<std::size_t>(upTo - released_),
              MADV_DONTNEED);
      released_ = upTo;
    }
    return *this;
  }

 private:
  static constexpr std::ptrdiff_t kReleaseStep = 1 << 20;

  // The system's page size: `madvise` rounds a length up to whole pages, so a guessed smaller
  // size would give back the page still being read on a system with larger pages.
  static std::ptrdiff_t pageSize() {
    static const std::ptrdiff_t size = sysconf(_SC_PAGESIZE);
    return size;
  }

  // The first page boundary at or after `at`.
  static const char* pageAfter(const char* at) {
    const auto address = reinterpret_cast<std::uintptr_t>(at);
    const auto page = static_cast<std::uintptr_t>(pageSize());
    return reinterpret_cast<const char*>((address + page - 1) & ~(page - 1));
  }

  static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

  const char* at_;
  const char* end_;
  const char* runEnd_ = nullptr;
  const char* released_;  // what is before it went back to the system; null: keep everything
  bool inString_ = false;
  bool escaped_ = false;
};

// Builds the tree as nlohmann's own builder does, in time linear in the text. nlohmann's builder
// finds a repeated key by walking every earlier entry of its object (an ordered object is a list
// of entries), so an object of n keys costs n²/2 key comparisons: a megabyte of short keys takes
// minutes. Here an object that grows past a few entries gets an index of its keys while it is
// open; a repeated key still replaces the earlier value in the earlier key's place, as there.
//
// Arrays and objects nesting deeper than the limit stop the reading: the reader keeps its place
// on the heap, but copying, comparing and writing a tree recurse, and each open level costs about
// a hundred bytes, so an unclosed "[[[[..." of the transport's 64 MiB would cost gigabytes before
// failing at its end.
class TreeBuilder {
 public:
  explicit TreeBuilder(Value& root) : root_(root) {}

  bool null() { return put(nullptr) != nullptr; }
  bool boolean(bool value) { return put(value) != nullptr; }
  bool number_integer(Value::number_integer_t value) { return put(value) != nullptr; }
  bool number_unsigned(Value::number_unsigned_t value) { return put(value) != nullptr; }
  bool number_float(Value::number_float_t value, const Value::string_t&) {
    return put(value) != nullptr;
  }
  // The reader's buffer is taken, not copied: a 50 MB string costs its size once.
  bool string(Value::string_t& value) { return put(std::move(value)) != nullptr; }
  bool binary(Value::binary_t& value) { return put(std::move(value)) != nullptr; }
  bool start_object(std::size_t) { return open(Value::value_t::object); }
  bool start_array(std::size_t) { return open(Value::value_t::array); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }

  bool key(Value::string_t& name) {
    Open& top = open_.back();
    auto& entries = top.container->get_ref<Value::object_t&>();
    if (!top.keys && entries.size() < kIndexedFrom) {
      const auto found = std::find_if(entries.begin(), entries.end(),
                                      [&](const auto& entry) { return entry.first == name; });
      if (found != entries.end()) {
        slot_ = &found->second;
        return true;
      }
      entries.emplace_back(std::move(name), nullptr);
      slot_ = &entries.back().second;
      if (entries.size() == kIndexedFrom) index(top);
      return true;
    }
    // Entry first, then the index: the index compares entries by position.
    entries.emplace_back(std::move(name), nullptr);
    const std::size_t at = entries.size() - 1;
    const std::size_t earlier = top.keys->insert(at);
    if (earlier != at) entries.pop_back();
    slot_ = &entries.begin()[static_cast<std::ptrdiff_t>(earlier)].second;
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& e) {
    throw e;
  }

 private:
  static constexpr std::size_t kIndexedFrom = 16;

  // The keys of one large open object: an open-addressing table of entry positions, with each
  // entry's hash kept beside it, so that growing the table never reads a key again.
  class KeyIndex {
   public:
    explicit KeyIndex(const Value::object_t& entries) : entries_(entries) {
      for (std::size_t at = 0; at < entries.size(); ++at) insert(at);
    }

    // Indexes entry `at`, the object's last, and answers `at`; or, when an earlier entry has its
    // key, answers that entry's position and indexes nothing.
    std::size_t insert(std::size_t at) {
      const std::size_t hash = std::hash<std::string_view>()(key(at));
      if (2 * (hashes_.size() + 1) > slots_.size()) grow();
      const std::size_t mask = slots_.size() - 1;
      for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        const std::uint32_t held = slots_[slot];
        if (held == 0) {
          slots_[slot] = static_cast<std::uint32_t>(at + 1);
          hashes_.push_back(hash);
          return at;
        }
        if (hashes_[held - 1] == hash && key(held - 1) == key(at)) return held - 1;
      }
    }

   private:
    // An ordered object is a vector of entries, whose indexing the object hides behind its own.
    const std::string& key(std::size_t at) const {
      return entries_.begin()[static_cast<std::ptrdiff_t>(at)].first;
    }

    void grow() {
      slots_.assign(std::max<std::size_t>(4 * kIndexedFrom, 2 * slots_.size()), 0);
      const std::size_t mask = slots_.size() - 1;
      for (std::size_t at = 0; at < hashes_.size(); ++at) {
        std::size_t slot = hashes_[at] & mask;
        while (slots_[slot] != 0) slot = (slot + 1) & mask;
        slots_[slot] = static_cast<std::uint32_t>(at + 1);
      }
    }

    const Value::object_t& entries_;
    std::vector<std::size_t> hashes_;   // by entry position
    std::vector<std::uint32_t> slots_;  // entry position + 1, or 0 for a free slot
  };

  struct Open {
    Value* container;
    std::unique_ptr<KeyIndex> keys;
  };

  static void index(Open& top) {
    top.keys = std::make_unique<KeyIndex>(top.container->get_ref<const Value::object_t&>());
  }

  // Places `value` where the text has it: the root, the end of the open array, or the slot of
  // the key just read. Containers stay where they are placed while open: their parent gets
  // nothing new until they close.
  template <typename T>
  Value* put(T&& value) {
    if (open_.empty()) {
      root_ = Value(std::forward<T>(value));
      return &root_;
    }
    Value* container = open_.back().container;
    if (container->is_array()) {
      auto& items = container->get_ref<Value::array_t&>();
      items.emplace_back(std::forward<T>(value));
      return &items.back();
    }
    *slot_ = Value(std::forward<T>(value));
    return slot_;
  }

  bool open(Value::value_t type) {
    if (open_.size() >= JSONSerialization::kMaximumDepth) return false;
    open_.push_back({put(type), nullptr});
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  Value& root_;
  std::vector<Open> open_;
  Value* slot_ = nullptr;
};

}  // namespace

namespace {

std::optional<Value> read(const Data& data, bool release, unsigned options,
                          std::optional<Error>* error) {
  try {
    Value value;
    TreeBuilder builder(value);
    const char* const end = data.data() + data.size();
    if (!Value::sax_parse(CollapsingIterator(data.data(), end, release),
                          CollapsingIterator(end, end), &builder)) {
      fail(error, JSONSerialization::kNestingTooDeepCode,
           "JSON text nests arrays and objects deeper than " +
               std::to_string(JSONSerialization::kMaximumDepth) + " levels");
      return std::nullopt;
    }
    if (!(options & JSONSerialization::FragmentsAllowed) && !value.is_object() &&
        !value.is_array()) {
      fail(error, JSONSerialization::kFragmentNotAllowedCode,
           "JSON text did not start with array or object and option to allow "
           "fragments not set.");
      return std::nullopt;
    }
    return value;
  } catch (const nlohmann::json::exception& e) {
    fail(error, e.id, e.what());
    return std::nullopt;
  }
}

}  // namespace

std::optional<Value> JSONSerialization::JSONObjectWithData(const Data& data, unsigned options,
                                                           std::optional<Error>* error) {
  return read(data, false, options, error);
}

std::optional<Value> JSONSerialization::JSONObjectWithData(Data&& data, unsigned options,
                                                           std::optional<Error>* error) {
  Data text = std::move(data);  // not const: its pages are given back as it is read
  return read(text, true, options, error);
}

std::optional<Data> JSONSerialization::dataWithJSONObject(const Value& object,
                                                          std::optional<Error>* error) {
  if (!allNumbersFinite(object)) {
    fail(error, kInvalidNumberCode, "Invalid number value (infinite or NaN) in JSON write");
    return std::nullopt;
  }
  try {
    std::string text;
    write(object, text);
    return text;
  } catch (const nlohmann::json::exception& e) {
    fail(error, e.id, e.what());
    return std::nullopt;
  }
}

}  // namespace zorva::platform
