#pragma once

namespace zorva::platform {

struct LocationCoordinate2D {
  double latitude = 0;
  double longitude = 0;
};

/// One location fix.
struct Location {
  LocationCoordinate2D coordinate;

  Location() = default;
  Location(double latitude, double longitude) : coordinate{latitude, longitude} {}
};

}  // namespace zorva::platform
