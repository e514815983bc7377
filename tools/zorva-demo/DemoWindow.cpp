#include "zorva-demo/DemoWindow.h"

#if ZORVA_DEMO_REAL_ENGINES
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>
#include <zorva/engines/GtkHost.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Window.h>

#include <chrono>
#include <cmath>

#include "zorva-demo/Timeline.h"
#endif

namespace zorva::demo {

#if ZORVA_DEMO_REAL_ENGINES

namespace {

// How long the window or a panel may take to come up on the screen before a click gives up.
constexpr std::chrono::seconds kShowWait{5};
// Frames the display shows before a click: the host places a change of the tree on the first,
// and what it placed is painted by the end of the next.
constexpr int kFramesBeforeClick = 3;
// Between moving the pointer and pressing: the toolkit sees the pointer arrive over the target.
constexpr std::chrono::milliseconds kHover{50};

/// The first button under `widget` labelled `label` that is on the screen.
GtkWidget* findButton(GtkWidget* widget, const std::string& label) {
  if (GTK_IS_BUTTON(widget) && gtk_widget_get_mapped(widget)) {
    const char* text = gtk_button_get_label(GTK_BUTTON(widget));
    if (text && label == text) return widget;
  }
  if (!GTK_IS_CONTAINER(widget)) return nullptr;
  GList* children = gtk_container_get_children(GTK_CONTAINER(widget));
  GtkWidget* found = nullptr;
  for (GList* child = children; child && !found; child = child->next) {
    found = findButton(GTK_WIDGET(child->data), label);
  }
  g_list_free(children);
  return found;
}

class XDemoWindow final : public DemoWindow {
 public:
  XDemoWindow(Display* display, std::unique_ptr<gtk::Host> host, Timeline& timeline)
      : display_(display), host_(std::move(host)), timeline_(timeline) {}
  ~XDemoWindow() override { XCloseDisplay(display_); }

  bool click(platform::Point point, const std::string& target) override {
    return drawn() && clickAt(point, target);
  }

  bool clickButton(const std::string& label) override {
    platform::MainQueue::shared().runUntil(
        [&] { return findButton(host_->widget(), label) != nullptr; }, kShowWait);
    // Where the button is once the panel it is in has been laid out and drawn.
    GtkWidget* button = drawn() ? findButton(host_->widget(), label) : nullptr;
    if (!button) return false;
    int x = 0, y = 0;
    gtk_widget_translate_coordinates(button, host_->widget(),
                                     gtk_widget_get_allocated_width(button) / 2,
                                     gtk_widget_get_allocated_height(button) / 2, &x, &y);
    return clickAt({static_cast<double>(x), static_cast<double>(y)}, "the button " + label);
  }

 private:
  /// Moves the pointer to `point` of the window and clicks there.
  bool clickAt(platform::Point point, const std::string& target) {
    GtkWidget* area = host_->widget();
    int x = 0, y = 0;
    gdk_window_get_origin(gtk_widget_get_window(area), &x, &y);
    GtkAllocation allocation;
    gtk_widget_get_allocation(area, &allocation);
    // GDK's coordinates are the display's pixels divided by its scale.
    const int scale = gtk_widget_get_scale_factor(area);
    const int screenX = (x + allocation.x + static_cast<int>(std::lround(point.x))) * scale;
    const int screenY = (y + allocation.y + static_cast<int>(std::lround(point.y))) * scale;
    const Screen* screen = DefaultScreenOfDisplay(display_);
    if (screenX < 0 || screenY < 0 || screenX >= WidthOfScreen(screen) ||
        screenY >= HeightOfScreen(screen)) {
      return false;
    }
    char where[96];
    std::snprintf(where, sizeof where,
                  "clicks the screen at (%d, %d), window point (%.0f, %.0f): ", screenX, screenY,
                  point.x, point.y);
    timeline_.emit(
        "pointer", where + target,
        {{"screen", {screenX, screenY}}, {"window", {point.x, point.y}}, {"target", target}});
    XTestFakeMotionEvent(display_, -1, screenX, screenY, CurrentTime);
    XSync(display_, False);
    platform::MainQueue::shared().runUntil([] { return false; }, kHover);
    XTestFakeButtonEvent(display_, 1, True, CurrentTime);
    XTestFakeButtonEvent(display_, 1, False, CurrentTime);
    XSync(display_, False);
    return true;
  }

  /// Runs the main loop until the window is on the screen and shows the tree as it is now.
  bool drawn() {
    GtkWidget* area = host_->widget();
    auto& queue = platform::MainQueue::shared();
    if (!queue.runUntil([&] { return gtk_widget_get_mapped(area) != FALSE; }, kShowWait)) {
      return false;
    }
    int frames = 0;
    const guint tick = gtk_widget_add_tick_callback(
        area,
        +[](GtkWidget*, GdkFrameClock*, gpointer data) -> gboolean {
          ++*static_cast<int*>(data);
          return G_SOURCE_CONTINUE;
        },
        &frames, nullptr);
    const bool shown = queue.runUntil([&] { return frames >= kFramesBeforeClick; }, kShowWait);
    gtk_widget_remove_tick_callback(area, tick);
    return shown;
  }

  Display* display_;
  std::unique_ptr<gtk::Host> host_;
  Timeline& timeline_;
};

}  // namespace

std::unique_ptr<DemoWindow> DemoWindow::open(std::shared_ptr<platform::Window> window,
                                             Timeline& timeline, std::string* whyNot) {
  GdkDisplay* gdk = gdk_display_get_default();
  if (!gdk || !GDK_IS_X11_DISPLAY(gdk)) {
    *whyNot = "the display is not an X server (the clicks are made with XTest)";
    return nullptr;
  }
  // A connection of the pointer's own: its clicks come to GTK as any other client's would.
  Display* display = XOpenDisplay(gdk_display_get_name(gdk));
  int event = 0, error = 0, major = 0, minor = 0;
  if (!display || !XTestQueryExtension(display, &event, &error, &major, &minor)) {
    if (display) XCloseDisplay(display);
    *whyNot = "the X server has no XTest extension to click with";
    return nullptr;
  }
  auto host = gtk::Host::createWindow(std::move(window), "Zorva demo");
  gtk_window_present(host->toplevel());
  return std::make_unique<XDemoWindow>(display, std::move(host), timeline);
}

#else

std::unique_ptr<DemoWindow> DemoWindow::open(std::shared_ptr<platform::Window> /*window*/,
                                             Timeline& /*timeline*/, std::string* whyNot) {
  *whyNot = "this build has no on-screen host (it needs the WebKitGTK engine)";
  return nullptr;
}

#endif

}  // namespace zorva::demo
