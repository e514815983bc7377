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
/// (`profile.systemVersion = "12.4"`); a Linux app that wants bid requests to say what the
/// machine really is starts from `desktop()`, `tv()` or `setTopBox()` instead. The default is the
/// phone: nothing changes until the app applies another profile.
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
  /// The maker, the system's name and the OpenRTB device type; absent for a phone or tablet, whose
  /// bid requests keep the maker, system and device type their idiom gives.
  std::optional<std::string> make;
  std::optional<std::string> systemName;
  std::optional<int> openRTBDeviceType;

  /// An iPhone on system 17.0, 375 x 812 points at scale 3, portrait, with a SIM.
  static DeviceProfile phone();
  /// An iPad on system 17.0, 768 x 1024 points at scale 2, portrait, all orientations, no SIM.
  static DeviceProfile tablet();

  /// This Linux machine as a desktop computer (OpenRTB device type 2, PC): maker and model from
  /// the firmware (DMI, or the device tree), system "Linux" at the kernel's release, no interface
  /// idiom, a 1920 x 1080 landscape screen at scale 1 (a GTK host with
  /// `HostOptions::screenFromDisplay` puts the real display's in), no SIM.
  static DeviceProfile desktop();
  /// The same machine as a connected TV (device type 3, TV idiom).
  static DeviceProfile tv();
  /// The same machine as a set-top box (device type 7, TV idiom).
  static DeviceProfile setTopBox();

  /// The screen bounds in `orientation`.
  Rect screenBounds() const;

  /// Installs the profile: device, main screen, status-bar orientation and supported
  /// orientations, the scene orientation of every window that has a scene, carrier, languages.
  void apply() const;
  /// True once any profile has been applied in this process (since `forgetApplied`).
  static bool anyApplied();
  /// Makes `anyApplied` false again, for a process that puts its default state back.
  static void forgetApplied();

  /// A window filling the screen with `root` as root controller, made key and visible. From
  /// system 13.0 on it gets a scene in the profile's orientation; before, none.
  std::shared_ptr<Window> makeKeyWindow(std::shared_ptr<ViewController> root) const;
};

}  // namespace zorva::platform
