#pragma once

#include <cairo.h>

#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "zorva/engines/GStreamerMediaEngine.h"
#include "zorva/platform/Color.h"
#include "zorva/platform/Geometry.h"
#include "zorva/platform/PlayerLayer.h"

namespace zorva::platform {
class View;
class ViewController;
class Window;
}  // namespace zorva::platform

namespace zorva::gtk {

/// One thing drawn with cairo, in window coordinates, already cut to what its superviews let
/// show (`clip`) and faded by its own and its superviews' alpha.
struct DrawOp {
  enum class Kind { Fill, Border, Title, Progress, Video };
  Kind kind = Kind::Fill;
  platform::Rect rect;
  platform::Rect clip;
  double alpha = 1;
  double radius = 0;
  platform::Color color;
  /// Border: the line's width. Progress: the filled fraction.
  double amount = 0;
  /// Progress: the track's colour.
  platform::Color track;
  std::string text;
  std::weak_ptr<platform::PlayerLayer> video;
  platform::LayerVideoGravity gravity = platform::LayerVideoGravity::ResizeAspect;
  /// The video's frames, once the host has put the layer's engine on the screen.
  std::shared_ptr<platform::VideoFrames> frames;
  /// The op covers its rectangle with something (a colour, a control, video): the pointer stops
  /// there instead of passing through to what is below the host.
  bool takesPointer = false;
};

/// A view that is shown by a widget of its own rather than drawn: a web view's WebKit widget, or
/// the panel of a presented browser or store sheet.
struct NativeItem {
  enum class Kind { WebPage, Browser, StoreSheet };
  Kind kind = Kind::WebPage;
  std::shared_ptr<platform::View> view;
  /// The presented browser or store sheet (null for a web page).
  std::shared_ptr<platform::ViewController> controller;
  platform::Rect frame;
  platform::Rect clip;
  double alpha = 1;
};

/// The tree flattened in drawing order: runs of drawn ops between native widgets.
using SceneItem = std::variant<DrawOp, NativeItem>;

/// What the keyboard and assistive technology meet in the tree: each ad the app placed, each
/// presented controller, their buttons and their pages.
struct Element {
  enum class Role {
    Ad,      // a view the app put in the root view: a panel named "Advertisement"
    Dialog,  // a presented controller the host draws (the modal)
    Button,  // a button; a presented controller's own button is its close control
    Page,    // a web view shown by WebKit's widget
    Sheet,   // the presented browser or store sheet, a GTK panel of the host's
  };
  Role role = Role::Ad;
  /// Held weakly: a host keeps the elements between passes, and they keep nothing alive.
  std::weak_ptr<platform::View> view;
  /// The view's address, its key in the pass that found it.
  const platform::View* id = nullptr;
  /// Dialogs and sheets: the presented controller.
  std::weak_ptr<platform::ViewController> controller;
  std::string name;
  /// In window coordinates, cut at what its superviews let show.
  platform::Rect frame;
  /// The element it lies in (its index in the list), -1 at the top.
  int parent = -1;
  /// A button that closes the presented controller it lies in.
  bool closes = false;
};

struct Scene {
  std::vector<SceneItem> items;
  /// A web view in the tree renders with the headless engine: it has no pixels to show.
  bool headlessPage = false;
  /// In drawing order: an element comes before the ones inside it.
  std::vector<Element> elements;
};

/// Walks `window`'s tree (views, and the layers put in by hand, such as a video layer) from the
/// bottom up. Hidden and fully transparent views, with everything under them, are left out.
/// `focused`, a button with the keyboard's focus, gets a focus ring around it.
Scene buildScene(const std::shared_ptr<platform::Window>& window,
                 const platform::View* focused = nullptr);

/// Draws `ops` on `cr`, whose origin is the window's top-left corner. Ops outside `cr`'s clip
/// (the area being redrawn) are skipped.
void paint(cairo_t* cr, const std::vector<DrawOp>& ops);

/// Where `op` may put pixels: its rectangle cut at its clip, or all of its clip for a title,
/// whose text may run past its button.
platform::Rect paintedArea(const DrawOp& op);
/// Where a video op's frame of `width` x `height` lies, scaled by the op's gravity (fitted,
/// filling with the overflow cut by the op's rectangle, or stretched).
platform::Rect videoPicture(const DrawOp& op, int width, int height);
/// Whether two ops put the same pixels on the screen (a video's: its latest frame).
bool samePaint(const DrawOp& a, const DrawOp& b);

/// The pixels `r` touches.
cairo_rectangle_int_t pixelRect(const platform::Rect& r);
/// Where two passes' ops for one surface paint differently: each op that changed, in its old
/// place and its new one. The caller destroys the region.
cairo_region_t* changedArea(const std::vector<DrawOp>& before, const std::vector<DrawOp>& after);

/// The intersection of two rectangles (empty when they do not meet).
platform::Rect intersect(const platform::Rect& a, const platform::Rect& b);
bool isEmpty(const platform::Rect& rect);

}  // namespace zorva::gtk
