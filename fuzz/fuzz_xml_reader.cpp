// Bytes → XML reader tree (with every option combination the first byte picks) → path queries.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Vast/XMLReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned long options = data[0] & 7u;
  const zorva::Data bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  std::optional<zorva::Error> error;
  const auto tree = zorva::XMLReader::dictionaryForXMLData(bytes, options, &error);
  if (tree.has_value() == error.has_value()) __builtin_trap();  // exactly one of the two
  if (!tree) return 0;
  for (const char* path : {"VAST", "VAST/Ad", "VAST/Ad/InLine/Creatives/Creative/Linear",
                           "VAST/Ad/Wrapper/VASTAdTagURI", "VAST/version", "/", "", "a/b/c"}) {
    for (const zorva::XMLNode* node : zorva::XMLReader::objectsForPath(path, tree->root())) {
      if (node == nullptr) __builtin_trap();
    }
    (void)zorva::XMLReader::valueForPath(path, tree->root());
  }
  // Converting and writing the tree walk it recursively: the nesting bound must keep this safe.
  (void)tree->root().toValue().dump();
  return 0;
}
