#include "zorva/platform/JSONSerialization.h"

#include <cmath>
#include <limits>
#include <string>

namespace zorva::platform {

namespace {

// 2^53: every whole double below it is exactly an integer.
constexpr double kLargestExactWhole = 9007199254740992.0;

// Rewrites whole real numbers as integers and reports whether every number is finite.
bool normaliseNumbers(Value& v) {
  switch (v.type()) {
    case Value::value_t::object:
    case Value::value_t::array:
      for (auto& child : v) {
        if (!normaliseNumbers(child)) return false;
      }
      return true;
    case Value::value_t::number_float: {
      const double d = v.get<double>();
      if (!std::isfinite(d)) return false;
      if (d == std::trunc(d) && std::fabs(d) < kLargestExactWhole) {
        v = static_cast<std::int64_t>(d);
      }
      return true;
    }
    default:
      return true;
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
  return dataWithJSONObject(Value(object), error);
}

std::optional<Data> JSONSerialization::dataWithJSONObject(Value&& object,
                                                          std::optional<Error>* error) {
  Value copy = std::move(object);
  if (!normaliseNumbers(copy)) {
    fail(error, kInvalidNumberCode, "Invalid number value (infinite or NaN) in JSON write");
    return std::nullopt;
  }
  try {
    return copy.dump();
  } catch (const nlohmann::json::exception& e) {
    fail(error, e.id, e.what());
    return std::nullopt;
  }
}

}  // namespace zorva::platform
