#pragma once

#include <gtk/gtk.h>

#include <cstdint>
#include <memory>
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
class VideoWindow {
 public:
  /// Null where the display is not X11, lacks the Render or Shape extension, or has no 24-bit
  /// TrueColor visual for the frames.
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

 private:
  struct X;
  explicit VideoWindow(std::unique_ptr<X> x);
  static GdkFilterReturn onEvent(GdkXEvent* event, GdkEvent*, gpointer data);
  /// Puts a frame newer than the one uploaded in the frame pixmap; false when there was none.
  bool uploadFrame();
  /// Puts the window where the picture is, for the frame size uploaded; false when none shows.
  bool place();
  void paintOver();

  std::unique_ptr<X> x_;
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
