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
#include "AppWindow.h"

namespace zorva::gtk {

class OnScreenTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(platform::WebKitWebEngine::install(&whyNot)) << whyNot;
  }

  void attach(int width, int height, Content content = Content::Area, HostOptions options = {}) {
    app.emplace(width, height, content);
    host = Host::attach(GTK_CONTAINER(app->container), std::move(options));
  }

  /// The platform window's top-left corner in screen coordinates: the top-level window's content.
  std::pair<int, int> origin() const {
    return originOf(gtk_bin_get_child(GTK_BIN(host->toplevel())));
  }

  /// What the screen shows of the host's window, in window points from (0, 0).
  test::Screenshot shot() const {
    auto picture = shotOf(screen, gtk_bin_get_child(GTK_BIN(host->toplevel())));
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

  void press(KeySym keysym) {
    GtkWidget* top = host->toplevel() ? GTK_WIDGET(host->toplevel()) : app->toplevel;
    screen.key(gdk_x11_window_get_xid(gtk_widget_get_window(top)), keysym);
  }

  /// The object with `role` named `name` in the window's accessible tree (its widget owns it).
  AtkObject* accessible(AtkRole role, const std::string& name) const {
    return findAccessible(gtk_widget_get_accessible(GTK_WIDGET(host->toplevel())), role, name);
  }

  test::XScreen screen;
  test::LoopbackServer server;
  std::optional<AppWindow> app;
  std::unique_ptr<Host> host;
};

}  // namespace zorva::gtk
