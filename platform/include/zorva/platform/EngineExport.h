#pragma once

// The engine libraries (GLib bridge, GStreamer, WebKitGTK, GTK host) export their public API only,
// as libzorva does: the classes and functions marked ZORVA_ENGINE_EXPORT in their headers;
// everything else in them is hidden from the dynamic linker.
#define ZORVA_ENGINE_EXPORT __attribute__((visibility("default")))
// A class nested in an exported one takes its visibility: the libraries' own nested parts are
// marked ZORVA_ENGINE_HIDDEN.
#define ZORVA_ENGINE_HIDDEN __attribute__((visibility("hidden")))
