#pragma once

#include <mutex>

#include "zorva/platform/Geometry.h"

namespace zorva::platform {

/// The main screen: its bounds in points (they follow the interface orientation, so width and
/// height swap in landscape) and its scale (pixels per point). Thread-safe.
class Screen {
 public:
  static Screen& mainScreen();

  Rect bounds() const;
  void setBounds(const Rect& bounds);
  double scale() const;
  void setScale(double scale);

 private:
  Screen() = default;
  mutable std::mutex mutex_;
  Rect bounds_;
  double scale_ = 1;
};

}  // namespace zorva::platform
