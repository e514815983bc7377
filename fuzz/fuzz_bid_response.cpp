// Arbitrary bytes as an ad server's answer: the JSON reading and ad building of the loader must
// end in an ad, no ad, or an error, whatever arrives.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Common/ZVAdLoader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  auto reading = zorva::ZVAdLoader::readResponse(body);
  // Exactly one outcome: an error, or (possibly absent) ad without error.
  if (reading.error && reading.ad) std::abort();
  if (reading.error && reading.error->localizedDescription().empty()) std::abort();
  return 0;
}
