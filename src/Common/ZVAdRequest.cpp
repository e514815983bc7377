#include <zorva/ZVAdRequest.h>

namespace zorva {

std::string ZVAdRequest::defaultServerUrl() { return "http://" ZORVA_AD_HOST "/zorva/servad"; }

}  // namespace zorva
