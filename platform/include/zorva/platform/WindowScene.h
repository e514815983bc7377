#pragma once

#include <memory>

#include "zorva/platform/InterfaceOrientation.h"

namespace zorva::platform {

/// The scene a window belongs to on systems from 13.0 on; it owns the interface orientation
/// there. Main thread only.
class WindowScene {
 public:
  static std::shared_ptr<WindowScene> create(InterfaceOrientation orientation) {
    return std::shared_ptr<WindowScene>(new WindowScene(orientation));
  }

  InterfaceOrientation interfaceOrientation() const { return interfaceOrientation_; }
  void setInterfaceOrientation(InterfaceOrientation orientation) {
    interfaceOrientation_ = orientation;
  }

 private:
  explicit WindowScene(InterfaceOrientation orientation) : interfaceOrientation_(orientation) {}
  InterfaceOrientation interfaceOrientation_;
};

}  // namespace zorva::platform
