#pragma once

#include <cstdint>

namespace zorva::platform {

/// The orientation of the app's interface, numbered as the phone platform numbers it. The two
/// landscapes are named after the side the home button would be on, hence "left" is 4.
enum class InterfaceOrientation : std::int64_t {
  Unknown = 0,
  Portrait = 1,
  PortraitUpsideDown = 2,
  LandscapeRight = 3,
  LandscapeLeft = 4,
};

/// Bit sets of interface orientations: bit n stands for orientation n.
using InterfaceOrientationMask = std::uint64_t;
inline constexpr InterfaceOrientationMask kInterfaceOrientationMaskPortrait = 1u << 1;
inline constexpr InterfaceOrientationMask kInterfaceOrientationMaskPortraitUpsideDown = 1u << 2;
inline constexpr InterfaceOrientationMask kInterfaceOrientationMaskLandscapeRight = 1u << 3;
inline constexpr InterfaceOrientationMask kInterfaceOrientationMaskLandscapeLeft = 1u << 4;
inline constexpr InterfaceOrientationMask kInterfaceOrientationMaskLandscape =
    kInterfaceOrientationMaskLandscapeLeft | kInterfaceOrientationMaskLandscapeRight;
inline constexpr InterfaceOrientationMask kInterfaceOrientationMaskAll =
    kInterfaceOrientationMaskPortrait | kInterfaceOrientationMaskPortraitUpsideDown |
    kInterfaceOrientationMaskLandscape;
inline constexpr InterfaceOrientationMask kInterfaceOrientationMaskAllButUpsideDown =
    kInterfaceOrientationMaskPortrait | kInterfaceOrientationMaskLandscape;

constexpr bool isPortrait(InterfaceOrientation o) {
  return o == InterfaceOrientation::Portrait || o == InterfaceOrientation::PortraitUpsideDown;
}
constexpr bool isLandscape(InterfaceOrientation o) {
  return o == InterfaceOrientation::LandscapeLeft || o == InterfaceOrientation::LandscapeRight;
}

}  // namespace zorva::platform
