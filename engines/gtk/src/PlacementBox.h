#pragma once

#include <gtk/gtk.h>

namespace zorva::gtk {

/// A GTK container that places each child at a rectangle of its own (relative to the box) and
/// asks nothing of the app's layout unless told: its size request is 0 x 0 (or what
/// `placementBoxRequest` set), so the app's widgets decide how big it is. With a window of its own
/// (`placementBoxNew(true)`) it also cuts its children at its edges, which is how a native widget
/// is clipped to its superviews in the tree.
GtkWidget* placementBoxNew(bool withWindow);
/// The box's type, for a subclass.
GType placementBoxType();
/// Makes `width` x `height` the box's minimum and natural size (0 x 0 at first).
void placementBoxRequest(GtkWidget* box, int width, int height);
/// Puts a windowed box's window at `area` (relative to the box's allocation; it may reach past
/// it) rather than over its allocation. The box's children are placed in that window.
void placementBoxPutWindow(GtkWidget* box, const GdkRectangle& area);
/// Adds `child` at `x`, `y` with size `width` x `height`, or moves and resizes it there.
void placementBoxPlace(GtkWidget* box, GtkWidget* child, int x, int y, int width, int height);

}  // namespace zorva::gtk
