#include "zorva/platform/Asset.h"

namespace zorva::platform {

std::shared_ptr<Asset> Asset::create(const URL& url) {
  return std::shared_ptr<Asset>(new Asset(url));
}

}  // namespace zorva::platform
