#include "zorva/platform/JSONSerialization.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

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

// nlohmann's own tree builder, stopped when arrays and objects nest deeper than the limit: its
// reader keeps its place on the heap, but copying, comparing and writing a tree recurse, and
// each open level costs about a hundred bytes, so an unclosed "[[[[..." of the transport's 64
// MiB would cost gigabytes before failing at its end.
class BoundedTreeBuilder : public nlohmann::detail::json_sax_dom_parser<Value> {
 public:
  using json_sax_dom_parser::json_sax_dom_parser;

  bool start_object(std::size_t elements) {
    return enter() && json_sax_dom_parser::start_object(elements);
  }
  bool start_array(std::size_t elements) {
    return enter() && json_sax_dom_parser::start_array(elements);
  }
  bool end_object() {
    --depth_;
    return json_sax_dom_parser::end_object();
  }
  bool end_array() {
    --depth_;
    return json_sax_dom_parser::end_array();
  }

 private:
  bool enter() { return ++depth_ <= JSONSerialization::kMaximumDepth; }

  std::size_t depth_ = 0;
};

}  // namespace

std::optional<Value> JSONSerialization::JSONObjectWithData(const Data& data, unsigned options,
                                                           std::optional<Error>* error) {
  try {
    Value value;
    BoundedTreeBuilder builder(value);
    if (!Value::sax_parse(data.begin(), data.end(), &builder)) {
      fail(error, kNestingTooDeepCode,
           "JSON text nests arrays and objects deeper than " + std::to_string(kMaximumDepth) +
               " levels");
      return std::nullopt;
    }
    if (!(options & FragmentsAllowed) && !value.is_object() && !value.is_array()) {
      fail(error, kFragmentNotAllowedCode,
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
