#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "zorva/platform/Error.h"
#include "zorva/platform/Location.h"

namespace zorva::platform {

class LocationManager;

/// Numbered as on the phone platform.
enum class AuthorizationStatus : int {
  NotDetermined = 0,
  Restricted = 1,
  Denied = 2,
  AuthorizedAlways = 3,
  AuthorizedWhenInUse = 4,
};

class LocationManagerDelegate {
 public:
  virtual ~LocationManagerDelegate() = default;
  virtual void locationManagerDidUpdateLocations(LocationManager& manager,
                                                 const std::vector<Location>& locations) = 0;
  virtual void locationManagerDidFailWithError(LocationManager& manager, const Error& error) = 0;
};

/// Location services. The device's position and the app's authorization are process-wide data
/// that a host or a test drives: `setAuthorizationStatus`, then `deliverLocations` /
/// `failPendingRequests` answer every manager waiting on `requestLocation`, or
/// `setSimulatedLocation` makes every request answer by itself. Reports reach the (weakly held)
/// delegate on the main queue, on a later turn than the call that caused them. Main thread
/// only, apart from the static setters.
class LocationManager : public std::enable_shared_from_this<LocationManager> {
 public:
  static std::shared_ptr<LocationManager> create();
  ~LocationManager();

  void setDelegate(std::weak_ptr<LocationManagerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  std::shared_ptr<LocationManagerDelegate> delegate() const { return delegate_.lock(); }

  /// One fix: the next delivered location list (or failure) answers it, once.
  void requestLocation();
  bool isRequestingLocation() const { return requesting_; }

  static AuthorizationStatus authorizationStatus();
  static void setAuthorizationStatus(AuthorizationStatus status);

  /// Answers every pending request with `locations`.
  static void deliverLocations(const std::vector<Location>& locations);
  /// Answers every pending request with `error`.
  static void failPendingRequests(const Error& error);
  /// With a location, requests answer themselves with it on a later main-queue turn.
  static void setSimulatedLocation(std::optional<Location> location);

  /// Not determined, no simulated location.
  static void reset();

 private:
  LocationManager() = default;
  void answer(std::optional<std::vector<Location>> locations, std::optional<Error> error);

  std::weak_ptr<LocationManagerDelegate> delegate_;
  bool requesting_ = false;
};

}  // namespace zorva::platform
