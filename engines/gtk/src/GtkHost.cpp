#include "zorva/engines/GtkHost.h"

#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <source_location>

#include "Accessible.h"
#include "PlacementBox.h"
#include "Scene.h"
#include "SystemPanels.h"
#include "VideoWindow.h"
#include "zorva/engines/GLibMainLoopBridge.h"
#include "zorva/engines/WebKitWebEngine.h"
#include "zorva/platform/Button.h"
#include "zorva/platform/LogSink.h"
#include "zorva/platform/MainQueue.h"
#include "zorva/platform/PlayerItem.h"
#include "zorva/platform/SafariViewController.h"
#include "zorva/platform/Screen.h"
#include "zorva/platform/StoreProductViewController.h"
#include "zorva/platform/ViewController.h"
#include "zorva/platform/WebView.h"
#include "zorva/platform/Window.h"

namespace zorva::gtk {

using platform::Rect;

namespace {

// How long after its tree first changes an area may stay off the screen before the host says so.
constexpr std::chrono::seconds kMapWait{5};
// Between two passes timed by GLib rather than GTK's frame clock: a frame of a 60 Hz display.
constexpr std::chrono::milliseconds kPassInterval{16};
// The longest between two such passes while a video streams in a window of its own.
constexpr std::chrono::milliseconds kMaxPassInterval{50};

int ceilInt(double v) { return static_cast<int>(std::ceil(v)); }

/// Keeps a widget alive while it is moved from one parent to another.
void reparent(GtkWidget* widget, GtkWidget* to, const GdkRectangle& at) {
  g_object_ref(widget);
  if (GtkWidget* from = gtk_widget_get_parent(widget)) {
    gtk_container_remove(GTK_CONTAINER(from), widget);
  }
  placementBoxPlace(to, widget, at.x, at.y, at.width, at.height);
  g_object_unref(widget);
}

}  // namespace

/// A run of drawn ops, painted by one transparent widget stacked between native ones.
struct DrawLayer {
  GtkWidget* widget = nullptr;
  std::vector<DrawOp> ops;
  /// The size the layer was last drawn whole at.
  platform::Size size;
};

/// A video layer on the screen: its engine's frames, and where a new frame must be redrawn.
struct VideoFeed {
  std::weak_ptr<platform::PlayerLayer> layerObject;
  std::weak_ptr<platform::GStreamerMediaEngine> engine;
  std::shared_ptr<platform::VideoFrames> frames;
  GtkWidget* layer = nullptr;
  GdkRectangle area{};
  /// The window the frames go to directly, where the video may have one.
  std::unique_ptr<VideoWindow> direct;

  /// The part of the host the window covers, which GTK need not draw.
  GdkRectangle covered() const { return direct ? direct->covered() : GdkRectangle{}; }
};

/// A view shown by a widget of its own, inside a windowed box that cuts it at its clip.
struct NativeWidget {
  NativeItem::Kind kind;
  std::weak_ptr<platform::View> view;
  GtkWidget* clipBox = nullptr;
  GtkWidget* content = nullptr;
  /// Web pages: where the widget lives while the host does not show it (the engine's offscreen
  /// window), held so it can go back.
  GtkWidget* home = nullptr;
  std::unique_ptr<SystemPanel> panel;
};

/// A presented controller the host shows, and the widget that had the keyboard's focus before
/// it came (null once that widget is gone).
struct Presentation {
  Presentation(std::shared_ptr<platform::ViewController> presented, GtkWidget* focus)
      : controller(std::move(presented)), before(focus) {
    if (before) g_object_add_weak_pointer(G_OBJECT(before), reinterpret_cast<gpointer*>(&before));
  }
  ~Presentation() {
    if (before)
      g_object_remove_weak_pointer(G_OBJECT(before), reinterpret_cast<gpointer*>(&before));
  }
  Presentation(const Presentation&) = delete;
  Presentation& operator=(const Presentation&) = delete;

  std::weak_ptr<platform::ViewController> controller;
  GtkWidget* before;
};

struct Host::State {
  std::shared_ptr<platform::Window> window;
  HostOptions options;
  GtkWidget* toplevel = nullptr;  // made by createWindow, destroyed with the host
  GtkWidget* area = nullptr;
  /// The area is an overlay over the app's content: the window GtkOverlay made for it takes the
  /// pointer only where the tree shows something.
  bool overlay = false;
  /// The area is a slot of an ordinary container: the platform window is the top-level window's
  /// content, its root view the slot, and the area asks for the size of what the root view holds.
  bool slot = false;
  /// The area's widget was destroyed by the app (with its window): nothing is left to update.
  bool gone = false;
  guint tick = 0;
  /// While a video shows in a window of its own, passes are timed by GLib rather than by GTK's
  /// frame clock (see scheduleSync).
  guint passTimer = 0;
  bool syncing = false;
  std::vector<DrawLayer> layers;
  std::map<const platform::View*, NativeWidget> natives;
  std::map<const platform::PlayerLayer*, VideoFeed> videos;
  std::set<const platform::PlayerLayer*> shownVideos;
  /// The stacking order applied last, bottom first.
  std::vector<GtkWidget*> stacking;
  /// Where a press landed; the touch ends there.
  std::weak_ptr<platform::View> pressed;
  /// Browsers already handed to `options.openBrowserURL`, held weakly: a new browser at a freed
  /// one's address is another browser.
  std::map<const platform::ViewController*, std::weak_ptr<platform::ViewController>> handedOver;
  /// What the keyboard and assistive technology meet, as the last pass found it.
  std::vector<Element> elements;
  std::unique_ptr<AccessibleTree> accessible;
  /// The drawn button the keyboard's focus is on, while the area has the focus.
  std::weak_ptr<platform::View> focused;
  /// The top-level window whose keys the host sees before its widgets do, and what hears them.
  GtkWidget* keyWindow = nullptr;
  GtkEventController* windowKeys = nullptr;
  /// The presented controllers shown, bottom first.
  std::vector<std::unique_ptr<Presentation>> presentations;
  /// The tree or the focus changed while a pass ran: one more pass draws it.
  bool redrawAfterSync = false;
  /// Why the host would never show an ad, each reason said once.
  std::set<std::string> said;
  /// Looks, a while after the tree first changed, whether the area has been shown.
  std::shared_ptr<platform::Timer> mapCheck;

