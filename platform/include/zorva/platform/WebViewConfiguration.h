#pragma once

#include <cstdint>

namespace zorva::platform {

/// Media types (bits) for which playback waits for a user gesture.
using AudiovisualMediaTypes = std::uint64_t;
inline constexpr AudiovisualMediaTypes kAudiovisualMediaTypeNone = 0;
inline constexpr AudiovisualMediaTypes kAudiovisualMediaTypeAudio = 1u << 0;
inline constexpr AudiovisualMediaTypes kAudiovisualMediaTypeVideo = 1u << 1;
inline constexpr AudiovisualMediaTypes kAudiovisualMediaTypeAll = ~AudiovisualMediaTypes{0};

/// How a web view treats media, fixed when the web view is made (the web view keeps a copy).
struct WebViewConfiguration {
  bool allowsInlineMediaPlayback = false;
  bool allowsPictureInPictureMediaPlayback = true;
  AudiovisualMediaTypes mediaTypesRequiringUserActionForPlayback = kAudiovisualMediaTypeAll;
  /// The setting older systems (before 10.0) have instead of the media-type bits.
  bool requiresUserActionForMediaPlayback = true;
};

}  // namespace zorva::platform
