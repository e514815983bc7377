#include "zorva/engines/GtkHost.h"

#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "PlacementBox.h"
#include "Scene.h"
#include "SystemPanels.h"
#include "zorva/engines/WebKitWebEngine.h"
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

int floorInt(double v) { return static_cast<int>(std::floor(v)); }
int ceilInt(double v) { return static_cast<int>(std::ceil(v)); }

GdkRectangle pixelRect(const Rect& r) {
  const int x = floorInt(r.origin.x), y = floorInt(r.origin.y);
  return GdkRectangle{x, y, ceilInt(r.origin.x + r.size.width) - x,
                      ceilInt(r.origin.y + r.size.height) - y};
}

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
};

/// A video layer on the screen: its engine's frames, and where a new frame must be redrawn.
struct VideoFeed {
  std::weak_ptr<platform::PlayerLayer> layerObject;
  std::weak_ptr<platform::GStreamerMediaEngine> engine;
  std::shared_ptr<platform::VideoFrames> frames;
  GtkWidget* layer = nullptr;
  GdkRectangle area{};
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

struct Host::State {
  std::shared_ptr<platform::Window> window;
  HostOptions options;
  GtkWidget* toplevel = nullptr;  // made by createWindow, destroyed with the host
  GtkWidget* area = nullptr;
  /// The area is an overlay over the app's content: the window GtkOverlay made for it takes the
  /// pointer only where the tree shows something.
  bool overlay = false;
  /// The area's widget was destroyed by the app (with its window): nothing is left to update.
  bool gone = false;
  guint tick = 0;
  bool syncing = false;
  std::vector<DrawLayer> layers;
  std::map<const platform::View*, NativeWidget> natives;
  std::map<const platform::PlayerLayer*, VideoFeed> videos;
  std::set<const platform::PlayerLayer*> shownVideos;
  /// The stacking order applied last, bottom first.
  std::vector<GtkWidget*> stacking;
  /// Where a press landed; the touch ends there.
  std::weak_ptr<platform::View> pressed;
  /// Browsers already handed to `options.openBrowserURL`.
  std::set<const platform::ViewController*> handedOver;

  void scheduleSync();
  void sync();
  void place(std::vector<SceneItem> items);
  DrawLayer& layerAt(std::size_t index);
  NativeWidget& nativeFor(const NativeItem& item);
  void release(NativeWidget& native);
  void restack();
  void showVideo(DrawOp& op, GtkWidget* layer);
  void videoFrameArrived(const platform::PlayerLayer* key);
  void handOverBrowser(const NativeItem& item);
  bool press(double x, double y);
  bool releaseAt(double x, double y);
  void takeDown();
  void readDisplayScreen();

