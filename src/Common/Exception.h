#pragma once

#include <stdexcept>
#include <string>

namespace zorva {

/// What the SDK raises where the system says an operation "raises" (reading a key from something
/// that is not a dictionary, for one). It has a name and a reason; the loader and the request
/// builder catch it and turn it into an error record. It never crosses the public interface.
class Exception : public std::runtime_error {
 public:
  /// Raised when an operation meets a value of the wrong kind.
  static constexpr const char* kInvalidArgumentException = "NSInvalidArgumentException";

  Exception(std::string name, const std::string& reason)
      : std::runtime_error(reason), name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  std::string reason() const { return what(); }

 private:
  std::string name_;
};

}  // namespace zorva
