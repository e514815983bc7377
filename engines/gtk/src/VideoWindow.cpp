#include "VideoWindow.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "zorva/engines/GStreamerMediaEngine.h"

// Last: Xlib's macros (None, Status, Always…) clash with names in the SDK's headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xrender.h>
#include <X11/extensions/shape.h>
#include <cairo-xlib-xrender.h>
#include <gdk/gdkx.h>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace zorva::gtk {

struct VideoWindow::X {
  GdkDisplay* gdkDisplay = nullptr;
  Display* display = nullptr;
  Window parent = 0;
  Visual* visual = nullptr;
  int depth = 0;
  Visual* rgbVisual = nullptr;  // for frames: 24-bit TrueColor, as the frames' BGRx is
  XRenderPictFormat* windowFormat = nullptr;
  XRenderPictFormat* rgbFormat = nullptr;
  XRenderPictFormat* argbFormat = nullptr;
  Window window = 0;
  Picture windowPicture = 0;
  // What is shown, put together off the screen so that a frame never shows without its bar.
  Pixmap back = 0;
  Picture backPicture = 0;
  // The latest frame scaled to the window, so that a pass that moves only the bar does not scale
  // the frame again.
  Pixmap scaled = 0;
  Picture scaledPicture = 0;
  // The latest frame at its own size, scaled by the X server as it is composited.
  Pixmap frame = 0;
  Picture framePicture = 0;
  GC frameGC = nullptr;
  int frameWidth = 0, frameHeight = 0;
  // Frames go to the X server through shared memory where it has MIT-SHM (a local server), two
  // segments in turn so that a frame is never written while the server may still read the last.
  bool shm = false;
  XShmSegmentInfo segments[2]{};
  XImage* images[2]{};
  int nextImage = 0;
  // The drawn parts over the picture, with alpha; composited while something lies over it.
  Pixmap over = 0;
  Picture overPicture = 0;
  cairo_surface_t* overSurface = nullptr;
  bool overShown = false;

  void freeFrame() {
    freeImages();
    if (framePicture) XRenderFreePicture(display, framePicture);
    if (frameGC) XFreeGC(display, frameGC);
    if (frame) XFreePixmap(display, frame);
    framePicture = 0, frameGC = nullptr, frame = 0;
  }
  void freeImages() {
    for (int i = 0; i < 2; ++i) {
      if (!images[i]) continue;
      XShmDetach(display, &segments[i]);
      shmdt(segments[i].shmaddr);
      images[i]->data = nullptr;
      XDestroyImage(images[i]);
      images[i] = nullptr;
    }
  }
  // The two shared images for frames of this size; false (and none) when the server cannot attach
  // them (a remote display).
  bool attachImages(int width, int height) {
    for (int i = 0; i < 2; ++i) {
      XImage* image =
          XShmCreateImage(display, rgbVisual, 24, ZPixmap, nullptr, &segments[i], width, height);
      if (!image) return false;
      segments[i].shmid = shmget(IPC_PRIVATE, image->bytes_per_line * height, IPC_CREAT | 0600);
      void* memory = segments[i].shmid < 0 ? nullptr : shmat(segments[i].shmid, nullptr, 0);
      if (segments[i].shmid >= 0) shmctl(segments[i].shmid, IPC_RMID, nullptr);
      if (!memory || memory == reinterpret_cast<void*>(-1)) {
        XDestroyImage(image);
        return false;
      }
      segments[i].shmaddr = image->data = static_cast<char*>(memory);
      segments[i].readOnly = False;
      gdk_x11_display_error_trap_push(gdkDisplay);
      XShmAttach(display, &segments[i]);
      XSync(display, False);
      if (gdk_x11_display_error_trap_pop(gdkDisplay)) {
        shmdt(memory);
        image->data = nullptr;
        XDestroyImage(image);
        return false;
      }
      images[i] = image;
    }
    return true;
  }
  // The pixmaps of the window's size: what is shown, the scaled frame, the drawn parts.
  void freeSized() {
    if (overSurface) cairo_surface_destroy(overSurface);
    for (Picture picture : {backPicture, scaledPicture, overPicture}) {
      if (picture) XRenderFreePicture(display, picture);
    }
    for (Pixmap pixmap : {back, scaled, over}) {
      if (pixmap) XFreePixmap(display, pixmap);
    }
    overSurface = nullptr;
    backPicture = scaledPicture = overPicture = 0;
    back = scaled = over = 0;
  }
  void makeSized(int width, int height) {
    freeSized();
    back = XCreatePixmap(display, parent, width, height, depth);
    backPicture = XRenderCreatePicture(display, back, windowFormat, 0, nullptr);
    scaled = XCreatePixmap(display, parent, width, height, depth);
    scaledPicture = XRenderCreatePicture(display, scaled, windowFormat, 0, nullptr);
    over = XCreatePixmap(display, parent, width, height, 32);
    overPicture = XRenderCreatePicture(display, over, argbFormat, 0, nullptr);
    overSurface = cairo_xlib_surface_create_with_xrender_format(
        display, over, DefaultScreenOfDisplay(display), argbFormat, width, height);
  }
};

