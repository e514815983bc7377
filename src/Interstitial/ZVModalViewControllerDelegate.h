#pragma once

namespace zorva {

/// Told when the modal controller's close button has dismissed it.
class ZVModalViewControllerDelegate {
 public:
  virtual ~ZVModalViewControllerDelegate() = default;
  /// The controller is off screen. (Spelt so on purpose.)
  virtual void modalDidDissmiss() = 0;
};

}  // namespace zorva
