#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Vast/ZVVastAdItem.h"
#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// The StaticResource element of a non-linear creative.
class ZVResource : public ZVVastAdItem, public ZVXMLMapper {
 public:
  /// The resource of a StaticResource element's dictionary; nullptr when the node is not one.
  static std::shared_ptr<ZVResource> create(const XMLNode& dictionary, ZVXMLStrings& strings);

  /// A URL parsed from `content`.
  std::optional<platform::URL> url() const override;

  /// The kind of resource; only static resources are read.
  const std::string type = "StaticResource";
  std::optional<std::string> creativeType;
  /// The element's text.
  std::optional<std::string> content;
};

}  // namespace zorva