  void scheduleSync();
  void fit();
  void sync();
  void place(std::vector<SceneItem> items);
  DrawLayer& layerAt(std::size_t index);
  NativeWidget& nativeFor(const NativeItem& item);
  void release(NativeWidget& native);
  void restack();
  VideoFeed* showVideo(DrawOp& op);
  void showDirect(VideoFeed& feed, const std::vector<SceneItem>& items, std::size_t index);
  bool directPossible(GdkPoint& origin, GdkRectangle& visible) const;
  void dropDirect(VideoFeed& feed);
  void videoFrameArrived(const platform::PlayerLayer* key);
  void handOverBrowser(const NativeItem& item);
  bool press(double x, double y);
  bool releaseAt(double x, double y);
  GtkWidget* widgetOf(const Element& element) const;
  std::vector<int> focusStops(int* scope = nullptr) const;
  bool moveFocus(GtkDirectionType direction);
  bool focusStop(const Element& element, GtkDirectionType direction);
  bool activateFocused();
  bool closeTopmost();
  void followPresentations();
  void followKeyWindow();
  void leaveKeyWindow();
  void focusChanged();
  void takeDown();
  void readDisplayScreen();
  void warnOnce(const std::string& why,
                std::source_location where = std::source_location::current());

  static gboolean onTick(GtkWidget*, GdkFrameClock*, gpointer data) {
    auto* self = static_cast<State*>(data);
    self->tick = 0;
    self->sync();
    return G_SOURCE_REMOVE;
  }
  static gboolean onPassTimer(gpointer data) {
    auto* self = static_cast<State*>(data);
    self->passTimer = 0;
    self->sync();
    return G_SOURCE_REMOVE;
  }
  static void onAllocate(GtkWidget*, GdkRectangle*, gpointer data) {
    static_cast<State*>(data)->fit();
  }
  static void onRealize(GtkWidget*, gpointer data) { static_cast<State*>(data)->fit(); }
  // The top-level window's X window goes with its realization, and the videos' windows in it.
  static void onUnrealize(GtkWidget*, gpointer data) {
    auto* self = static_cast<State*>(data);
    for (auto& [key, feed] : self->videos) self->dropDirect(feed);
  }
  static void onMap(GtkWidget*, gpointer data) {
    auto* self = static_cast<State*>(data);
    if (self->options.screenFromDisplay) self->readDisplayScreen();
    self->scheduleSync();
  }
  static void onScaleChanged(GObject*, GParamSpec*, gpointer data) {
    static_cast<State*>(data)->readDisplayScreen();
  }
  // The app destroys its window (or the container) before the host: pages go back to their
  // engines before GTK destroys the area's children with them.
  static void onDestroy(GtkWidget*, gpointer data) { static_cast<State*>(data)->takeDown(); }
  static gboolean onDraw(GtkWidget* widget, cairo_t* cr, gpointer data) {
    auto* self = static_cast<State*>(data);
    for (const auto& layer : self->layers) {
      if (layer.widget == widget) paint(cr, layer.ops);
    }
    return FALSE;
  }
  static gboolean onButton(GtkWidget*, GdkEventButton* event, gpointer data) {
    auto* self = static_cast<State*>(data);
    if (event->button != GDK_BUTTON_PRIMARY) return FALSE;
    if (event->type == GDK_BUTTON_PRESS) return self->press(event->x, event->y);
    if (event->type == GDK_BUTTON_RELEASE) return self->releaseAt(event->x, event->y);
    return FALSE;
  }
  // Keys the host answers wherever the focus is: Escape and Back close the topmost presented
  // controller as its close control would; a remote's OK activates the focused control.
  static gboolean onWindowKey(GtkEventControllerKey*, guint key, guint, GdkModifierType,
                              gpointer data) {
    auto* self = static_cast<State*>(data);
    if (self->gone) return FALSE;
    if (key == GDK_KEY_Escape || key == GDK_KEY_Back) return self->closeTopmost();
    return key == GDK_KEY_Select && self->activateFocused();
  }
  // Keys on the host's own controls, while the area has the focus.
  static gboolean onKey(GtkWidget*, GdkEventKey* event, gpointer data) {
    auto* self = static_cast<State*>(data);
    switch (event->keyval) {
      case GDK_KEY_Return:
      case GDK_KEY_KP_Enter:
      case GDK_KEY_ISO_Enter:
      case GDK_KEY_space:
      case GDK_KEY_KP_Space:
        return self->activateFocused();
      case GDK_KEY_Up:
      case GDK_KEY_Left:
        // Arrows stay among the host's stops: at the ends they go nowhere.
        self->moveFocus(GTK_DIR_UP);
        return !self->focusStops().empty();
      case GDK_KEY_Down:
      case GDK_KEY_Right:
        self->moveFocus(GTK_DIR_DOWN);
        return !self->focusStops().empty();
      default:
        return FALSE;
    }
  }
  static gboolean onFocus(GtkWidget*, GtkDirectionType direction, gpointer data) {
    return static_cast<State*>(data)->moveFocus(direction);
  }
  static void onFocusShown(GObject*, GParamSpec*, gpointer data) {
    static_cast<State*>(data)->focusChanged();
  }
  static void onHierarchy(GtkWidget*, GtkWidget*, gpointer data) {
    static_cast<State*>(data)->followKeyWindow();
  }
  static gboolean onTouch(GtkWidget*, GdkEventTouch* event, gpointer data) {
    auto* self = static_cast<State*>(data);
    if (event->type == GDK_TOUCH_BEGIN) return self->press(event->x, event->y);
    if (event->type == GDK_TOUCH_END) return self->releaseAt(event->x, event->y);
    return FALSE;
  }
};

void Host::State::readDisplayScreen() {
  GdkDisplay* display = gtk_widget_get_display(area);
  GdkWindow* window = gtk_widget_get_window(area);
  GdkMonitor* monitor = window ? gdk_display_get_monitor_at_window(display, window)
                               : gdk_display_get_primary_monitor(display);
  // X servers without RandR's primary output name none.
  if (!monitor) monitor = gdk_display_get_monitor(display, 0);
  if (!monitor) return;
  GdkRectangle geometry;
  gdk_monitor_get_geometry(monitor, &geometry);
  auto& screen = platform::Screen::mainScreen();
  screen.setBounds(Rect(0, 0, geometry.width, geometry.height));
  screen.setScale(gdk_monitor_get_scale_factor(monitor));
}

// In the SDK's log as an error entry (shown at the default level 1), and as a GLib warning.
void Host::State::warnOnce(const std::string& why, std::source_location where) {
  if (!said.insert(why).second) return;
  g_warning("Zorva GTK host: %s", why.c_str());
  platform::LogSink::shared().write("Zorva SDK: - E - GtkHost.cpp #" +
                                    std::to_string(where.line()) + " " + where.function_name() +
                                    " => \n" + why + "\n");
}

// The platform window takes the area's size; from a slot, the top-level window's content's (so
// what is presented covers it all), with the root view at the slot.
void Host::State::fit() {
  GtkAllocation own;
  gtk_widget_get_allocation(area, &own);
  GdkRectangle cover{0, 0, own.width, own.height};
  GtkWidget* content = keyWindow ? gtk_bin_get_child(GTK_BIN(keyWindow)) : nullptr;
  GdkWindow* parent = gtk_widget_get_parent_window(area);
  if (slot && content && parent && gtk_widget_get_realized(keyWindow)) {
    // Both allocations are in window coordinates: the content's in the top-level window's, the
    // slot's in its parent's.
    int topX = 0, topY = 0, parentX = 0, parentY = 0;
    gdk_window_get_origin(gtk_widget_get_window(keyWindow), &topX, &topY);
    gdk_window_get_origin(parent, &parentX, &parentY);
    gtk_widget_get_allocation(content, &cover);
    cover.x -= own.x + parentX - topX;
    cover.y -= own.y + parentY - topY;
  }
  if (slot) placementBoxPutWindow(area, cover);
  const platform::Size size{static_cast<double>(cover.width), static_cast<double>(cover.height)};
  if (size != window->bounds().size) window->resize(size);
  const auto root = window->rootViewController();
  const Rect slotFrame(-cover.x, -cover.y, own.width, own.height);
  if (slot && root && root->view()->frame() != slotFrame) root->view()->setFrame(slotFrame);
  // The drawing layers cover the whole window whatever the tree says.
  scheduleSync();
}

void Host::State::scheduleSync() {
  // Changes before the area is on the screen are drawn when it is mapped; if it never is, the
  // app hears why nothing shows.
  if (!mapCheck && !gtk_widget_get_mapped(area)) {
    mapCheck = platform::MainQueue::shared().scheduleTimer(kMapWait, [this] {
      const auto root = window->rootViewController();
      const bool holdsAds =
          root && (!root->view()->subviews().empty() || root->presentedViewController());
      if (holdsAds && !gtk_widget_get_mapped(area)) {
        warnOnce("the host's widget is not on the screen " + std::to_string(kMapWait.count()) +
                 " s after its tree changed: the container it was attached to is never shown, "
                 "so no ad in it can be seen");
      }
    });
  }
  if (syncing) {
    redrawAfterSync = true;
    return;
  }
  if (tick || passTimer) return;
  // A bar moving over a video shown in its own window changes nothing GTK draws: a frame of
  // GTK's clock (its layout and paint phases, and without a window manager two X round trips
  // asking whether one has come) would be spent for nothing. Such passes come from a GLib timer;
  // what a pass does ask GTK to draw still gets its frame. What a pass changes over a streaming
  // video's picture shows with the video's next frame, so while frames come passes come at the
  // fastest video's frame rate (from the display's rate to every kMaxPassInterval, which keeps a
  // click's answer prompt).
  bool direct = false;
  std::chrono::milliseconds fastest{0};
  for (const auto& [key, feed] : videos) {
    if (feed.covered().width <= 0) continue;
    direct = true;
    const auto interval = feed.direct->frameInterval();
    if (interval.count() > 0 && (fastest.count() == 0 || interval < fastest)) fastest = interval;
  }
  if (direct) {
    const auto interval = std::clamp(fastest, kPassInterval, kMaxPassInterval);
    passTimer = g_timeout_add(interval.count(), onPassTimer, this);
    return;
  }
  tick = gtk_widget_add_tick_callback(area, onTick, this, nullptr);
}

void Host::State::sync() {
  syncing = true;
  window->layoutIfNeeded();
  if (slot) {
    // A slot asks for what its root view holds (a banner: the ad's size), measured from the
    // slot's corner.
    double width = 0, height = 0;
    if (const auto root = window->rootViewController()) {
      for (const auto& view : root->view()->subviews()) {
        if (view->isHidden()) continue;
        width = std::max(width, view->frame().origin.x + view->frame().size.width);
        height = std::max(height, view->frame().origin.y + view->frame().size.height);
      }
    }
    placementBoxRequest(area, ceilInt(width), ceilInt(height));
  }
  const auto current = gtk_widget_is_focus(area) ? focused.lock() : nullptr;
  // The ring shows once the window shows where the keyboard is (GTK's focus-visible).
  const bool ringed = current && keyWindow && gtk_window_get_focus_visible(GTK_WINDOW(keyWindow));
  Scene scene = buildScene(window, ringed ? current.get() : nullptr);
  if (scene.headlessPage) {
    warnOnce(
        "an ad's page renders with the headless web engine and shows nothing: call "
        "WebKitWebEngine::install() at start-up, before the first ad is made");
  }
  elements = std::move(scene.elements);
  place(std::move(scene.items));
  followPresentations();
  accessible->update(
      elements, [this](const Element& element) { return widgetOf(element); }, current.get());
  syncing = false;
  if (std::exchange(redrawAfterSync, false)) scheduleSync();
}

void Host::State::focusChanged() {
  if (!gone) scheduleSync();
}

GtkWidget* Host::State::widgetOf(const Element& element) const {
  if (element.role != Element::Role::Page && element.role != Element::Role::Sheet) return nullptr;
  auto it = natives.find(element.id);
  return it == natives.end() ? nullptr : it->second.content;
}

// The controls and pages the keyboard moves through: inside the topmost presented controller
// when one is shown (its close control first), otherwise all of them, in drawing order.
std::vector<int> Host::State::focusStops(int* within) const {
  int scope = -1;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const auto role = elements[i].role;
    if (role == Element::Role::Dialog || (role == Element::Role::Sheet && widgetOf(elements[i]))) {
      scope = static_cast<int>(i);
    }
  }
  std::vector<int> stops;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const Element& element = elements[i];
    if (element.role == Element::Role::Ad || element.role == Element::Role::Dialog) continue;
    if (element.role != Element::Role::Button && !widgetOf(element)) continue;
    int at = static_cast<int>(i);
    while (at > scope) at = elements[at].parent;
    if (at == scope) stops.push_back(static_cast<int>(i));
  }
  std::stable_partition(stops.begin(), stops.end(), [&](int i) { return elements[i].closes; });
  if (within) *within = scope;
  return stops;
}

