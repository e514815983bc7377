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
#include <gdk/gdkx.h>
#include <glib-unix.h>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace zorva::gtk {

struct VideoWindow::X {
  ~X() {
    if (display) XCloseDisplay(display);
  }
  // The window's own connection: its errors (a window taken down by other means) reach GDK's
  // handler, which leaves alone those of a connection it did not open.
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
  // The drawn parts over the picture, with alpha; composited while something lies over it. They
  // are painted here with cairo (`overImage`) and what changed is put in the pixmap.
  Pixmap over = 0;
  Picture overPicture = 0;
  GC overGC = nullptr;
  cairo_surface_t* overImage = nullptr;
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
      XShmAttach(display, &segments[i]);
      images[i] = image;
      // A server that could not attach the segment (a remote one) answers the read from it with
      // an error, which this connection's errors being GDK's to ignore is the only sign of.
      if (!XShmGetImage(display, frame, image, 0, 0, AllPlanes)) return false;
    }
    return true;
  }
  // The pixmaps of the window's size: what is shown, the scaled frame, the drawn parts.
  void freeSized() {
    if (overImage) cairo_surface_destroy(overImage);
    if (overGC) XFreeGC(display, overGC);
    for (Picture picture : {backPicture, scaledPicture, overPicture}) {
      if (picture) XRenderFreePicture(display, picture);
    }
    for (Pixmap pixmap : {back, scaled, over}) {
      if (pixmap) XFreePixmap(display, pixmap);
    }
    overImage = nullptr;
    overGC = nullptr;
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
    overGC = XCreateGC(display, over, 0, nullptr);
    overImage = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
  }
  // Puts `area` of the painted overlay in its pixmap: cairo's ARGB32 is Render's premultiplied
  // a8r8g8b8.
  void putOver(const cairo_rectangle_int_t& area) {
    cairo_surface_flush(overImage);
    const int stride = cairo_image_surface_get_stride(overImage);
    XImage* image = XCreateImage(display, nullptr, 32, ZPixmap, 0,
                                 reinterpret_cast<char*>(cairo_image_surface_get_data(overImage)),
                                 cairo_image_surface_get_width(overImage),
                                 cairo_image_surface_get_height(overImage), 32, stride);
    if (!image) return;
    XPutImage(display, over, overGC, image, area.x, area.y, area.x, area.y, area.width,
              area.height);
    image->data = nullptr;  // the pixels stay cairo's
    XDestroyImage(image);
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
  GdkDisplay* gdkDisplay = top ? gdk_window_get_display(top) : nullptr;
  if (!gdkDisplay || !GDK_IS_X11_DISPLAY(gdkDisplay)) return nullptr;
  auto x = std::make_unique<X>();
  x->display = XOpenDisplay(DisplayString(GDK_DISPLAY_XDISPLAY(gdkDisplay)));
  if (!x->display) return nullptr;
  // The window goes in the top-level's X window, which the server must have by then.
  gdk_display_sync(gdkDisplay);
  int event = 0, error = 0;
  if (!XRenderQueryExtension(x->display, &event, &error) ||
      !XShapeQueryExtension(x->display, &event, &error)) {
    return nullptr;
  }
  x->parent = GDK_WINDOW_XID(top);
  GdkVisual* visual = gdk_window_get_visual(top);
  // The same server, the same visual ids; the connection's own Visual for the id.
  XVisualInfo wanted{};
  wanted.visualid = XVisualIDFromVisual(gdk_x11_visual_get_xvisual(visual));
  int matched = 0;
  XVisualInfo* found = XGetVisualInfo(x->display, VisualIDMask, &wanted, &matched);
  if (!found) return nullptr;
  x->visual = found->visual;
  x->depth = found->depth;
  XFree(found);
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

VideoWindow::VideoWindow(std::unique_ptr<X> x)
    : x_(std::move(x)),
      events_(g_unix_fd_add(ConnectionNumber(x_->display), G_IO_IN, onEvents, this)) {}

VideoWindow::~VideoWindow() {
  if (streamed_) streamed_->showOnStreamingThread(nullptr);
  g_source_remove(events_);
  if (overTimer_) g_source_remove(overTimer_);
  // The host lets its video windows go when its widget is unrealized, before the top-level's X
  // window goes; closing the connection waits until the server has taken the window down.
  std::lock_guard lock(mutex_);
  x_->freeFrame();
  x_->freeSized();
}

// No frame came to take the parts over the picture to the screen.
gboolean VideoWindow::onOverTimer(gpointer data) {
  auto* self = static_cast<VideoWindow*>(data);
  std::lock_guard lock(self->mutex_);
  self->overTimer_ = 0;
  if (self->overPending_) {
    self->presentLocked();
    XFlush(self->x_->display);
  }
  return G_SOURCE_REMOVE;
}

// The window's exposures (another window moved off it) are answered with the frame last put up.
gboolean VideoWindow::onEvents(gint, GIOCondition, gpointer data) {
  auto* self = static_cast<VideoWindow*>(data);
  std::lock_guard lock(self->mutex_);
  bool exposed = false;
  while (XPending(self->x_->display)) {
    XEvent event;
    XNextEvent(self->x_->display, &event);
    exposed = exposed || (event.type == Expose && event.xexpose.count == 0);
  }
  if (exposed) {
    self->presentLocked();
    XFlush(self->x_->display);
  }
  return G_SOURCE_CONTINUE;
}

void VideoWindow::show(const DrawOp& video, std::vector<DrawOp> over, GdkPoint origin,
                       const GdkRectangle& visible) {
  // Outside the lock: a frame being put up on the streaming thread holds the engine's lock first.
  if (video.frames != streamed_) {
    if (streamed_) streamed_->showOnStreamingThread(nullptr);
    streamed_ = video.frames;
    if (streamed_) {
      streamed_->showOnStreamingThread([this](const platform::VideoFrames::Incoming& frame) {
        std::lock_guard lock(mutex_);
        return showIncoming(frame);
      });
    }
  }
  std::lock_guard lock(mutex_);
  const bool moved = !samePaint(video, video_) || origin.x != origin_.x || origin.y != origin_.y ||
                     visible.x != visible_.x || visible.y != visible_.y ||
                     visible.width != visible_.width || visible.height != visible_.height;
  const bool overChanged =
      over.size() != over_.size() ||
      !std::equal(over.begin(), over.end(), over_.begin(),
                  [](const auto& a, const auto& b) { return samePaint(a, b); });
  // A bar's move repaints its strip; a move of the picture, or parts over it after none, all.
  cairo_region_t* changed =
      overChanged && !moved && x_->overShown ? changedArea(over_, over) : nullptr;
  video_ = video;
  over_ = std::move(over);
  origin_ = origin;
  visible_ = visible;
  if (!x_->frameWidth) {
    presentLocked();
  } else if ((moved || overChanged) && (!moved || place())) {
    if (changed) cairo_region_translate(changed, origin_.x - shown_.x, origin_.y - shown_.y);
    paintOver(changed);
    // While frames come, the next one takes what changed over the picture to the screen: a bar
    // ticking at the display's rate then costs no request of its own. Should none come in time
    // (a paused or ended video), a timer puts it up.
    if (!moved && std::chrono::steady_clock::now() - lastStreamed_ < kFrameWait) {
      overPending_ = true;
      if (!overTimer_) overTimer_ = g_timeout_add(kFrameWait.count(), onOverTimer, this);
    } else {
      presentLocked();
    }
  }
  if (changed) cairo_region_destroy(changed);
  if (!overPending_) XFlush(x_->display);
}

void VideoWindow::present() {
  std::lock_guard lock(mutex_);
  presentLocked();
  XFlush(x_->display);
}

// A frame of the size shown, into a window already on the screen (mapping it changes what the
// host covers, which the main thread must hear of), is converted straight into shared memory and
// put up here; any other goes to the main thread.
bool VideoWindow::showIncoming(const platform::VideoFrames::Incoming& frame) {
  if (!mapped_ || !x_->shm || !x_->frame || frame.width() != x_->frameWidth ||
      frame.height() != x_->frameHeight) {
    return false;
  }
  XImage* image = x_->images[x_->nextImage];
  x_->nextImage ^= 1;
  frame.convertInto(reinterpret_cast<unsigned char*>(image->data), image->bytes_per_line);
  XShmPutImage(x_->display, x_->frame, x_->frameGC, image, 0, 0, 0, 0, x_->frameWidth,
               x_->frameHeight, False);
  uploaded_ = frame.number();
  compose(true);
  XFlush(x_->display);
  overPending_ = false;
  const auto now = std::chrono::steady_clock::now();
  streamInterval_ = now - lastStreamed_;
  lastStreamed_ = now;
  return true;
}

std::chrono::milliseconds VideoWindow::frameInterval() const {
  std::lock_guard lock(mutex_);
  if (std::chrono::steady_clock::now() - lastStreamed_ >= kFrameWait) return {};
  return std::chrono::duration_cast<std::chrono::milliseconds>(streamInterval_);
}

GdkRectangle VideoWindow::covered() const {
  std::lock_guard lock(mutex_);
  if (!mapped_) return {};
  return {shown_.x - origin_.x, shown_.y - origin_.y, shown_.width, shown_.height};
}

void VideoWindow::raise() {
  std::lock_guard lock(mutex_);
  if (!x_->window) return;
  XRaiseWindow(x_->display, x_->window);
  XFlush(x_->display);
}

bool VideoWindow::uploadFrame() {
  // Counted before the frame is read: a frame that arrives meanwhile is not taken as uploaded.
  // One put up on the streaming thread is newer than the latest the engine keeps.
  const std::uint64_t received = video_.frames ? video_.frames->framesReceived() : 0;
  if (received <= uploaded_) return false;
  bool sizeChanged = false, put = false;
  video_.frames->withLatestFrame([&](const unsigned char* pixels, int width, int height,
                                     int stride) {
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
      put = true;
      return;
    }
    XImage* image = XCreateImage(x_->display, x_->rgbVisual, 24, ZPixmap, 0,
                                 reinterpret_cast<char*>(const_cast<unsigned char*>(pixels)), width,
                                 height, 32, stride);
    if (!image) return;
    XPutImage(x_->display, x_->frame, x_->frameGC, image, 0, 0, 0, 0, width, height);
    image->data = nullptr;  // the frame's pixels stay the engine's
    XDestroyImage(image);
    put = true;
  });
  if (!put) return false;
  uploaded_ = received;
  if (sizeChanged) {
    place();
    paintOver(nullptr);
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

void VideoWindow::paintOver(const cairo_region_t* area) {
  x_->overShown = !over_.empty() && x_->overImage;
  if (!x_->overShown) return;
  cairo_rectangle_int_t extents{0, 0, shown_.width, shown_.height};
  if (area) {
    cairo_rectangle_int_t changed{};
    cairo_region_get_extents(area, &changed);
    if (!gdk_rectangle_intersect(&changed, &extents, &extents)) return;
  }
  cairo_t* cr = cairo_create(x_->overImage);
  cairo_rectangle(cr, extents.x, extents.y, extents.width, extents.height);
  cairo_clip(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_paint(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
  cairo_translate(cr, origin_.x - shown_.x, origin_.y - shown_.y);
  paint(cr, over_);
  cairo_destroy(cr);
  x_->putOver(extents);
}

void VideoWindow::presentLocked() {
  overPending_ = false;
  const bool fresh = uploadFrame();
  if (!x_->frame || shown_.width <= 0) return;
  if (!mapped_) {
    XMapWindow(x_->display, x_->window);
    mapped_ = true;
  }
  compose(fresh);
}

void VideoWindow::compose(bool fresh) {
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
