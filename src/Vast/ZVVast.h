#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Vast/ZVVastAd.h"
#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// One VAST document: its ads and its version.
struct ZVVast : public ZVXMLMapper {
  /// The document of a VAST element's dictionary. Anything that is not a dictionary (a missing
  /// VAST element) gives a document without ads and without version.
  static std::shared_ptr<ZVVast> create(const XMLNode& dictionary);

  /// Every Wrapper ad, then every InLine ad, each group in document order (the Ad elements'
  /// order between the groups and their sequence attribute play no part).
  std::vector<std::shared_ptr<ZVVastAd>> ads;
  /// The "version" attribute; absent also when a child element shares its name.
  std::optional<std::string> version;
  /// Not filled from the document; kept for callers that attach data to it.
  Value dictionary;
};

}  // namespace zorva