namespace {

GdkRectangle meet(const GdkRectangle& a, const GdkRectangle& b) {
  GdkRectangle r{};
  return gdk_rectangle_intersect(&a, &b, &r) ? r : GdkRectangle{};
}

}  // namespace

std::unique_ptr<VideoWindow> VideoWindow::create(GtkWidget* toplevel) {
  GdkWindow* top = gtk_widget_get_window(toplevel);
  if (!top || !GDK_IS_X11_DISPLAY(gdk_window_get_display(top))) return nullptr;
  auto x = std::make_unique<X>();
  x->gdkDisplay = gdk_window_get_display(top);
  x->display = GDK_WINDOW_XDISPLAY(top);
  int event = 0, error = 0;
  if (!XRenderQueryExtension(x->display, &event, &error) ||
      !XShapeQueryExtension(x->display, &event, &error)) {
    return nullptr;
  }
  x->parent = GDK_WINDOW_XID(top);
  GdkVisual* visual = gdk_window_get_visual(top);
  x->visual = gdk_x11_visual_get_xvisual(visual);
  x->depth = gdk_visual_get_depth(visual);
  XVisualInfo info{};
  const int screen = DefaultScreen(x->display);
  if (!XMatchVisualInfo(x->display, screen, 24, TrueColor, &info)) return nullptr;
  x->rgbVisual = info.visual;
  x->windowFormat = XRenderFindVisualFormat(x->display, x->visual);
  x->rgbFormat = XRenderFindStandardFormat(x->display, PictStandardRGB24);
  x->argbFormat = XRenderFindStandardFormat(x->display, PictStandardARGB32);
  if (!x->windowFormat || !x->rgbFormat || !x->argbFormat) return nullptr;
  x->shm = XShmQueryExtension(x->display);
  return std::unique_ptr<VideoWindow>(new VideoWindow(std::move(x)));
}

VideoWindow::VideoWindow(std::unique_ptr<X> x) : x_(std::move(x)) {
  gdk_window_add_filter(nullptr, onEvent, this);
}

VideoWindow::~VideoWindow() {
  gdk_window_remove_filter(nullptr, onEvent, this);
  // The host lets its video windows go when its widget is unrealized, before the top-level's X
  // window goes; an error in letting go (a window taken down by other means) is of no interest,
  // and GDK's trap keeps it from ending the process.
  gdk_x11_display_error_trap_push(x_->gdkDisplay);
  x_->freeFrame();
  x_->freeSized();
  if (x_->windowPicture) XRenderFreePicture(x_->display, x_->windowPicture);
  if (x_->window) XDestroyWindow(x_->display, x_->window);
  gdk_x11_display_error_trap_pop_ignored(x_->gdkDisplay);
}

// The window's exposures (another window moved off it) are answered with the latest frame.
GdkFilterReturn VideoWindow::onEvent(GdkXEvent* event, GdkEvent*, gpointer data) {
  auto* self = static_cast<VideoWindow*>(data);
  const auto* e = static_cast<const XEvent*>(event);
  if (e->type != Expose || e->xexpose.window != self->x_->window || !self->x_->window) {
    return GDK_FILTER_CONTINUE;
  }
  if (e->xexpose.count == 0) self->present();
  return GDK_FILTER_REMOVE;
}

