#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Vast/ZVTracker.h"
#include "Vast/ZVVastCreative.h"
#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// One ad, made from its InLine or Wrapper element. A Wrapper points (`adTagURL`) to another
/// VAST document; the ads of that document get the Wrapper as their `parent`, and the
/// aggregations walk that chain upward so that a player fires the URLs of every Wrapper above
/// the ad it plays. The chain points upward only, so strong parents make no cycle.
///
/// The document's values are fixed once made; its strings are views into the document's strings,
/// which the ad keeps alive. `parent` and `adCreative` may be set later and are safe to read and
/// write from any thread.
class ZVVastAd : public ZVXMLMapper {
 public:
  /// The ad of an InLine or Wrapper element's dictionary; nullptr when the node is not one.
  static std::shared_ptr<ZVVastAd> create(const XMLNode& dictionary, ZVXMLStrings& strings);

  std::shared_ptr<ZVVastAd> parent() const;
  void setParent(std::shared_ptr<ZVVastAd> parent);

  /// The first Linear creative, else the first NonLinear one, else nullptr. For a Wrapper this
  /// is its own Linear element, which carries the Wrapper's trackers.
  std::shared_ptr<ZVVastCreative> adCreative() const;
  void setAdCreative(std::shared_ptr<ZVVastCreative> creative);

  /// "VASTAdTagURI": present for a Wrapper only.
  const std::optional<std::string_view>& adTagURL() const { return adTagURL_; }
  const std::optional<std::string_view>& system() const { return system_; }
  const std::optional<std::string_view>& title() const { return title_; }
  const std::optional<std::string_view>& desc() const { return desc_; }
  /// The first Error element's text.
  const std::optional<std::string_view>& errUrl() const { return errUrl_; }
  /// The text of every Impression element, in order; an element without text gives nothing.
  const std::vector<std::optional<std::string_view>>& impressions() const { return impressions_; }
  /// Never filled; the error URLs come from `aggregatedErrorUrlsbyReplacingErrorWithValue`.
  const std::vector<std::string>& aggregatedErrorUrls() const { return aggregatedErrorUrls_; }

  /// The Error URL of this ad and of every ad up the chain (this ad's first), each with every
  /// "[ERRORCODE]" replaced by `value`. Ads without an Error URL are left out.
  std::vector<std::string> aggregatedErrorUrlsbyReplacingErrorWithValue(
      const std::string& value) const;
  /// The impressions of this ad and of every ad up the chain, this ad's first, as an array: an
  /// Impression without text gives a null entry, so consumers skip entries that are not strings.
  Value aggregatedImpressionUrl() const;
  /// The URLs of the trackers for `event` (any case) of this ad's creative and of every
  /// creative up the chain, this ad's first. Trackers without a URL text are left out.
  std::vector<std::string> aggregatedTrackersForEvent(std::string_view event) const;
  /// The click trackers of this ad's creative and of every creative up the chain, this ad's
  /// first.
  std::vector<std::string> aggregatedClickTrackers() const;
  /// The trackers among `trackers` whose event is `event`, compared ignoring case.
  static std::vector<std::shared_ptr<ZVTracker>> trackerForEvent(
      std::string_view event, const std::vector<std::shared_ptr<ZVTracker>>& trackers);

 private:
  template <class Visit>
  void forEachInChain(Visit visit) const;

  // Keeps the characters of the strings below alive.
  std::shared_ptr<const void> strings_;
  std::optional<std::string_view> adTagURL_;
  std::optional<std::string_view> system_;
  std::optional<std::string_view> title_;
  std::optional<std::string_view> desc_;
  std::optional<std::string_view> errUrl_;
  std::vector<std::optional<std::string_view>> impressions_;
  std::vector<std::string> aggregatedErrorUrls_;

  mutable std::mutex mutex_;
  std::shared_ptr<ZVVastAd> parent_;
  std::shared_ptr<ZVVastCreative> adCreative_;
};

}  // namespace zorva
