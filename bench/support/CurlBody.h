#pragma once

#include <cstddef>
#include <string>

namespace zorva::bench {

/// A libcurl write callback that appends the body to the `std::string` given as its data: the
/// baselines keep what they receive, as any client that reads it does.
inline std::size_t appendToString(char* data, std::size_t, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, count);
  return count;
}

}  // namespace zorva::bench
