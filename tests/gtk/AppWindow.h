#pragma once

// An app's window in the suite's virtual X server, for the on-screen suites: its own content and
// a place for the SDK, and its parts as assistive technology finds them. Needs GTK only (the
// GObject face's suite links no more); include it after every header of the SDK, as it brings in
// Xlib, whose macros (None, Always, ...) clash with its names.

#include <gtk/gtk.h>

#include <string>
#include <utility>

#include "support/XScreen.h"

namespace zorva::gtk {

/// What the app's window holds besides the SDK.
enum class Content {
  Empty,
  /// A blue area that has the keyboard's focus and counts the clicks and the keys it gets.
  Area,
  /// Widgets with windows of their own under the overlay: a text view over a button.
  Controls,
  /// The blue area in a vertical box, the host's slot below it (no overlay).
  Slot,
};

/// An app's window: the SDK's tree in an overlay over the app's content, or in a slot of its box.
class AppWindow {
 public:
  AppWindow(int width, int height, Content what) {
    toplevel = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(toplevel), width, height);
    gtk_window_move(GTK_WINDOW(toplevel), 0, 0);
    container =
        what == Content::Slot ? gtk_box_new(GTK_ORIENTATION_VERTICAL, 0) : gtk_overlay_new();
    if (what == Content::Area || what == Content::Slot) {
      GtkWidget* area = gtk_drawing_area_new();
      gtk_widget_add_events(area, GDK_BUTTON_PRESS_MASK);
      g_signal_connect(area, "draw", G_CALLBACK(+[](GtkWidget*, cairo_t* cr, gpointer) {
                         cairo_set_source_rgb(cr, 0, 0, 1);
                         cairo_paint(cr);
                         return FALSE;
                       }),
                       nullptr);
      for (const auto* signal : {"button-press-event", "key-press-event"}) {
        g_signal_connect(area, signal, G_CALLBACK(+[](GtkWidget*, GdkEvent* event, gpointer app) {
                           auto* self = static_cast<AppWindow*>(app);
                           ++(event->type == GDK_KEY_PRESS ? self->keys : self->clicks);
                           return TRUE;
                         }),
                         this);
      }
      gtk_widget_set_can_focus(area, TRUE);
      gtk_widget_set_vexpand(area, TRUE);
      content = area;
    } else if (what == Content::Controls) {
      content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
      text = gtk_text_view_new();
      gtk_widget_set_vexpand(text, TRUE);
      button = gtk_button_new_with_label("App");
      g_signal_connect_swapped(button, "clicked",
                               G_CALLBACK(+[](AppWindow* self) { ++self->clicks; }), this);
      for (GtkWidget* widget : {text, button}) gtk_container_add(GTK_CONTAINER(content), widget);
    }
    if (content) gtk_container_add(GTK_CONTAINER(container), content);
    gtk_container_add(GTK_CONTAINER(toplevel), container);
    gtk_widget_show_all(toplevel);
    if (content) gtk_widget_grab_focus(text ? text : content);
  }
  ~AppWindow() { gtk_widget_destroy(toplevel); }
  AppWindow(const AppWindow&) = delete;
  AppWindow& operator=(const AppWindow&) = delete;

  GtkWidget* toplevel;
  /// Where the host goes: a GtkOverlay, or the slot's box.
  GtkWidget* container;
  GtkWidget* content = nullptr;
  GtkWidget *text = nullptr, *button = nullptr;
  int clicks = 0, keys = 0;
};

/// Where a shown widget's top-left corner is on the screen.
inline std::pair<int, int> originOf(GtkWidget* widget) {
  GtkWidget* top = gtk_widget_get_toplevel(widget);
  int x = 0, y = 0, left = 0, upper = 0;
  gdk_window_get_origin(gtk_widget_get_window(top), &x, &y);
  gtk_widget_translate_coordinates(widget, top, 0, 0, &left, &upper);
  return {x + left, y + upper};
}

/// What the screen shows of a shown widget, in screen coordinates.
inline test::Screenshot shotOf(const test::XScreen& screen, GtkWidget* widget) {
  const auto [x, y] = originOf(widget);
  return screen.grab(x, y, gtk_widget_get_allocated_width(widget),
                     gtk_widget_get_allocated_height(widget));
}

/// The object with `role` named `name` in `object`'s accessible tree (its widget owns it), or null.
inline AtkObject* findAccessible(AtkObject* object, AtkRole role, const std::string& name) {
  const char* own = atk_object_get_name(object);
  AtkObject* found = atk_object_get_role(object) == role && own && name == own ? object : nullptr;
  for (int i = 0; !found && i < atk_object_get_n_accessible_children(object); ++i) {
    AtkObject* child = atk_object_ref_accessible_child(object, i);
    found = child ? findAccessible(child, role, name) : nullptr;
    if (child) g_object_unref(child);
  }
  return found;
}

/// Clicks the middle of the push button named `name` in `window`, where assistive technology says
/// it is; false when it is not on the screen.
inline bool clickButton(const test::XScreen& screen, GtkWidget* window, const std::string& name) {
  AtkObject* button = findAccessible(gtk_widget_get_accessible(window), ATK_ROLE_PUSH_BUTTON, name);
  int x = 0, y = 0, width = 0, height = 0;
  if (button)
    atk_component_get_extents(ATK_COMPONENT(button), &x, &y, &width, &height, ATK_XY_SCREEN);
  if (width > 0 && height > 0) screen.click(x + width / 2, y + height / 2);
  return width > 0 && height > 0;
}

}  // namespace zorva::gtk
