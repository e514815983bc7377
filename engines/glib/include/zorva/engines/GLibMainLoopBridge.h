#pragma once

#include "zorva/platform/EngineExport.h"

namespace zorva::platform {

/// Joins the shared main queue and GLib's default main context into one loop on the main thread,
/// so that SDK work, timers and the signals of GLib-based engines (GStreamer's bus, WebKit)
/// interleave there. After `install`:
/// - `MainQueue::run` and `runUntil` wait inside the GLib context, which dispatches its own
///   sources while they wait;
/// - a host that runs GLib itself (`g_main_loop_run`, `gtk_main`) gets the queue's tasks and
///   timers dispatched from that loop.
/// Timers then fire with GLib's millisecond granularity. The virtual clock still works: its
/// timers fire only through `advanceBy`.
class ZORVA_ENGINE_EXPORT GLibMainLoopBridge {
 public:
  /// Attaches the bridge (once; later calls do nothing). Main thread, at start-up.
  static void install();
  static bool isInstalled();
};

}  // namespace zorva::platform
