#pragma once

#include <zorva/platform/Geometry.h>

#include <string>

namespace zorva::demo {

/// A pointer on a real screen where the demo's window is shown: the simulated user's taps become
/// clicks there, delivered by the display like a hand's. Main thread.
class Pointer {
 public:
  virtual ~Pointer() = default;
  /// Clicks at `point` of the platform window (its coordinates) once the window shows what the
  /// tree holds now; `target` names what is there, for the timeline. False when the window is
  /// not on the screen.
  virtual bool click(platform::Point point, const std::string& target) = 0;
  /// Clicks the centre of the button labelled `label` that the host shows itself (the in-app
  /// browser's Done, the store sheet's Close). False when none is on the screen.
  virtual bool clickButton(const std::string& label) = 0;
};

}  // namespace zorva::demo
