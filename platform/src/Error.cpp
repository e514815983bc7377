#include "zorva/platform/Error.h"

namespace zorva::platform {

Error::Error(std::string domain, std::int64_t code, Value userInfo)
    : domain(std::move(domain)), code(code), userInfo(std::move(userInfo)) {}

Error Error::withDescription(std::string domain, std::int64_t code,
                             const std::string& description) {
  Value info = Value::object();
  info[kLocalizedDescriptionKey] = description;
  return Error(std::move(domain), code, std::move(info));
}

std::string Error::localizedDescription() const {
  if (userInfo.is_object()) {
    auto it = userInfo.find(kLocalizedDescriptionKey);
    if (it != userInfo.end() && it->is_string()) return it->get<std::string>();
  }
  return "The operation couldn't be completed. (" + domain + " error " + std::to_string(code) +
         ".)";
}

}  // namespace zorva::platform