void VideoWindow::show(const DrawOp& video, std::vector<DrawOp> over, GdkPoint origin,
                       const GdkRectangle& visible) {
  const bool moved = !samePaint(video, video_) || origin.x != origin_.x || origin.y != origin_.y ||
                     visible.x != visible_.x || visible.y != visible_.y ||
                     visible.width != visible_.width || visible.height != visible_.height;
  const bool overChanged =
      over.size() != over_.size() ||
      !std::equal(over.begin(), over.end(), over_.begin(),
                  [](const auto& a, const auto& b) { return samePaint(a, b); });
  video_ = video;
  over_ = std::move(over);
  origin_ = origin;
  visible_ = visible;
  if (!x_->frameWidth) {
    present();
    return;
  }
  if (moved && !place()) return;
  if (moved || overChanged) {
    paintOver();
    present();
  }
}

GdkRectangle VideoWindow::covered() const {
  if (!mapped_) return {};
  return {shown_.x - origin_.x, shown_.y - origin_.y, shown_.width, shown_.height};
}

void VideoWindow::raise() {
  if (!x_->window) return;
  XRaiseWindow(x_->display, x_->window);
}

bool VideoWindow::uploadFrame() {
  // Counted before the frame is read: a frame that arrives meanwhile is not taken as uploaded.
  const std::uint64_t received = video_.frames ? video_.frames->framesReceived() : 0;
  if (received == uploaded_) return false;
  bool sizeChanged = false;
  const bool had = video_.frames->withLatestFrame([&](const unsigned char* pixels, int width,
                                                      int height, int stride) {
    if (width != x_->frameWidth || height != x_->frameHeight || !x_->frame) {
      x_->freeFrame();
      x_->frame = XCreatePixmap(x_->display, x_->parent, width, height, 24);
      x_->frameGC = XCreateGC(x_->display, x_->frame, 0, nullptr);
      XRenderPictureAttributes attributes{};
      attributes.repeat = RepeatPad;
      x_->framePicture =
          XRenderCreatePicture(x_->display, x_->frame, x_->rgbFormat, CPRepeat, &attributes);
      XRenderSetPictureFilter(x_->display, x_->framePicture, FilterGood, nullptr, 0);
      x_->frameWidth = width;
      x_->frameHeight = height;
      sizeChanged = true;
      if (x_->shm && !x_->attachImages(width, height)) {
        x_->freeImages();
        x_->shm = false;
      }
    }
    if (x_->shm) {
      XImage* image = x_->images[x_->nextImage];
      x_->nextImage ^= 1;
      for (int row = 0; row < height; ++row) {
        std::memcpy(image->data + row * image->bytes_per_line, pixels + row * stride,
                    static_cast<std::size_t>(width) * 4);
      }
      XShmPutImage(x_->display, x_->frame, x_->frameGC, image, 0, 0, 0, 0, width, height, False);
      return;
    }
    XImage* image = XCreateImage(x_->display, x_->rgbVisual, 24, ZPixmap, 0,
                                 reinterpret_cast<char*>(const_cast<unsigned char*>(pixels)), width,
                                 height, 32, stride);
    if (!image) return;
    XPutImage(x_->display, x_->frame, x_->frameGC, image, 0, 0, 0, 0, width, height);
    image->data = nullptr;  // the frame's pixels stay the engine's
    XDestroyImage(image);
  });
  if (!had) return false;
  uploaded_ = received;
  if (sizeChanged) {
    place();
    paintOver();
  }
  return true;
}

