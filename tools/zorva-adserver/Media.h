#pragma once

#include <string_view>

/// The media the ad server serves, embedded at build time from media/ (make-media.sh there
/// regenerates them).
namespace zorva::tools::media {

/// A 4-second 160x90 H.264 MP4 (test pattern, 10 fps, moov first), served as "/media/zorva.mp4".
std::string_view zorvaMp4();
/// A 320x50 PNG still, served as "/media/zorva.png" and shown by the NonLinear creative.
std::string_view zorvaPng();

}  // namespace zorva::tools::media
