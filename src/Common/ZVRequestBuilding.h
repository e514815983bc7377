#pragma once

#include <functional>
#include <optional>

#include <zorva/ZVTypes.h>
#include <zorva/platform/URLRequest.h>

namespace zorva {

/// Builds the HTTP request of one ad load.
class ZVRequestBuilding {
 public:
  using Completion =
      std::function<void(std::optional<platform::URLRequest> request, std::optional<Error> error)>;

  virtual ~ZVRequestBuilding() = default;
  /// Calls `completion` once with the request, or with an error.
  virtual void build(Completion completion) = 0;
};

}  // namespace zorva
