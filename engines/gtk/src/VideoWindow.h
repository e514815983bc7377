#pragma once

#include <gtk/gtk.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "Scene.h"

namespace zorva::gtk {

/// A playing video shown outside GTK's drawing cycle: a child X window of the top-level window,
/// over the video's picture, into which each new frame is put and scaled by the X server (Render),
/// with the drawn parts over the picture (a bar, a button) composited on top. A frame then costs
/// the app an upload and three requests instead of a pass of GTK's frame clock.
///
/// The window lies over everything GTK draws in the top-level window, so the host uses one only
/// where nothing but drawn parts lie over the picture, at full opacity, on X11, and not inside a
/// scrolled container (whose scrolling the host does not hear of).
///
/// The window has an X connection of its own, so that GStreamer's streaming thread can put each
/// frame of the size already shown on the screen itself, without waking the main thread; every
/// use of the connection is under `mutex_`. What changes the window's place, size or overlay
/// happens on the main thread.
class VideoWindow {
 public:
  /// Null where the display is not X11, lacks the Render or Shape extension, has no 24-bit
  /// TrueColor visual for the frames, or takes no second connection.
  static std::unique_ptr<VideoWindow> create(GtkWidget* toplevel);
  ~VideoWindow();
  VideoWindow(const VideoWindow&) = delete;
  VideoWindow& operator=(const VideoWindow&) = delete;

  /// Shows `video` and, over it, `over` (ops in the host's coordinates, whose origin is at
  /// `origin` in the top-level window), cut at `visible` (top-level coordinates).
  void show(const DrawOp& video, std::vector<DrawOp> over, GdkPoint origin,
            const GdkRectangle& visible);
  /// Puts the latest frame, and what lies over it, on the screen.
  void present();
  /// The part of the host the window covers (in the host's coordinates), empty while it shows
  /// nothing: before the first frame, or with the picture cut away.
  GdkRectangle covered() const;
  /// Back on top of the top-level window's other native windows.
  void raise();
  /// The time between the last two frames put up on the streaming thread, while frames come
  /// (zero once none has come for `kFrameWait`).
  std::chrono::milliseconds frameInterval() const;

 private:
  struct X;
  explicit VideoWindow(std::unique_ptr<X> x);
  /// How long after a frame the next one is awaited to take changes of the parts over the
  /// picture to the screen.
  static constexpr std::chrono::milliseconds kFrameWait{100};

  static gboolean onEvents(gint fd, GIOCondition condition, gpointer data);
  static gboolean onOverTimer(gpointer data);
  /// On the streaming thread: puts `frame` up, when it can be, and answers whether it did.
  bool showIncoming(const platform::VideoFrames::Incoming& frame);
  /// What is shown: the latest frame the engine keeps where it is new, with what lies over it.
  void presentLocked();
  /// The frame pixmap, scaled where `fresh` or stale, with what lies over it, to the window.
  void compose(bool fresh);
  /// Puts a frame newer than the one uploaded in the frame pixmap; false when there was none.
  bool uploadFrame();
  /// Puts the window where the picture is, for the frame size uploaded; false when none shows.
  bool place();
  /// Paints the drawn parts over the picture, where `area` says (window coordinates; all of it
  /// when null), into the overlay pixmap.
  void paintOver(const cairo_region_t* area);

  mutable std::mutex mutex_;
  std::unique_ptr<X> x_;
  guint events_ = 0;
  /// Parts over the picture changed and wait for a frame (or `overTimer_`) to show.
  bool overPending_ = false;
  guint overTimer_ = 0;
  std::chrono::steady_clock::time_point lastStreamed_;
  std::chrono::steady_clock::duration streamInterval_{};
  /// The frames whose streaming thread puts them up.
  std::shared_ptr<platform::VideoFrames> streamed_;
  DrawOp video_;
  std::vector<DrawOp> over_;
  GdkPoint origin_{};
  GdkRectangle visible_{};
  /// Where the window is, in top-level coordinates, and where the scaled picture's corner is.
  GdkRectangle shown_{};
  double pictureX_ = 0, pictureY_ = 0;
  std::uint64_t uploaded_ = 0;
  /// The scaled frame is not the latest frame at the window's place and size.
  bool scaledStale_ = true;
  bool mapped_ = false;
};

}  // namespace zorva::gtk
