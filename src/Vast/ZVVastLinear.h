#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Vast/ZVMediaFile.h"
#include "Vast/ZVVastCreative.h"
#include "Vast/ZVXMLMapper.h"

namespace zorva {

/// A Linear creative: media files, a duration, a click-through and tracking events.
class ZVVastLinear : public ZVVastCreative, public ZVXMLMapper {
 public:
  /// The creative of a Linear element's dictionary; nullptr when the node is not one.
  static std::shared_ptr<ZVVastLinear> create(const XMLNode& dictionary, ZVXMLStrings& strings);

  /// Every "MediaFiles/MediaFile", in document order (possibly none).
  std::optional<std::vector<std::shared_ptr<ZVVastAdItem>>> adItems() const override;
  const std::vector<std::shared_ptr<ZVTracker>>& trackers() const override { return trackers_; }
  const std::optional<std::string_view>& clickThrough() const override { return clickThrough_; }
  const std::vector<std::string>& clickTrackers() const override { return clickTrackers_; }
  /// A linear creative is played from a media file, never shown as markup: always nothing.
  std::optional<std::string> creativeContent() const override { return std::nullopt; }
  /// True when any media file's type is one of `mimes` (exact, case-sensitive).
  bool itemExistsForMime(const std::vector<std::string>& mimes) const override;

  /// `adItems` with their own type.
  const std::vector<std::shared_ptr<ZVMediaFile>>& mediaFiles() const { return mediaFiles_; }
  /// The "Duration" text, unparsed (hours:minutes:seconds).
  const std::optional<std::string_view>& duration() const { return duration_; }

  /// The URL of the file to play when some file can be played: when any media file's type is
  /// one of `mimes`, the FIRST listed file's URL — not the matching file's — is the one played;
  /// nothing when none matches. Size, bitrate and delivery play no part.
  std::optional<platform::URL> creativeURLForMimes(const std::vector<std::string>& mimes) const;

 private:
  // Keeps the characters of the strings below alive.
  std::shared_ptr<const void> strings_;
  std::vector<std::shared_ptr<ZVMediaFile>> mediaFiles_;
  std::optional<std::string_view> duration_;
  std::optional<std::string_view> clickThrough_;
  std::vector<std::shared_ptr<ZVTracker>> trackers_;
  std::vector<std::string> clickTrackers_;
};

}  // namespace zorva
