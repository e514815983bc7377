#pragma once

// An app's window in the suite's virtual X server with the on-screen host in it, its pixels read
// back from the server (not WebKit's own snapshot), clicks and keys made with XTest, what assistive
// technology is told read from the window's ATK tree.

#include <gdk/gdkx.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <functional>
#include <optional>

#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "zorva/engines/GtkHost.h"
#include "zorva/engines/WebKitWebEngine.h"

// After every header of the SDK: Xlib's macros (None, Always, ...) clash with its names.
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

class OnScreenTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(platform::WebKitWebEngine::install(&whyNot)) << whyNot;
  }

  /// Opens the app's window and attaches the host to it.
  void attach(int width, int height, Content content = Content::Area, HostOptions options = {}) {
    app.emplace(width, height, content);
    host = Host::attach(GTK_CONTAINER(app->container), std::move(options));
  }

  /// The platform window's top-left corner in screen coordinates: the top-level window's content.
  std::pair<int, int> origin() const {
    GtkWidget* top = GTK_WIDGET(host->toplevel());
    int x = 0, y = 0;
    gdk_window_get_origin(gtk_widget_get_window(top), &x, &y);
    GtkAllocation allocation;
    gtk_widget_get_allocation(gtk_bin_get_child(GTK_BIN(top)), &allocation);
    return {x + allocation.x, y + allocation.y};
  }

  /// What the screen shows of the host's window, in window points from (0, 0).
  test::Screenshot shot() const {
    auto [x, y] = origin();
    const auto size = host->window()->bounds().size;
    auto picture = screen.grab(x, y, static_cast<int>(size.width), static_cast<int>(size.height));
    picture.x = picture.y = 0;
    return picture;
  }

  /// What the screen shows at (x, y) in window points.
  test::Pixel pixelAt(int x, int y) const {
    auto [ox, oy] = origin();
    return screen.grab(ox + x, oy + y, 1, 1).at(ox + x, oy + y);
  }

  static bool waitUntil(const std::function<bool()>& condition,
                        std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    return test::runMainQueueUntil(condition, timeout);
  }

  /// Runs the loop until the host shows `colour` at (x, y) in window points.
  bool waitForPixel(int x, int y, const test::Pixel& colour, int tolerance = 8,
                    std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    return waitUntil(
        [&] {
          return gtk_widget_get_mapped(host->widget()) && pixelAt(x, y).near(colour, tolerance);
        },
        timeout);
  }

  void click(int x, int y) {
    auto [ox, oy] = origin();
    screen.click(ox + x, oy + y);
  }

  /// Types a key in the app's window.
  void press(KeySym keysym) {
    GtkWidget* top = host->toplevel() ? GTK_WIDGET(host->toplevel()) : app->toplevel;
    screen.key(gdk_x11_window_get_xid(gtk_widget_get_window(top)), keysym);
  }

  /// The object with `role` named `name` in the window's accessible tree (its widget owns it).
  AtkObject* accessible(AtkRole role, const std::string& name) const {
    return find(gtk_widget_get_accessible(GTK_WIDGET(host->toplevel())), role, name);
  }
  static AtkObject* find(AtkObject* object, AtkRole role, const std::string& name) {
    const char* own = atk_object_get_name(object);
    AtkObject* found = atk_object_get_role(object) == role && own && name == own ? object : nullptr;
    for (int i = 0; !found && i < atk_object_get_n_accessible_children(object); ++i) {
      AtkObject* child = atk_object_ref_accessible_child(object, i);
      found = child ? find(child, role, name) : nullptr;
      if (child) g_object_unref(child);
    }
    return found;
  }

  /// Clicks the middle of the push button named `name`, where assistive technology says it is.
  void clickButton(const std::string& name) {
    int x = 0, y = 0, width = 0, height = 0;
    atk_component_get_extents(ATK_COMPONENT(accessible(ATK_ROLE_PUSH_BUTTON, name)), &x, &y, &width,
                              &height, ATK_XY_SCREEN);
    screen.click(x + width / 2, y + height / 2);
  }

  test::XScreen screen;
  test::LoopbackServer server;
  std::optional<AppWindow> app;
  std::unique_ptr<Host> host;
};

}  // namespace zorva::gtk
