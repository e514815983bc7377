#pragma once

// The headers are C++20 (defaulted comparisons, among others): say so plainly rather than
// fail somewhere inside them.
#if __cplusplus < 202002L
#error "the Zorva SDK's headers need C++20 or later: compile with -std=c++20 (or newer)"
#endif

#include <nlohmann/json.hpp>
#include <string>

namespace zorva::platform {

/// A dynamic tree: parsed JSON, the XML reader's dictionaries, bundle information. Objects keep
/// their keys in insertion order, so a tree built key by key is written in that order. `null`
/// stands for a missing value where a container needs a placeholder.
using Value = nlohmann::ordered_json;

/// Raw bytes, as a URL session or a file delivers them. Not necessarily UTF-8.
using Data = std::string;

}  // namespace zorva::platform
