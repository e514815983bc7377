#pragma once

// An app's window in the suite's virtual X server with the on-screen host in it, its pixels read
// back from the server (not WebKit's own snapshot), clicks made with the XTest pointer.

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

/// An app's window: an overlay, where the host puts the SDK's tree, over the app's own content
/// when it has some (a blue area that counts the clicks it gets).
class AppWindow {
 public:
  AppWindow(int width, int height, bool content) {
    toplevel = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(toplevel), width, height);
    gtk_window_move(GTK_WINDOW(toplevel), 0, 0);
    overlay = gtk_overlay_new();
    if (content) {
      GtkWidget* area = gtk_drawing_area_new();
      gtk_widget_add_events(area, GDK_BUTTON_PRESS_MASK);
      g_signal_connect(area, "draw", G_CALLBACK(+[](GtkWidget*, cairo_t* cr, gpointer) {
                         cairo_set_source_rgb(cr, 0, 0, 1);
                         cairo_paint(cr);
                         return FALSE;
                       }),
                       nullptr);
      g_signal_connect(area, "button-press-event",
                       G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer clicks) {
                         ++*static_cast<int*>(clicks);
                         return TRUE;
                       }),
                       &clicks);
      gtk_container_add(GTK_CONTAINER(overlay), area);
    }
    gtk_container_add(GTK_CONTAINER(toplevel), overlay);
    gtk_widget_show_all(toplevel);
  }
  ~AppWindow() { gtk_widget_destroy(toplevel); }
  AppWindow(const AppWindow&) = delete;
  AppWindow& operator=(const AppWindow&) = delete;

  GtkWidget* toplevel;
  GtkWidget* overlay;
  int clicks = 0;
};

class OnScreenTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(platform::WebKitWebEngine::install(&whyNot)) << whyNot;
  }

  /// Opens the app's window and attaches the host to it.
  void attach(int width, int height, bool content = true, HostOptions options = {}) {
    app.emplace(width, height, content);
    host = Host::attach(GTK_CONTAINER(app->overlay), std::move(options));
  }

  /// The host's top-left corner in screen coordinates.
  std::pair<int, int> origin() const {
    GtkWidget* area = host->widget();
    int x = 0, y = 0;
    gdk_window_get_origin(gtk_widget_get_window(area), &x, &y);
    GtkAllocation allocation;
    gtk_widget_get_allocation(area, &allocation);
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

  test::XScreen screen;
  test::LoopbackServer server;
  std::optional<AppWindow> app;
  std::unique_ptr<Host> host;
};

}  // namespace zorva::gtk
