#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zorva/platform/Carrier.h"
#include "zorva/platform/Device.h"
#include "zorva/platform/Geometry.h"
#include "zorva/platform/InterfaceOrientation.h"

namespace zorva::platform {

class ViewController;
class Window;

/// The device a host, the demo or a test pretends to be, described in one place and installed
/// with `apply`. Start from `phone()` or `tablet()` and change what matters
/// (`profile.systemVersion = "12.4"`).
struct DeviceProfile {
  std::string model;
  std::string systemVersion;
  UserInterfaceIdiom idiom = UserInterfaceIdiom::Phone;
  /// The screen in portrait, in points; `apply` swaps the sides for a landscape orientation.
  Size portraitScreenSize;
  double scale = 1;
  InterfaceOrientation orientation = InterfaceOrientation::Portrait;
  InterfaceOrientationMask supportedOrientations = kInterfaceOrientationMaskAllButUpsideDown;
  /// The SIM's provider; none for a device without one.
  std::optional<Carrier> carrier;
  std::vector<std::string> preferredLanguages{"en-US"};

  /// An iPhone on system 17.0, 375 x 812 points at scale 3, portrait, with a SIM.
  static DeviceProfile phone();
  /// An iPad on system 17.0, 768 x 1024 points at scale 2, portrait, all orientations, no SIM.
  static DeviceProfile tablet();

  /// The screen bounds in `orientation`.
  Rect screenBounds() const;

  /// Installs the profile: device, main screen, status-bar orientation and supported
  /// orientations, the scene orientation of every window that has a scene, carrier, languages.
  void apply() const;

  /// A window filling the screen with `root` as root controller, made key and visible. From
  /// system 13.0 on it gets a scene in the profile's orientation; before, none.
  std::shared_ptr<Window> makeKeyWindow(std::shared_ptr<ViewController> root) const;
};

}  // namespace zorva::platform
