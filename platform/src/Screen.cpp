#include "zorva/platform/Screen.h"

namespace zorva::platform {

Screen& Screen::mainScreen() {
  static Screen* screen = new Screen();
  return *screen;
}

Rect Screen::bounds() const {
  std::lock_guard lock(mutex_);
  return bounds_;
}

void Screen::setBounds(const Rect& bounds) {
  std::lock_guard lock(mutex_);
  bounds_ = bounds;
}

double Screen::scale() const {
  std::lock_guard lock(mutex_);
  return scale_;
}

void Screen::setScale(double scale) {
  std::lock_guard lock(mutex_);
  scale_ = scale;
}

}  // namespace zorva::platform
