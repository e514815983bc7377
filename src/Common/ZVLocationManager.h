#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <zorva/ZVTypes.h>
#include <zorva/platform/Location.h>
#include <zorva/platform/LocationManager.h>

namespace zorva {

/// One location fix on request, through the platform's location manager (whose delegate this
/// is). It never asks the user for permission: the app does that itself.
class ZVLocationManager : public platform::LocationManagerDelegate,
                          public std::enable_shared_from_this<ZVLocationManager> {
 public:
  using LocationCallback = std::function<void(std::optional<platform::Location>)>;

  static std::shared_ptr<ZVLocationManager> create();

  const std::shared_ptr<platform::LocationManager>& locationManager() const {
    return locationManager_;
  }
  bool hasPendingCallback() const { return static_cast<bool>(locationUpdateBlock_); }

  /// True when the app may use location: authorized always or when in use.
  bool locationAccessAllowed() const;

  /// Calls back once with the next fix. The callback replaces any pending one, which is then
  /// never called. Without access it is called at once with nothing (and stays pending). A
  /// platform failure calls nothing. The callback arrives on the main queue.
  void fetchLocation(LocationCallback callback);

  void locationManagerDidUpdateLocations(platform::LocationManager& manager,
                                         const std::vector<platform::Location>& locations) override;
  void locationManagerDidFailWithError(platform::LocationManager& manager,
                                       const Error& error) override;

 private:
  ZVLocationManager() = default;

  std::shared_ptr<platform::LocationManager> locationManager_;
  LocationCallback locationUpdateBlock_;
};

}  // namespace zorva
