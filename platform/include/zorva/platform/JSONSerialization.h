#pragma once

#include <cstddef>
#include <optional>

#include "zorva/platform/Error.h"
#include "zorva/platform/Value.h"

namespace zorva::platform {

/// JSON reading and writing on nlohmann::json, with the platform serialiser's habits: a real
/// number with no fractional part is written as an integer (320.0 → 320), the output is compact,
/// and object keys keep their insertion order.
class JSONSerialization {
 public:
  /// Reading options (bits).
  enum ReadingOptions : unsigned {
    MutableContainers = 1u << 0,
    MutableLeaves = 1u << 1,
    /// Without it, a top-level value that is neither an object nor an array is an error.
    FragmentsAllowed = 1u << 2,
  };

  /// Errors carry this domain and nlohmann::json's exception id as their code.
  static constexpr const char* kErrorDomain = "nlohmann::json";
  /// Code of a top-level fragment read without `FragmentsAllowed` (a parse error, like 101).
  static constexpr int kFragmentNotAllowedCode = 101;
  /// How deep arrays and objects may nest in text being read (the top level is depth 1).
  static constexpr std::size_t kMaximumDepth = 512;
  /// Code of a text that nests deeper than `kMaximumDepth` (a parse error, like 101).
  static constexpr int kNestingTooDeepCode = 101;
  /// Code of a write that met a NaN or infinite number (nlohmann would write it as null).
  static constexpr int kInvalidNumberCode = 0;

  /// The parsed value, or nothing with `*error` set (when `error` is given). Text nested deeper
  /// than `kMaximumDepth` is refused as it is read, so that nothing that walks the tree
  /// recursively can run out of stack and an unclosed body costs little.
  static std::optional<Value> JSONObjectWithData(const Data& data, unsigned options,
                                                 std::optional<Error>* error);
  /// The same, for a text the caller hands over: what has been read of it goes back to the
  /// system as the reading goes, so that a large text is not held whole beside what is read from
  /// it (a 50 MB string would otherwise be held three times).
  static std::optional<Value> JSONObjectWithData(Data&& data, unsigned options,
                                                 std::optional<Error>* error);

  /// Compact JSON text for `object`, or nothing with `*error` set: a non-finite number or a
  /// string that is not valid UTF-8 cannot be written.
  static std::optional<Data> dataWithJSONObject(const Value& object, std::optional<Error>* error);
};

}  // namespace zorva::platform
