// Bytes → JSON reader (with the option bits the first byte picks) → writer → reader again. The
// nesting bound must refuse deep text as it is read; whatever was read must be the tree nlohmann
// itself reads from the text (in key order too, for texts short enough for nlohmann's quadratic
// ordered reading), and must survive copying, comparing and a round trip through the writer.
#include <cstddef>
#include <cstdint>

#include <zorva/platform/JSONSerialization.h>

namespace {

using zorva::platform::Data;
using zorva::platform::Error;
using zorva::platform::JSONSerialization;
using zorva::platform::Value;

std::size_t depthOf(const Value& value) {
  std::size_t deepest = 0;
  if (value.is_object() || value.is_array()) {
    for (const auto& child : value) {
      const std::size_t depth = depthOf(child);
      if (depth > deepest) deepest = depth;
    }
    return deepest + 1;
  }
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned options = data[0] & 7u;
  const Data text(reinterpret_cast<const char*>(data + 1), size - 1);
  std::optional<Error> error;
  const auto value = JSONSerialization::JSONObjectWithData(text, options, &error);
  if (value.has_value() == error.has_value()) __builtin_trap();  // exactly one of the two
  if (!value) {
    if (error->domain != JSONSerialization::kErrorDomain) __builtin_trap();
    return 0;
  }
  if (depthOf(*value) > JSONSerialization::kMaximumDepth) __builtin_trap();
  if (nlohmann::json(*value) != nlohmann::json::parse(text)) __builtin_trap();
  if (text.size() < 8192 && value->dump() != Value::parse(text).dump()) __builtin_trap();
  if (!(options & JSONSerialization::FragmentsAllowed) && !value->is_object() &&
      !value->is_array()) {
    __builtin_trap();
  }
  const Value copy = *value;
  if (copy != *value) __builtin_trap();

  std::optional<Error> writeError;
  const auto written = JSONSerialization::dataWithJSONObject(*value, &writeError);
  if (written.has_value() == writeError.has_value()) __builtin_trap();
  if (!written) return 0;
  // What the writer produced reads back, and writing that again gives the same text.
  std::optional<Error> rereadError;
  const auto reread = JSONSerialization::JSONObjectWithData(
      *written, JSONSerialization::FragmentsAllowed, &rereadError);
  if (!reread) __builtin_trap();
  std::optional<Error> rewriteError;
  if (JSONSerialization::dataWithJSONObject(*reread, &rewriteError) != written) __builtin_trap();
  return 0;
}
