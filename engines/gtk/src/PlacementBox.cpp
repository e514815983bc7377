#include "PlacementBox.h"

#include <algorithm>
#include <vector>

namespace zorva::gtk {

namespace {

struct Placement {
  GtkWidget* child;
  GdkRectangle rect;
};

}  // namespace

extern "C" {

struct ZorvaPlacementBox {
  GtkContainer parent;
  std::vector<Placement>* children;
  int width, height;     // the size it asks for
  bool windowElsewhere;  // its window is at `window`, not over its allocation
  GdkRectangle window;   // relative to its allocation
};

struct ZorvaPlacementBoxClass {
  GtkContainerClass parent;
};

G_DEFINE_TYPE(ZorvaPlacementBox, zorva_placement_box, GTK_TYPE_CONTAINER)

static std::vector<Placement>& placements(GtkWidget* widget) {
  return *reinterpret_cast<ZorvaPlacementBox*>(widget)->children;
}

static void zorva_placement_box_init(ZorvaPlacementBox* box) {
  box->children = new std::vector<Placement>();
  gtk_widget_set_has_window(GTK_WIDGET(box), FALSE);
}

static void finalize(GObject* object) {
  delete reinterpret_cast<ZorvaPlacementBox*>(object)->children;
  G_OBJECT_CLASS(zorva_placement_box_parent_class)->finalize(object);
}

// Where a windowed box's window goes, in its parent window's coordinates.
static GdkRectangle windowArea(GtkWidget* widget) {
  GtkAllocation allocation;
  gtk_widget_get_allocation(widget, &allocation);
  const auto* self = reinterpret_cast<ZorvaPlacementBox*>(widget);
  if (!self->windowElsewhere) return allocation;
  return GdkRectangle{allocation.x + self->window.x, allocation.y + self->window.y,
                      self->window.width, self->window.height};
}

static void realize(GtkWidget* widget) {
  if (!gtk_widget_get_has_window(widget)) {
    GTK_WIDGET_CLASS(zorva_placement_box_parent_class)->realize(widget);
    return;
  }
  gtk_widget_set_realized(widget, TRUE);
  const GdkRectangle area = windowArea(widget);
  GdkWindowAttr attributes{};
  attributes.window_type = GDK_WINDOW_CHILD;
  attributes.x = area.x;
  attributes.y = area.y;
  attributes.width = area.width;
  attributes.height = area.height;
  attributes.wclass = GDK_INPUT_OUTPUT;
  attributes.visual = gtk_widget_get_visual(widget);
  attributes.event_mask = gtk_widget_get_events(widget) | GDK_EXPOSURE_MASK;
  GdkWindow* window = gdk_window_new(gtk_widget_get_parent_window(widget), &attributes,
                                     GDK_WA_X | GDK_WA_Y | GDK_WA_VISUAL);
  gtk_widget_register_window(widget, window);
  gtk_widget_set_window(widget, window);
}

static void sizeAllocate(GtkWidget* widget, GtkAllocation* allocation) {
  gtk_widget_set_allocation(widget, allocation);
  const bool windowed = gtk_widget_get_has_window(widget);
  if (windowed) {
    const GdkRectangle area = windowArea(widget);
    if (gtk_widget_get_realized(widget)) {
      gdk_window_move_resize(gtk_widget_get_window(widget), area.x, area.y, area.width,
                             area.height);
    }
    // GTK draws a windowed widget in its window from the allocation's corner, cut at the clip's
    // size: the clip is the window's size there.
    const GdkRectangle clip{allocation->x, allocation->y, area.width, area.height};
    gtk_widget_set_clip(widget, &clip);
  }
  // Children of a windowed box are placed in its window; the others in the parent's.
  const int dx = windowed ? 0 : allocation->x;
  const int dy = windowed ? 0 : allocation->y;
  for (auto& placement : placements(widget)) {
    GtkRequisition ignored;
    gtk_widget_get_preferred_size(placement.child, &ignored, nullptr);
    GtkAllocation child{placement.rect.x + dx, placement.rect.y + dy, placement.rect.width,
                        placement.rect.height};
    gtk_widget_size_allocate(placement.child, &child);
  }
}

static void preferredWidth(GtkWidget* widget, gint* minimum, gint* natural) {
  *minimum = *natural = reinterpret_cast<ZorvaPlacementBox*>(widget)->width;
}

static void preferredHeight(GtkWidget* widget, gint* minimum, gint* natural) {
  *minimum = *natural = reinterpret_cast<ZorvaPlacementBox*>(widget)->height;
}

static void add(GtkContainer* container, GtkWidget* child) {
  placementBoxPlace(GTK_WIDGET(container), child, 0, 0, 1, 1);
}

static void remove(GtkContainer* container, GtkWidget* child) {
  auto& list = placements(GTK_WIDGET(container));
  auto it = std::find_if(list.begin(), list.end(), [&](const auto& p) { return p.child == child; });
  if (it == list.end()) return;
  list.erase(it);
  gtk_widget_unparent(child);
}

static void forall(GtkContainer* container, gboolean, GtkCallback callback, gpointer data) {
  // A copy: the callback may remove the child (destruction does).
  std::vector<GtkWidget*> children;
  for (const auto& placement : placements(GTK_WIDGET(container))) {
    children.push_back(placement.child);
  }
  for (GtkWidget* child : children) callback(child, data);
}

static void zorva_placement_box_class_init(ZorvaPlacementBoxClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = finalize;
  auto* widgetClass = GTK_WIDGET_CLASS(klass);
  widgetClass->realize = realize;
  widgetClass->size_allocate = sizeAllocate;
  widgetClass->get_preferred_width = preferredWidth;
  widgetClass->get_preferred_height = preferredHeight;
  auto* containerClass = GTK_CONTAINER_CLASS(klass);
  containerClass->add = add;
  containerClass->remove = remove;
  containerClass->forall = forall;
}

}  // extern "C"

GtkWidget* placementBoxNew(bool withWindow) {
  auto* box = GTK_WIDGET(g_object_new(zorva_placement_box_get_type(), nullptr));
  gtk_widget_set_has_window(box, withWindow);
  return box;
}

GType placementBoxType() { return zorva_placement_box_get_type(); }

void placementBoxRequest(GtkWidget* box, int width, int height) {
  auto* self = reinterpret_cast<ZorvaPlacementBox*>(box);
  if (self->width == width && self->height == height) return;
  self->width = width;
  self->height = height;
  gtk_widget_queue_resize(box);
}

void placementBoxPutWindow(GtkWidget* box, const GdkRectangle& area) {
  auto* self = reinterpret_cast<ZorvaPlacementBox*>(box);
  if (self->windowElsewhere && gdk_rectangle_equal(&self->window, &area)) return;
  self->windowElsewhere = true;
  self->window = area;
  GtkAllocation allocation;
  gtk_widget_get_allocation(box, &allocation);
  sizeAllocate(box, &allocation);
}

void placementBoxPlace(GtkWidget* box, GtkWidget* child, int x, int y, int width, int height) {
  auto& list = placements(box);
  const GdkRectangle rect{x, y, std::max(width, 1), std::max(height, 1)};
  auto it = std::find_if(list.begin(), list.end(), [&](const auto& p) { return p.child == child; });
  if (it == list.end()) {
    list.push_back({child, rect});
    gtk_widget_set_parent(child, box);
  } else if (it->rect.x != rect.x || it->rect.y != rect.y || it->rect.width != rect.width ||
             it->rect.height != rect.height) {
    it->rect = rect;
  } else {
    return;
  }
  gtk_widget_queue_resize(box);
}

}  // namespace zorva::gtk