// Moves the focus one stop on. False when it leaves the host: past the ends, unless a presented
// controller holds it (it goes round).
bool Host::State::moveFocus(GtkDirectionType direction) {
  int scope = -1;
  const std::vector<int> stops = focusStops(&scope);
  const int count = static_cast<int>(stops.size());
  const bool forward =
      direction == GTK_DIR_TAB_FORWARD || direction == GTK_DIR_DOWN || direction == GTK_DIR_RIGHT;
  GtkWidget* focus = keyWindow ? gtk_window_get_focus(GTK_WINDOW(keyWindow)) : nullptr;
  const bool inside = focus && (focus == area || gtk_widget_is_ancestor(focus, area));
  // Where the focus is: a stop, or the host itself (just before the first stop).
  int at = -1;
  const auto current = focused.lock();
  for (int k = 0; k < count; ++k) {
    const Element& element = elements[stops[k]];
    GtkWidget* widget = widgetOf(element);
    if (focus == area
            ? element.id == current.get()
            : widget && focus && (focus == widget || gtk_widget_is_ancestor(focus, widget))) {
      at = k;
    }
  }
  // A sheet moves the focus through its own widgets before leaving.
  if (at >= 0 && elements[stops[at]].role == Element::Role::Sheet &&
      gtk_widget_child_focus(widgetOf(elements[stops[at]]), direction)) {
    return true;
  }
  const bool held = scope >= 0;
  int next = !inside ? (forward ? 0 : count - 1) : (forward ? at + 1 : at - 1);
  for (int tries = 0; tries < count; ++tries, next += forward ? 1 : -1) {
    if (next < 0 || next >= count) {
      if (!held) break;
      next = forward ? 0 : count - 1;
    }
    if (focusStop(elements[stops[next]], direction)) return true;
  }
  focused.reset();
  focusChanged();
  return false;
}

