#pragma once

#include <functional>
#include <memory>
#include <string>

#include "zorva/platform/EngineExport.h"

// GTK types stay out of the public header: an app includes it with or without GTK's flags.
typedef struct _GtkWidget GtkWidget;
typedef struct _GtkContainer GtkContainer;
typedef struct _GtkWindow GtkWindow;

namespace zorva::platform {
class ViewController;
class Window;
}  // namespace zorva::platform

namespace zorva::gtk {

/// Settings of a host. Each default is the host's behaviour before the setting existed. The two
/// that reach beyond the host's widget (`playsSound`, `screenFromDisplay`) change a setting of
/// the whole process, and say so.
struct HostOptions {
  /// Empty (the default): a click that opens the in-app browser shows the browser over the
  /// window, a live page with a Done button. Set: the browser's address goes to this function
  /// instead (`openInDesktopBrowser` hands it to the desktop's default browser) and the in-app
  /// browser closes itself at once, so the SDK hears it presented and dismissed as if the user
  /// had pressed Done straight away. The function runs once per browser, from the main queue,
  /// never inside the host's drawing pass: it may change the tree or destroy the host.
  std::function<void(const std::string& url)> openBrowserURL;
  /// Off (the default): the main screen keeps the size and scale the device profile gave it.
  /// On: the host sets the main screen's bounds (in logical pixels, the SDK's points) and scale
  /// from the monitor its widget is on (the display's primary monitor until the widget is on
  /// one), when it is made and whenever the widget is mapped or its scale changes, so bid
  /// requests carry the real display's "w", "h" and "pxratio". Apply the device profile first:
  /// applying one afterwards puts the profile's screen back until the next map.
  bool screenFromDisplay = false;
  /// On (the default): making the host turns on `GStreamerMediaEngine::setPlaysSound` for the
  /// whole process, so videos loaded from then on are heard where the system has an audio
  /// output (the host never turns it off again). Off: the host leaves the setting as it is, and
  /// videos keep playing into the engine's silent sink unless the app turns sound on itself.
  bool playsSound = true;
};

/// Hands an http or https `url` to the desktop's default browser (GIO), for
/// `HostOptions::openBrowserURL`. False for any other scheme (nothing is opened) and when the
/// desktop has no browser.
ZORVA_ENGINE_EXPORT bool openInDesktopBrowser(const std::string& url);

/// Shows a platform window's view tree on a real screen, inside a GTK widget.
///
/// What the tree holds is drawn where it is, in tree order: background colours, alpha, hidden
/// views, layer corner radii and borders, button titles, progress bars. Web views are the WebKit
/// engine's own widgets, moved into the host while their tree is shown and back to the engine's
/// offscreen window when it no longer is. The in-app browser and the store sheet, when presented,
/// are real GTK panels over the window. Redrawing follows the tree's own reports of change
/// (`Window::setNeedsDisplayHandler`), at most once per frame of the display; a tree that does
/// not change costs nothing.
///
/// Input: a pointer click or a touch on a drawn part is hit-tested in the tree
/// (`View::hitTest`) and delivered as the tree's own touch (`touchesEnded`, a button's action);
/// clicks in a page are the page's (its links go through the navigation policy as ever). Where
/// the tree draws nothing the pointer passes through to the app's widgets below, so a banner in
/// an overlay over the app's content takes only the clicks that land on it.
///
/// The platform window's bounds follow the widget's allocation: resizing runs the layout pass,
/// so constraints and full-window presentations follow. Main thread only; GTK must be
/// initialised (`WebKitWebEngine::install` does it).
class ZORVA_ENGINE_EXPORT Host {
 public:
  /// A top-level GTK window the size of `window`'s frame, titled `title`, showing `window`.
  /// Shown at once; closing it hides it.
  static std::unique_ptr<Host> createWindow(std::shared_ptr<platform::Window> window,
                                            const std::string& title, HostOptions options = {});
  /// Shows `window` in `container`, a widget of the app's, one of two ways:
  ///
  /// - **Overlay**, when the container is a `GtkOverlay`: the tree lies over the app's content
  ///   (which keeps every click the tree does not take) and the platform window is the overlay's
  ///   main child's allocation; banners go where their frames or constraints put them, presented
  ///   controllers cover that allocation. Give the main child no margin if the tree is to cover
  ///   the whole overlay.
  /// - **Slot**, in any other container (a `GtkBox`, a `GtkGrid`): the host's widget is a child
  ///   that asks for the size of what the root view holds (a banner at (0, 0): the ad's size),
  ///   and expands only if the app sets `gtk_widget_set_hexpand` / `vexpand` on `widget()`. The
  ///   root view is the slot; the platform window is the whole content of the top-level window
  ///   the slot is in, so a controller presented from the slot (interstitial, browser, store
  ///   sheet) covers all of it, as it would on a phone.
  ///
  /// Either way, nothing the app's widgets draw below shows over what the tree draws.
  static std::unique_ptr<Host> attach(std::shared_ptr<platform::Window> window,
                                      GtkContainer* container, HostOptions options = {});
  /// The same in a new key window with a plain root controller (`rootViewController`), for an
  /// app that places ads in its own GTK layout.
  static std::unique_ptr<Host> attach(GtkContainer* container, HostOptions options = {});
  /// Takes the tree off the screen: web views go back to their engines, panels close.
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  const std::shared_ptr<platform::Window>& window() const;
  /// The window's root controller (present a controller or add a banner to its view).
  std::shared_ptr<platform::ViewController> rootViewController() const;
  /// The host's widget, inside the container or the top-level window.
  GtkWidget* widget() const;
  /// The top-level GTK window the host is in (null before it is in one).
  GtkWindow* toplevel() const;

 private:
  struct ZORVA_ENGINE_HIDDEN State;
  explicit Host(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace zorva::gtk
