#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Vast/ZVResource.h"
#include "Vast/ZVVastCreative.h"
#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// A NonLinear creative: one static resource shown as markup for a suggested time.
///
/// Only the first StaticResource is read (IFrame and HTML resources are ignored), and tracking
/// events are looked for inside the NonLinear element itself: a document that puts them beside
/// the NonLinear elements, directly under NonLinearAds, gives a creative without trackers.
class ZVVastNonLinear : public ZVVastCreative, public ZVXMLMapper {
 public:
  /// The creative of a NonLinear element's dictionary; nullptr when the node is not one.
  static std::shared_ptr<ZVVastNonLinear> create(const XMLNode& dictionary, ZVXMLStrings& strings);

  /// The first StaticResource alone; nothing when the element has none.
  std::optional<std::vector<std::shared_ptr<ZVVastAdItem>>> adItems() const override;
  const std::vector<std::shared_ptr<ZVTracker>>& trackers() const override { return trackers_; }
  /// NonLinearClickThrough is not read: always nothing.
  const std::optional<std::string_view>& clickThrough() const override { return clickThrough_; }
  const std::vector<std::string>& clickTrackers() const override { return clickTrackers_; }
  /// The static resource's text, or nothing.
  std::optional<std::string> creativeContent() const override;
  /// Markup can always be shown: true whatever `mimes` holds.
  bool itemExistsForMime(const std::vector<std::string>& mimes) const override;

  /// `adItems` with its own type (nullptr when there is no StaticResource).
  const std::shared_ptr<ZVResource>& resource() const { return resource_; }
  /// The "minSuggestedDuration" attribute, unparsed.
  const std::optional<std::string>& minSuggestedDuration() const { return minSuggestedDuration_; }

 private:
  std::shared_ptr<ZVResource> resource_;
  std::optional<std::string> minSuggestedDuration_;
  std::optional<std::string_view> clickThrough_;
  std::vector<std::shared_ptr<ZVTracker>> trackers_;
  std::vector<std::string> clickTrackers_;
};

}  // namespace zorva