bool Host::State::focusStop(const Element& element, GtkDirectionType direction) {
  if (element.role == Element::Role::Button) {
    focused = element.view;
    if (!gtk_widget_is_focus(area)) gtk_widget_grab_focus(area);
    focusChanged();
    return true;
  }
  focused.reset();
  focusChanged();
  // A page takes the focus into WebKit, which moves it through the page from there.
  return gtk_widget_child_focus(widgetOf(element), direction);
}

// Runs what a tap on the focused control runs.
bool Host::State::activateFocused() {
  GtkWidget* focus = keyWindow ? gtk_window_get_focus(GTK_WINDOW(keyWindow)) : nullptr;
  if (focus && focus != area && GTK_IS_BUTTON(focus) && gtk_widget_is_ancestor(focus, area)) {
    gtk_widget_activate(focus);
    return true;
  }
  auto view = focused.lock();
  if (focus != area || !view) return false;
  const bool shown = std::any_of(elements.begin(), elements.end(),
                                 [&](const Element& element) { return element.id == view.get(); });
  if (shown) view->touchesEnded();
  return shown;
}

// Escape closes what a tap on the topmost presented controller's close control closes.
bool Host::State::closeTopmost() {
  for (int i = static_cast<int>(elements.size()) - 1; i >= 0; --i) {
    const Element& element = elements[i];
    if (element.role == Element::Role::Sheet && widgetOf(element)) {
      auto controller = element.controller.lock();
      if (auto browser = std::dynamic_pointer_cast<platform::SafariViewController>(controller)) {
        browser->finish();
      } else if (auto sheet =
                     std::dynamic_pointer_cast<platform::StoreProductViewController>(controller)) {
        sheet->finish();
      }
      return true;
    }
    if (element.role != Element::Role::Dialog) continue;
    for (int k = static_cast<int>(elements.size()) - 1; k > i; --k) {
      if (elements[k].closes && elements[k].parent == i) {
        if (auto button = elements[k].view.lock()) button->touchesEnded();
        return true;
      }
    }
    return false;
  }
  return false;
}

