#pragma once

#include <gtk/gtk.h>

namespace zorva::gtk {

/// A GTK container that places each child at a rectangle of its own (relative to the box) and
/// asks nothing of the app's layout: its natural size is 0 x 0, so the app's widgets decide how
/// big it is. With a window of its own (`placementBoxNew(true)`) it also cuts its children at its
/// edges, which is how a native widget is clipped to its superviews in the tree.
GtkWidget* placementBoxNew(bool withWindow);
/// The box's type, for a subclass.
GType placementBoxType();
/// Adds `child` at `x`, `y` with size `width` x `height`, or moves and resizes it there.
void placementBoxPlace(GtkWidget* box, GtkWidget* child, int x, int y, int width, int height);

}  // namespace zorva::gtk
