// The on-screen host as a person meets it: a real window in a virtual X server, its pixels read
// back from the server, clicks made with the XTest pointer.
#include "zorva/engines/GtkHost.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <zorva/platform/Button.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include "support/TestEnvironment.h"
#include "support/XScreen.h"
#include "zorva/engines/WebKitWebEngine.h"

namespace zorva::gtk {
namespace {

using platform::Color;
using platform::Rect;
using test::Pixel;

constexpr Pixel kRed{255, 0, 0}, kBlue{0, 0, 255}, kGreen{0, 255, 0};

class GtkHostTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(platform::WebKitWebEngine::install(&whyNot)) << whyNot;
    root = platform::ViewController::create();
    window = platform::Window::create(Rect(0, 0, 300, 200));
    window->setRootViewController(root);
    window->makeKeyAndVisible();
  }

  // The host's area on the screen: its top-left corner in screen coordinates.
  std::pair<int, int> origin() const {
    GtkWidget* area = host->widget();
    int x = 0, y = 0;
    gdk_window_get_origin(gtk_widget_get_window(area), &x, &y);
    GtkAllocation allocation;
    gtk_widget_get_allocation(area, &allocation);
    return {x + allocation.x, y + allocation.y};
  }

  test::Screenshot shot() const {
    auto [x, y] = origin();
    const auto size = window->bounds().size;
    return screen.grab(x, y, static_cast<int>(size.width), static_cast<int>(size.height));
  }

  // Runs the loop until the window's pixel at (x, y) (window points) is `colour`.
  bool waitForPixel(int x, int y, const Pixel& colour) {
    return test::runMainQueueUntil([&] {
      if (!gtk_widget_get_mapped(host->widget())) return false;
      auto [ox, oy] = origin();
      return screen.grab(ox + x, oy + y, 1, 1).at(ox + x, oy + y).near(colour);
    });
  }

  void click(int x, int y) {
    auto [ox, oy] = origin();
    screen.click(ox + x, oy + y);
  }

  test::XScreen screen;
  std::shared_ptr<platform::ViewController> root;
  std::shared_ptr<platform::Window> window;
  std::unique_ptr<Host> host;
};

TEST_F(GtkHostTest, DrawsTheTreeWhereItIs) {
  root->view()->setBackgroundColor(Color::blueColor());
  auto red = platform::View::create(Rect(10, 20, 50, 40));
  red->setBackgroundColor(Color::redColor());
  root->view()->addSubview(red);
  host = Host::createWindow(window, "test");
  ASSERT_TRUE(waitForPixel(30, 40, kRed));
  auto picture = shot();
  picture.writePng("gtk-host-tree.png");
  auto [ox, oy] = origin();
  EXPECT_EQ(picture.count(kRed, ox, oy, 300, 200), 50 * 40);
  EXPECT_TRUE(picture.at(ox + 5, oy + 5).near(kBlue));
}

}  // namespace
}  // namespace zorva::gtk