// The focus moves into a controller when it is shown and back to where it was when it goes.
void Host::State::followPresentations() {
  std::vector<const Element*> shown;
  for (const auto& element : elements) {
    if (element.role == Element::Role::Dialog ||
        (element.role == Element::Role::Sheet && widgetOf(element))) {
      shown.push_back(&element);
    }
  }
  std::size_t keep = 0;
  while (keep < presentations.size() && keep < shown.size() &&
         presentations[keep]->controller.lock() == shown[keep]->controller.lock()) {
    ++keep;
  }
  if (keep == presentations.size() && keep == shown.size()) return;
  if (keep < presentations.size()) {
    GtkWidget* before = presentations[keep]->before;
    if (before) g_object_ref(before);
    presentations.resize(keep);
    if (before && keep == shown.size()) gtk_widget_grab_focus(before);
    if (before) g_object_unref(before);
  }
  if (!keyWindow) return;
  for (std::size_t i = keep; i < shown.size(); ++i) {
    presentations.push_back(std::make_unique<Presentation>(
        shown[i]->controller.lock(), gtk_window_get_focus(GTK_WINDOW(keyWindow))));
  }
  if (shown.size() > keep) {
    const Element& top = *shown.back();
    focused.reset();
    if (top.role == Element::Role::Sheet) {
      gtk_widget_child_focus(widgetOf(top), GTK_DIR_TAB_FORWARD);
    } else {
      gtk_widget_grab_focus(area);
    }
  }
  focusChanged();
}

void Host::State::followKeyWindow() {
  GtkWidget* top = gtk_widget_get_toplevel(area);
  if (!GTK_IS_WINDOW(top)) top = nullptr;
  if (top == keyWindow) return;
  leaveKeyWindow();
  keyWindow = top;
  if (!top) return;
  g_object_add_weak_pointer(G_OBJECT(top), reinterpret_cast<gpointer*>(&keyWindow));
  // Before the window hands the key to its focus widget (the capture phase).
  windowKeys = gtk_event_controller_key_new(top);
  gtk_event_controller_set_propagation_phase(windowKeys, GTK_PHASE_CAPTURE);
  g_signal_connect(windowKeys, "key-pressed", G_CALLBACK(onWindowKey), this);
  g_signal_connect(top, "notify::focus-visible", G_CALLBACK(onFocusShown), this);
  // A slot's window is the top-level window's content: it follows its size and place too.
  if (slot) g_signal_connect_after(top, "size-allocate", G_CALLBACK(onAllocate), this);
}

void Host::State::leaveKeyWindow() {
  if (windowKeys) g_object_unref(windowKeys);
  windowKeys = nullptr;
  if (!keyWindow) return;
  g_signal_handlers_disconnect_by_data(keyWindow, this);
  g_object_remove_weak_pointer(G_OBJECT(keyWindow), reinterpret_cast<gpointer*>(&keyWindow));
  keyWindow = nullptr;
}

DrawLayer& Host::State::layerAt(std::size_t index) {
  while (layers.size() <= index) {
    GtkWidget* widget = gtk_drawing_area_new();
    gtk_widget_add_events(widget, GDK_BUTTON_PRESS_MASK | GDK_BUTTON_RELEASE_MASK | GDK_TOUCH_MASK);
    g_signal_connect(widget, "draw", G_CALLBACK(onDraw), this);
    g_signal_connect(widget, "button-press-event", G_CALLBACK(onButton), this);
    g_signal_connect(widget, "button-release-event", G_CALLBACK(onButton), this);
    g_signal_connect(widget, "touch-event", G_CALLBACK(onTouch), this);
    gtk_widget_show(widget);
    layers.push_back(DrawLayer{widget, {}, {}});
  }
  return layers[index];
}

NativeWidget& Host::State::nativeFor(const NativeItem& item) {
  auto it = natives.find(item.view.get());
  // The same view (not a new one at a freed one's address) shown the same way.
  if (it != natives.end() && it->second.kind == item.kind && it->second.view.lock() == item.view) {
    return it->second;
  }
  if (it != natives.end()) {
    release(it->second);
    natives.erase(it);
  }
  NativeWidget native{item.kind, item.view, placementBoxNew(true), nullptr, nullptr, nullptr};
  gtk_widget_show(native.clipBox);
  switch (item.kind) {
    case NativeItem::Kind::WebPage: {
      auto web = std::static_pointer_cast<platform::WebView>(item.view);
      auto engine = std::static_pointer_cast<platform::WebKitWebEngine>(web->engine());
      native.content = GTK_WIDGET(engine->webKitWebView());
      native.home = gtk_widget_get_parent(native.content);
      if (native.home) g_object_ref(native.home);
      break;
    }
    case NativeItem::Kind::Browser:
      native.panel = SystemPanel::browser(
          std::static_pointer_cast<platform::SafariViewController>(item.controller));
      native.content = native.panel->widget();
      break;
    case NativeItem::Kind::StoreSheet:
      native.panel = SystemPanel::storeSheet(
          std::static_pointer_cast<platform::StoreProductViewController>(item.controller));
      native.content = native.panel->widget();
      break;
  }
  placementBoxPlace(area, native.clipBox, 0, 0, 1, 1);
  return natives.emplace(item.view.get(), std::move(native)).first->second;
}

void Host::State::release(NativeWidget& native) {
  // A page goes back to its engine's offscreen window while the engine lives; a gone engine's
  // widget is just let go.
  GtkWidget* home = native.view.expired() ? nullptr : native.home;
  if (native.kind == NativeItem::Kind::WebPage) {
    g_object_ref(native.content);
    gtk_container_remove(GTK_CONTAINER(native.clipBox), native.content);
    if (home) gtk_container_add(GTK_CONTAINER(home), native.content);
    g_object_unref(native.content);
  }
  if (native.home) g_object_unref(native.home);
  native.panel.reset();
  gtk_widget_destroy(native.clipBox);
}

