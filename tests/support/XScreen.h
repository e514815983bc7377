#pragma once

// The X server as a person at the screen meets it: the pixels it shows (XGetImage on the root
// window, whatever drew them) and a pointer and a keyboard driven through the XTest extension.
// Header-only, for the suites that run under a virtual X server.

#include <X11/XF86keysym.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <cairo.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace zorva::test {

/// An RGB colour as the screen shows it.
struct Pixel {
  int red = 0, green = 0, blue = 0;
  /// Within `tolerance` on every channel.
  bool near(const Pixel& other, int tolerance = 8) const {
    return std::abs(red - other.red) <= tolerance && std::abs(green - other.green) <= tolerance &&
           std::abs(blue - other.blue) <= tolerance;
  }
};

/// A rectangle of the screen's pixels, top-left at (x, y) in screen coordinates.
struct Screenshot {
  int x = 0, y = 0, width = 0, height = 0;
  std::vector<Pixel> pixels;

  /// The pixel at screen point (sx, sy).
  Pixel at(int sx, int sy) const { return pixels.at((sy - y) * width + (sx - x)); }
  /// How many pixels of the rectangle (screen coordinates) are near `colour`.
  int count(const Pixel& colour, int left, int top, int w, int h, int tolerance = 8) const {
    int n = 0;
    for (int py = top; py < top + h; ++py) {
      for (int px = left; px < left + w; ++px) n += at(px, py).near(colour, tolerance);
    }
    return n;
  }
  /// Writes the shot as a PNG.
  bool writePng(const std::string& path) const {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    auto* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    for (int py = 0; py < height; ++py) {
      auto* row = reinterpret_cast<std::uint32_t*>(data + py * stride);
      for (int px = 0; px < width; ++px) {
        const Pixel& p = pixels[py * width + px];
        row[px] = static_cast<std::uint32_t>(p.red << 16 | p.green << 8 | p.blue);
      }
    }
    cairo_surface_mark_dirty(surface);
    const bool ok = cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(surface);
    return ok;
  }
};

/// A top-level window as the X server places it.
struct TopLevel {
  ::Window id = 0;
  int x = 0, y = 0, width = 0, height = 0;
};

/// A connection of its own to the X server named by DISPLAY.
class XScreen {
 public:
  XScreen() : display_(XOpenDisplay(nullptr)) {
    if (!display_) throw std::runtime_error("no X display");
  }
  ~XScreen() { XCloseDisplay(display_); }
  XScreen(const XScreen&) = delete;
  XScreen& operator=(const XScreen&) = delete;

  /// What the screen shows in the rectangle (screen coordinates).
  Screenshot grab(int x, int y, int width, int height) const {
    XImage* image =
        XGetImage(display_, DefaultRootWindow(display_), x, y, static_cast<unsigned>(width),
                  static_cast<unsigned>(height), AllPlanes, ZPixmap);
    Screenshot shot{x, y, width, height, {}};
    shot.pixels.reserve(static_cast<std::size_t>(width) * height);
    for (int py = 0; py < height; ++py) {
      for (int px = 0; px < width; ++px) {
        const unsigned long v = XGetPixel(image, px, py);
        shot.pixels.push_back(Pixel{static_cast<int>((v & image->red_mask) >> 16),
                                    static_cast<int>((v & image->green_mask) >> 8),
                                    static_cast<int>(v & image->blue_mask)});
      }
    }
    XDestroyImage(image);
    return shot;
  }

  /// The shown top-level window titled `title` (another program's too), where it is now.
  std::optional<TopLevel> findWindow(const std::string& title) const {
    ::Window root = DefaultRootWindow(display_), parent = 0, *children = nullptr;
    unsigned count = 0;
    std::optional<TopLevel> found;
    // A window may go between the listing and the look at it (a program's short-lived windows):
    // Xlib's default handler would end the test on that BadWindow, so the scan ignores errors.
    XSync(display_, False);
    const XErrorHandler previous = XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    XQueryTree(display_, root, &root, &parent, &children, &count);
    for (unsigned i = 0; i < count && !found; ++i) {
      char* name = nullptr;
      XWindowAttributes attributes;
      if (XFetchName(display_, children[i], &name) && name == title &&
          XGetWindowAttributes(display_, children[i], &attributes) &&
          attributes.map_state == IsViewable) {
        found =
            TopLevel{children[i], attributes.x, attributes.y, attributes.width, attributes.height};
      }
      if (name) XFree(name);
    }
    if (children) XFree(children);
    XSync(display_, False);
    XSetErrorHandler(previous);
    return found;
  }

  /// Resizes a top-level window as a window manager would for a person dragging its corner.
  void resize(const TopLevel& window, int width, int height) const {
    XResizeWindow(display_, window.id, static_cast<unsigned>(width), static_cast<unsigned>(height));
    XSync(display_, False);
  }

  /// Moves the pointer to (x, y) and clicks the first button there, as a hand on a mouse would.
  void click(int x, int y) const {
    XTestFakeMotionEvent(display_, -1, x, y, CurrentTime);
    XTestFakeButtonEvent(display_, 1, True, CurrentTime);
    XTestFakeButtonEvent(display_, 1, False, CurrentTime);
    XSync(display_, False);
  }

  /// Gives `window` the keyboard and types the key of `keysym`. A key the server's keyboard lacks
  /// (a remote's OK) is put on a free key code first.
  void key(::Window window, KeySym keysym) const {
    XSetInputFocus(display_, window, RevertToParent, CurrentTime);
    KeyCode code = XKeysymToKeycode(display_, keysym);
    if (!code) {
      int min = 0, max = 0, perCode = 0;
      XDisplayKeycodes(display_, &min, &max);
      KeySym* map =
          XGetKeyboardMapping(display_, static_cast<KeyCode>(min), max - min + 1, &perCode);
      for (int c = max; c >= min && !code; --c) {
        if (map[(c - min) * perCode] == NoSymbol) code = static_cast<KeyCode>(c);
      }
      XFree(map);
      XChangeKeyboardMapping(display_, code, 1, &keysym, 1);
    }
    XTestFakeKeyEvent(display_, code, True, CurrentTime);
    XTestFakeKeyEvent(display_, code, False, CurrentTime);
    XSync(display_, False);
  }

 private:
  Display* display_;
};

}  // namespace zorva::test
