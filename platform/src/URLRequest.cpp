#include "zorva/platform/URLRequest.h"

#include <strings.h>

namespace zorva::platform {

void URLRequest::setValueForHTTPHeaderField(std::string value, const std::string& field) {
  for (auto& [name, existing] : allHTTPHeaderFields) {
    if (strcasecmp(name.c_str(), field.c_str()) == 0) {
      existing = std::move(value);
      return;
    }
  }
  allHTTPHeaderFields.emplace_back(field, std::move(value));
}

}  // namespace zorva::platform