void Host::State::place(std::vector<SceneItem> items) {
  const GdkRectangle whole = pixelRect(window->bounds());
  std::size_t layerIndex = 0;
  std::vector<GtkWidget*> order;
  std::set<const platform::View*> shown;
  shownVideos.clear();
  // Videos first: where one shows in a window of its own, a change under it is that window's
  // to show, not GTK's.
  cairo_region_t* covered = cairo_region_create();
  for (std::size_t i = 0; i < items.size(); ++i) {
    auto* op = std::get_if<DrawOp>(&items[i]);
    if (!op || op->kind != DrawOp::Kind::Video) continue;
    if (VideoFeed* feed = showVideo(*op)) {
      showDirect(*feed, items, i);
      const GdkRectangle shown = feed->covered();
      cairo_region_union_rectangle(covered, &shown);
    }
  }
  cairo_region_t* everything = cairo_region_create();
  std::vector<DrawOp> run;
  auto flush = [&] {
    // A run between two native widgets needs no widget when it is empty; the bottom layer is
    // always there, for the clicks on drawn parts below every page.
    if (run.empty() && layerIndex > 0) return;
    DrawLayer& layer = layerAt(layerIndex++);
    const std::vector<DrawOp> before = std::exchange(layer.ops, std::move(run));
    run.clear();
    for (const auto& op : layer.ops) {
      if (op.kind != DrawOp::Kind::Video) continue;
      if (auto it = videos.find(op.video.lock().get()); it != videos.end()) {
        it->second.layer = layer.widget;
      }
    }
    cairo_region_t* input = cairo_region_create();
    for (const auto& op : layer.ops) {
      if (!op.takesPointer) continue;
      const GdkRectangle r = pixelRect(intersect(op.rect, op.clip));
      cairo_region_union_rectangle(input, &r);
    }
    gtk_widget_input_shape_combine_region(layer.widget, input);
    cairo_region_union(everything, input);
    cairo_region_destroy(input);
    placementBoxPlace(area, layer.widget, 0, 0, whole.width, whole.height);
    // Only what changed is drawn again (a bar moving over a video repaints the bar's strip, not
    // the video); a layer of a new size is drawn whole.
    if (layer.size != window->bounds().size) {
      layer.size = window->bounds().size;
      gtk_widget_queue_draw(layer.widget);
    } else {
      cairo_region_t* changed = changedArea(before, layer.ops);
      cairo_region_subtract(changed, covered);
      gtk_widget_queue_draw_region(layer.widget, changed);
      cairo_region_destroy(changed);
    }
    order.push_back(layer.widget);
  };
  for (auto& item : items) {
    if (auto* op = std::get_if<DrawOp>(&item)) {
      run.push_back(std::move(*op));
      continue;
    }
    const auto& nativeItem = std::get<NativeItem>(item);
    flush();
    if (nativeItem.kind == NativeItem::Kind::Browser && options.openBrowserURL) {
      handOverBrowser(nativeItem);
      continue;
    }
    NativeWidget& native = nativeFor(nativeItem);
    shown.insert(nativeItem.view.get());
    const GdkRectangle clip = pixelRect(nativeItem.clip);
    const GdkRectangle frame = pixelRect(nativeItem.frame);
    placementBoxPlace(area, native.clipBox, clip.x, clip.y, clip.width, clip.height);
    cairo_region_union_rectangle(everything, &clip);
    const GdkRectangle at{frame.x - clip.x, frame.y - clip.y, frame.width, frame.height};
    if (gtk_widget_get_parent(native.content) != native.clipBox) {
      reparent(native.content, native.clipBox, at);
    } else {
      placementBoxPlace(native.clipBox, native.content, at.x, at.y, at.width, at.height);
    }
    gtk_widget_set_opacity(native.clipBox, nativeItem.alpha);
    if (native.panel) native.panel->update();
    order.push_back(native.clipBox);
  }
  flush();
  // Layers left over from a busier tree go; so do native widgets no longer shown.
  while (layers.size() > layerIndex) {
    gtk_widget_destroy(layers.back().widget);
    layers.pop_back();
  }
  for (auto it = videos.begin(); it != videos.end();) {
    if (shownVideos.count(it->first)) {
      ++it;
      continue;
    }
    if (auto engine = it->second.engine.lock()) engine->hideVideo();
    dropDirect(it->second);
    it = videos.erase(it);
  }
  for (auto it = natives.begin(); it != natives.end();) {
    if (shown.count(it->first)) {
      ++it;
      continue;
    }
    release(it->second);
    it = natives.erase(it);
  }
  // Over the app's content, the area's window (the overlay's for it, or a slot's own) takes the
  // pointer only where the tree shows something; the rest falls through to the app. (GtkOverlay's
  // pass-through would lose clicks meant for widgets nested two windows deep, such as a page in its
  // clip box.)
  if ((overlay || slot) && gtk_widget_get_realized(area)) {
    gdk_window_input_shape_combine_region(gtk_widget_get_window(area), everything, 0, 0);
  }
  cairo_region_destroy(everything);
  cairo_region_destroy(covered);
  if (order != stacking || !gtk_widget_get_mapped(area)) {
    stacking = order;
    restack();
  }
}

VideoFeed* Host::State::showVideo(DrawOp& op) {
  auto video = op.video.lock();
  const auto& item = video && video->player() ? video->player()->currentItem() : nullptr;
  auto engine =
      item ? std::dynamic_pointer_cast<platform::GStreamerMediaEngine>(item->engine()) : nullptr;
  if (!engine) return nullptr;  // a headless engine has no frames
  const platform::PlayerLayer* key = video.get();
  VideoFeed& feed = videos[key];
  if (feed.frames && feed.layerObject.lock() != video) {
    // A new layer at a freed one's address.
    if (auto old = feed.engine.lock()) old->hideVideo();
    dropDirect(feed);
    feed = VideoFeed{};
  }
  if (!feed.frames) {
    feed.layerObject = video;
    feed.engine = engine;
    feed.frames = engine->showVideo([this, key] { videoFrameArrived(key); });
  }
  feed.area = pixelRect(intersect(op.rect, op.clip));
  op.frames = feed.frames;
  shownVideos.insert(key);
  return &feed;
}

