#pragma once

#include <memory>
#include <string>

#include "zorva-demo/Pointer.h"

namespace zorva::platform {
class Window;
}

namespace zorva::demo {

class Timeline;

/// The demo's key window on the display, in a top-level window of its own (the GTK host), and a
/// pointer that clicks in it through the X server's XTest extension. Each click is put on the
/// timeline ("pointer") with where it landed on the screen. Main thread; needs the real engines
/// installed (GTK initialised on an X display).
class DemoWindow : public Pointer {
 public:
  /// Shows `window` on the display. Null, with the reason in `*whyNot`, when this build has no
  /// on-screen host or the display takes no synthetic clicks.
  static std::unique_ptr<DemoWindow> open(std::shared_ptr<platform::Window> window,
                                          Timeline& timeline, std::string* whyNot);
};

}  // namespace zorva::demo