  static gboolean onTick(GtkWidget*, GdkFrameClock*, gpointer data) {
    auto* self = static_cast<State*>(data);
    self->tick = 0;
    self->sync();
    return G_SOURCE_REMOVE;
  }
  static void onAllocate(GtkWidget*, GdkRectangle* allocation, gpointer data) {
    auto* self = static_cast<State*>(data);
    const platform::Size size{static_cast<double>(allocation->width),
                              static_cast<double>(allocation->height)};
    if (size != self->window->bounds().size) self->window->resize(size);
    // The drawing layers cover the whole area whatever the tree says.
    self->scheduleSync();
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

void Host::State::scheduleSync() {
  if (syncing || tick) return;
  tick = gtk_widget_add_tick_callback(area, onTick, this, nullptr);
}

void Host::State::sync() {
  syncing = true;
  window->layoutIfNeeded();
  place(buildScene(window));
  syncing = false;
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
    layers.push_back(DrawLayer{widget, {}});
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
  GtkAllocation allocation;
  gtk_widget_get_allocation(area, &allocation);
  std::size_t layerIndex = 0;
  std::vector<GtkWidget*> order;
  std::set<const platform::View*> shown;
  shownVideos.clear();
  cairo_region_t* everything = cairo_region_create();
  std::vector<DrawOp> run;
  auto flush = [&] {
    // A run between two native widgets needs no widget when it is empty; the bottom layer is
    // always there, for the clicks on drawn parts below every page.
    if (run.empty() && layerIndex > 0) return;
    DrawLayer& layer = layerAt(layerIndex++);
    layer.ops = std::move(run);
    run.clear();
    for (auto& op : layer.ops) {
      if (op.kind == DrawOp::Kind::Video) showVideo(op, layer.widget);
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
    placementBoxPlace(area, layer.widget, 0, 0, allocation.width, allocation.height);
    gtk_widget_queue_draw(layer.widget);
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
  // Over the app's content, the overlay's window for the area takes the pointer only where the
  // tree shows something; the rest falls through to the app. (GtkOverlay's pass-through would
  // lose clicks meant for widgets nested two windows deep, such as a page in its clip box.)
  if (overlay && gtk_widget_get_realized(area)) {
    gdk_window_input_shape_combine_region(gtk_widget_get_window(area), everything, 0, 0);
  }
  cairo_region_destroy(everything);
  if (order != stacking || !gtk_widget_get_mapped(area)) {
    stacking = order;
    restack();
  }
}

void Host::State::showVideo(DrawOp& op, GtkWidget* layer) {
  auto video = op.video.lock();
  const auto& item = video && video->player() ? video->player()->currentItem() : nullptr;
  auto engine =
      item ? std::dynamic_pointer_cast<platform::GStreamerMediaEngine>(item->engine()) : nullptr;
  if (!engine) return;  // a headless engine has no frames
  const platform::PlayerLayer* key = video.get();
  VideoFeed& feed = videos[key];
  if (feed.frames && feed.layerObject.lock() != video) {
    // A new layer at a freed one's address.
    if (auto old = feed.engine.lock()) old->hideVideo();
    feed = VideoFeed{};
  }
  if (!feed.frames) {
    feed.layerObject = video;
    feed.engine = engine;
    feed.frames = engine->showVideo([this, key] { videoFrameArrived(key); });
  }
  feed.layer = layer;
  feed.area = pixelRect(intersect(op.rect, op.clip));
  op.frames = feed.frames;
  shownVideos.insert(key);
}

void Host::State::videoFrameArrived(const platform::PlayerLayer* key) {
  auto it = videos.find(key);
  if (it == videos.end()) return;
  const GdkRectangle& r = it->second.area;
  gtk_widget_queue_draw_area(it->second.layer, r.x, r.y, r.width, r.height);
}

void Host::State::restack() {
  for (GtkWidget* widget : stacking) {
    if (GdkWindow* w = gtk_widget_get_window(widget); w && gtk_widget_get_realized(widget)) {
      gdk_window_raise(w);
    }
  }
}

void Host::State::handOverBrowser(const NativeItem& item) {
  auto browser = std::static_pointer_cast<platform::SafariViewController>(item.controller);
  if (!handedOver.insert(browser.get()).second) return;
  options.openBrowserURL(browser->url().absoluteString());
  // Closed on a later turn, as if Done had been pressed, never inside the host's own frame.
  platform::MainQueue::shared().post([weak = std::weak_ptr(browser)] {
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
  for (auto& [view, native] : natives) release(native);
  natives.clear();
  for (auto& [key, feed] : videos) {
    if (auto engine = feed.engine.lock()) engine->hideVideo();
  }
  videos.clear();
  for (auto& layer : layers) g_signal_handlers_disconnect_by_data(layer.widget, this);
  layers.clear();
  g_signal_handlers_disconnect_by_data(area, this);
}

Host::Host(std::unique_ptr<State> state) : state_(std::move(state)) {
  State* s = state_.get();
  // Videos on a screen are heard too, where the system has an audio output.
  platform::GStreamerMediaEngine::setPlaysSound(true);
  s->area = placementBoxNew(false);
  g_object_ref_sink(s->area);
  gtk_widget_set_hexpand(s->area, TRUE);
  gtk_widget_set_vexpand(s->area, TRUE);
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