bool VideoWindow::place() {
  const platform::Rect picture = videoPicture(video_, x_->frameWidth, x_->frameHeight);
  const double sx = picture.size.width / x_->frameWidth;
  const double sy = picture.size.height / x_->frameHeight;
  pictureX_ = origin_.x + picture.origin.x;
  pictureY_ = origin_.y + picture.origin.y;
  // The pixels whose centres the picture covers, inside the layer's rectangle, the op's clip and
  // what of the host shows.
  const auto pixels = [](double from, double length, int& start, int& size) {
    start = static_cast<int>(std::lround(from));
    size = std::max(0, static_cast<int>(std::lround(from + length)) - start);
  };
  const platform::Rect area = intersect(video_.rect, video_.clip);
  GdkRectangle covers{}, cut{};
  pixels(pictureX_, picture.size.width, covers.x, covers.width);
  pixels(pictureY_, picture.size.height, covers.y, covers.height);
  pixels(origin_.x + area.origin.x, area.size.width, cut.x, cut.width);
  pixels(origin_.y + area.origin.y, area.size.height, cut.y, cut.height);
  const GdkRectangle shown = meet(meet(covers, cut), visible_);
  if (shown.width <= 0 || shown.height <= 0) {
    if (mapped_) XUnmapWindow(x_->display, x_->window);
    mapped_ = false;
    shown_ = {};
    return false;
  }
  XTransform transform{};
  transform.matrix[0][0] = XDoubleToFixed(1 / sx);
  transform.matrix[1][1] = XDoubleToFixed(1 / sy);
  transform.matrix[2][2] = XDoubleToFixed(1);
  XRenderSetPictureTransform(x_->display, x_->framePicture, &transform);
  if (!x_->window) {
    XSetWindowAttributes attributes{};
    attributes.background_pixmap = None;  // what GTK drew stays until the first frame
    attributes.event_mask = ExposureMask;
    x_->window =
        XCreateWindow(x_->display, x_->parent, shown.x, shown.y, shown.width, shown.height, 0,
                      x_->depth, InputOutput, x_->visual, CWBackPixmap | CWEventMask, &attributes);
    // The pointer passes through to GTK's windows under it, which take the ad's clicks.
    XShapeCombineRectangles(x_->display, x_->window, ShapeInput, 0, 0, nullptr, 0, ShapeSet,
                            Unsorted);
    x_->windowPicture = XRenderCreatePicture(x_->display, x_->window, x_->windowFormat, 0, nullptr);
  } else if (shown.x != shown_.x || shown.y != shown_.y || shown.width != shown_.width ||
             shown.height != shown_.height) {
    XMoveResizeWindow(x_->display, x_->window, shown.x, shown.y, shown.width, shown.height);
  }
  if (!x_->back || shown.width != shown_.width || shown.height != shown_.height) {
    x_->makeSized(shown.width, shown.height);
  }
  shown_ = shown;
  scaledStale_ = true;
  return true;
}

void VideoWindow::paintOver() {
  x_->overShown = !over_.empty() && x_->overSurface;
  if (!x_->overShown) return;
  cairo_t* cr = cairo_create(x_->overSurface);
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_paint(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
  cairo_translate(cr, origin_.x - shown_.x, origin_.y - shown_.y);
  paint(cr, over_);
  cairo_destroy(cr);
  cairo_surface_flush(x_->overSurface);
}

void VideoWindow::present() {
  const bool fresh = uploadFrame();
  if (!x_->frame || shown_.width <= 0) return;
  if (!mapped_) {
    XMapWindow(x_->display, x_->window);
    mapped_ = true;
  }
  const int width = shown_.width, height = shown_.height;
  if (fresh || scaledStale_) {
    const int fromX = static_cast<int>(std::lround(shown_.x - pictureX_));
    const int fromY = static_cast<int>(std::lround(shown_.y - pictureY_));
    XRenderComposite(x_->display, PictOpSrc, x_->framePicture, 0, x_->scaledPicture, fromX, fromY,
                     0, 0, 0, 0, width, height);
    scaledStale_ = false;
  }
  if (!x_->overShown) {
    XRenderComposite(x_->display, PictOpSrc, x_->scaledPicture, 0, x_->windowPicture, 0, 0, 0, 0, 0,
                     0, width, height);
    return;
  }
  XRenderComposite(x_->display, PictOpSrc, x_->scaledPicture, 0, x_->backPicture, 0, 0, 0, 0, 0, 0,
                   width, height);
  XRenderComposite(x_->display, PictOpOver, x_->overPicture, 0, x_->backPicture, 0, 0, 0, 0, 0, 0,
                   width, height);
  XRenderComposite(x_->display, PictOpSrc, x_->backPicture, 0, x_->windowPicture, 0, 0, 0, 0, 0, 0,
                   width, height);
}

}  // namespace zorva::gtk
