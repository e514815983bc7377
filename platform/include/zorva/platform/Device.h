#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "zorva/platform/UUID.h"

namespace zorva::platform {

enum class UserInterfaceIdiom : long {
  Unspecified = -1,
  Phone = 0,
  Pad = 1,
  TV = 2,
  CarPlay = 3,
  Mac = 5,
};

/// Facts about the device: model ("iPhone", "iPad"), system version ("17.0"), interface idiom,
/// identifier for vendor. Set by the host through a `DeviceProfile`, or one by one. Thread-safe.
class Device {
 public:
  static Device& currentDevice();

  std::string model() const;
  void setModel(std::string model);
  std::string systemVersion() const;
  void setSystemVersion(std::string version);
  UserInterfaceIdiom userInterfaceIdiom() const;
  void setUserInterfaceIdiom(UserInterfaceIdiom idiom);
  std::optional<UUID> identifierForVendor() const;
  void setIdentifierForVendor(std::optional<UUID> identifier);

  /// The maker ("Dell Inc."); absent on a phone or tablet, whose maker the SDK knows.
  std::optional<std::string> make() const;
  void setMake(std::optional<std::string> make);
  /// The system's name ("Linux"); absent on a phone or tablet.
  std::optional<std::string> systemName() const;
  void setSystemName(std::optional<std::string> name);
  /// The OpenRTB device type the machine is (2 PC, 3 connected TV, 7 set-top box); absent when the
  /// interface idiom says it (phone, tablet).
  std::optional<int> openRTBDeviceType() const;
  void setOpenRTBDeviceType(std::optional<int> type);

  /// True when the system version is `version` or later.
  bool systemVersionAtLeast(std::string_view version) const;

  /// Orders two dotted version strings by their numeric components, a missing component being 0
  /// ("13" == "13.0" < "13.0.1" < "13.10"); a component that is not a number counts as 0.
  /// Negative, zero or positive as `a` is before, equal to or after `b`.
  static int compareVersions(std::string_view a, std::string_view b);

 private:
  Device();
  mutable std::mutex mutex_;
  std::string model_;
  std::string systemVersion_;
  UserInterfaceIdiom idiom_ = UserInterfaceIdiom::Phone;
  std::optional<UUID> identifierForVendor_;
  std::optional<std::string> make_;
  std::optional<std::string> systemName_;
  std::optional<int> openRTBDeviceType_;
};

}  // namespace zorva::platform