// A video gets a window of its own where nothing but drawn parts lie over its picture and it is
// shown whole (not faded); its window then carries those parts too.
void Host::State::showDirect(VideoFeed& feed, const std::vector<SceneItem>& items,
                             std::size_t index) {
  const auto& op = std::get<DrawOp>(items[index]);
  const Rect area = intersect(op.rect, op.clip);
  GdkPoint origin{};
  GdkRectangle visible{};
  bool possible = op.alpha >= 1 && directPossible(origin, visible);
  std::vector<DrawOp> over;
  for (std::size_t i = index + 1; possible && i < items.size(); ++i) {
    if (const auto* above = std::get_if<DrawOp>(&items[i])) {
      if (!isEmpty(intersect(paintedArea(*above), area))) over.push_back(*above);
    } else if (!isEmpty(intersect(std::get<NativeItem>(items[i]).clip, area))) {
      possible = false;
    }
  }
  if (possible && !feed.direct)
    feed.direct = VideoWindow::create(gtk_widget_get_toplevel(this->area));
  if (!possible || !feed.direct) {
    dropDirect(feed);
    return;
  }
  feed.direct->show(op, std::move(over), origin, visible);
}

// Where the host's corner is in the top-level window, and what of the top-level window the host
// shows: its window cut at each window it lies in. A host inside a scrolled container, or on a
// scaled screen, draws its videos with GTK.
bool Host::State::directPossible(GdkPoint& origin, GdkRectangle& visible) const {
  GtkWidget* top = gtk_widget_get_toplevel(area);
  if (!gtk_widget_is_toplevel(top) || !gtk_widget_get_realized(area) ||
      !gtk_widget_get_mapped(area) || gtk_widget_get_scale_factor(area) != 1) {
    return false;
  }
  for (GtkWidget* up = gtk_widget_get_parent(area); up; up = gtk_widget_get_parent(up)) {
    if (GTK_IS_SCROLLABLE(up)) return false;
  }
  GdkWindow* window = gtk_widget_get_window(area);
  GdkWindow* topWindow = gtk_widget_get_window(top);
  origin = {0, 0};
  if (!gtk_widget_get_has_window(area)) {
    GtkAllocation allocation;
    gtk_widget_get_allocation(area, &allocation);
    origin = {allocation.x, allocation.y};
  }
  visible = {0, 0, gdk_window_get_width(window), gdk_window_get_height(window)};
  for (; window && window != topWindow; window = gdk_window_get_parent(window)) {
    int x = 0, y = 0;
    gdk_window_get_position(window, &x, &y);
    origin.x += x, origin.y += y, visible.x += x, visible.y += y;
    GdkWindow* parent = gdk_window_get_parent(window);
    if (!parent) return false;
    const GdkRectangle bounds{0, 0, gdk_window_get_width(parent), gdk_window_get_height(parent)};
    if (!gdk_rectangle_intersect(&visible, &bounds, &visible)) return false;
  }
  return window == topWindow;
}

// GTK draws the video again where its window was.
void Host::State::dropDirect(VideoFeed& feed) {
  if (!feed.direct) return;
  const GdkRectangle was = feed.covered();
  feed.direct.reset();
  for (const auto& layer : layers) {
    gtk_widget_queue_draw_area(layer.widget, was.x, was.y, was.width, was.height);
  }
}

void Host::State::videoFrameArrived(const platform::PlayerLayer* key) {
  auto it = videos.find(key);
  if (it == videos.end()) return;
  VideoFeed& feed = it->second;
  if (feed.direct) feed.direct->present();
  // GTK draws the frame while the window shows none (before its first frame).
  const GdkRectangle& r = feed.area;
  if (!feed.layer || feed.covered().width > 0) return;
  gtk_widget_queue_draw_area(feed.layer, r.x, r.y, r.width, r.height);
}

void Host::State::restack() {
  for (GtkWidget* widget : stacking) {
    if (GdkWindow* w = gtk_widget_get_window(widget); w && gtk_widget_get_realized(widget)) {
      gdk_window_raise(w);
    }
  }
  // The video windows have connections of their own: GDK's restacking must have reached the
  // server before they go on top of it.
  bool synced = false;
  for (auto& [key, feed] : videos) {
    if (!feed.direct) continue;
    if (!std::exchange(synced, true)) gdk_display_sync(gtk_widget_get_display(area));
    feed.direct->raise();
  }
}

void Host::State::handOverBrowser(const NativeItem& item) {
  auto browser = std::static_pointer_cast<platform::SafariViewController>(item.controller);
  std::erase_if(handedOver, [](const auto& entry) { return entry.second.expired(); });
  auto& handed = handedOver[browser.get()];
  if (handed.lock() == browser) return;
  handed = browser;
  // The app hears of it on a later turn, never inside the host's own pass (its handler may
  // change the tree or take the host down); the browser then closes as if Done had been pressed.
  auto& queue = platform::MainQueue::shared();
  queue.post([open = options.openBrowserURL, url = browser->url().absoluteString()] { open(url); });
  queue.post([weak = std::weak_ptr(browser)] {
    if (auto b = weak.lock()) b->finish();
  });
}

bool Host::State::press(double x, double y) {
  auto hit = window->hitTest(platform::Point{x, y});
  pressed = hit;
  return hit != nullptr;
}

bool Host::State::releaseAt(double x, double y) {
  auto view = std::exchange(pressed, {}).lock();
  if (!view || view->window() != window) return false;
  // A touch ends where it began: lifted outside the view, it is cancelled.
  const platform::Point corner = view->convertPointToWindow(platform::Point{0, 0});
  const Rect bounds = view->bounds();
  if (x < corner.x || y < corner.y || x >= corner.x + bounds.size.width ||
      y >= corner.y + bounds.size.height) {
    return true;
  }
  view->touchesEnded();
  return true;
}

void Host::State::takeDown() {
  if (gone) return;
  gone = true;
  window->setNeedsDisplayHandler(nullptr);
  if (tick) gtk_widget_remove_tick_callback(area, tick);
  tick = 0;
  if (passTimer) g_source_remove(passTimer);
  passTimer = 0;
  if (mapCheck) mapCheck->invalidate();
  for (auto& [view, native] : natives) release(native);
  natives.clear();
  for (auto& [key, feed] : videos) {
    if (auto engine = feed.engine.lock()) engine->hideVideo();
  }
  videos.clear();
  for (auto& layer : layers) g_signal_handlers_disconnect_by_data(layer.widget, this);
  layers.clear();
  presentations.clear();
  elements.clear();
  leaveKeyWindow();
  g_signal_handlers_disconnect_by_data(area, this);
}

Host::Host(std::unique_ptr<State> state) : state_(std::move(state)) {
  State* s = state_.get();
  // Videos on a screen are heard too, where the system has an audio output (for the process).
  if (s->options.playsSound) platform::GStreamerMediaEngine::setPlaysSound(true);
  if (!platform::GLibMainLoopBridge::isInstalled()) {
    s->warnOnce(
        "no main-loop bridge: the SDK's main queue does not run under GTK's loop, so no "
        "ad loads; call WebKitWebEngine::install() at start-up");
  }
  s->area = hostAreaNew();
  g_object_ref_sink(s->area);
  s->accessible = std::make_unique<AccessibleTree>(s->area);
  gtk_widget_set_can_focus(s->area, TRUE);
  g_signal_connect(s->area, "key-press-event", G_CALLBACK(State::onKey), s);
  g_signal_connect(s->area, "focus", G_CALLBACK(State::onFocus), s);
  g_signal_connect(s->area, "notify::is-focus", G_CALLBACK(State::onFocusShown), s);
  g_signal_connect(s->area, "hierarchy-changed", G_CALLBACK(State::onHierarchy), s);
  g_signal_connect(s->area, "unrealize", G_CALLBACK(State::onUnrealize), s);
  g_signal_connect(s->area, "size-allocate", G_CALLBACK(State::onAllocate), s);
  g_signal_connect(s->area, "map", G_CALLBACK(State::onMap), s);
  g_signal_connect(s->area, "destroy", G_CALLBACK(State::onDestroy), s);
  if (s->options.screenFromDisplay) {
    g_signal_connect(s->area, "notify::scale-factor", G_CALLBACK(State::onScaleChanged), s);
    s->readDisplayScreen();
  }
  s->window->setNeedsDisplayHandler([s] { s->scheduleSync(); });
  gtk_widget_show(s->area);
}

Host::~Host() {
  State* s = state_.get();
  s->takeDown();
  gtk_widget_destroy(s->area);
  g_object_unref(s->area);
  if (s->toplevel) gtk_widget_destroy(s->toplevel);
}

std::unique_ptr<Host> Host::createWindow(std::shared_ptr<platform::Window> window,
                                         const std::string& title, HostOptions options) {
  const platform::Size size = window->bounds().size;
  auto state = std::make_unique<State>();
  state->window = std::move(window);
  state->options = std::move(options);
  std::unique_ptr<Host> host(new Host(std::move(state)));
  State* s = host->state_.get();
  s->toplevel = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(s->toplevel), title.c_str());
  gtk_window_set_default_size(GTK_WINDOW(s->toplevel), ceilInt(size.width), ceilInt(size.height));
  g_signal_connect(s->toplevel, "delete-event", G_CALLBACK(gtk_widget_hide_on_delete), nullptr);
  gtk_container_add(GTK_CONTAINER(s->toplevel), s->area);
  gtk_widget_show(s->toplevel);
  return host;
}

std::unique_ptr<Host> Host::attach(std::shared_ptr<platform::Window> window,
                                   GtkContainer* container, HostOptions options) {
  auto state = std::make_unique<State>();
  state->window = std::move(window);
  state->options = std::move(options);
  std::unique_ptr<Host> host(new Host(std::move(state)));
  GtkWidget* area = host->state_->area;
  if (GTK_IS_OVERLAY(container)) {
    host->state_->overlay = true;
    gtk_overlay_add_overlay(GTK_OVERLAY(container), area);
  } else {
    // A window of its own over the top-level window's content, above the app's widgets.
    host->state_->slot = true;
    gtk_widget_set_has_window(area, TRUE);
    g_signal_connect_after(area, "realize", G_CALLBACK(State::onRealize), host->state_.get());
    gtk_container_add(container, area);
  }
  return host;
}

std::unique_ptr<Host> Host::attach(GtkContainer* container, HostOptions options) {
  auto root = platform::ViewController::create();
  auto window = platform::Window::create(Rect(0, 0, 1, 1));
  window->setRootViewController(root);
  window->makeKeyAndVisible();
  return attach(std::move(window), container, std::move(options));
}

const std::shared_ptr<platform::Window>& Host::window() const { return state_->window; }

std::shared_ptr<platform::ViewController> Host::rootViewController() const {
  return state_->window->rootViewController();
}

GtkWidget* Host::widget() const { return state_->area; }

GtkWindow* Host::toplevel() const {
  GtkWidget* top = gtk_widget_get_toplevel(state_->area);
  return GTK_IS_WINDOW(top) ? GTK_WINDOW(top) : nullptr;
}

bool openInDesktopBrowser(const std::string& url) {
  // The desktop opens whatever a URI names (files, other programs' schemes): an ad's link is
  // only ever a web page.
  const auto parsed = platform::URL::URLWithString(url);
  if (!parsed || !parsed->isWeb()) return false;
  return g_app_info_launch_default_for_uri(url.c_str(), nullptr, nullptr) != FALSE;
}

}  // namespace zorva::gtk
