#include "Accessible.h"

#include <gtk/gtk-a11y.h>

#include <algorithm>

#include "PlacementBox.h"
#include "zorva/platform/View.h"

namespace zorva::gtk {

namespace {

/// Children held by an accessible object of the host's (a reference each).
using Children = std::vector<AtkObject*>;

// Replaces the children, telling clients which went and which came.
void setChildren(Children& children, Children next, AtkObject* parent) {
  if (next == children) return;
  for (AtkObject* child : next) g_object_ref(child);
  std::swap(children, next);
  for (std::size_t i = 0; i < next.size(); ++i) {
    if (std::find(children.begin(), children.end(), next[i]) == children.end()) {
      g_signal_emit_by_name(parent, "children-changed::remove", static_cast<guint>(i), next[i]);
    }
  }
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (std::find(next.begin(), next.end(), children[i]) == next.end()) {
      g_signal_emit_by_name(parent, "children-changed::add", static_cast<guint>(i), children[i]);
    }
  }
  for (AtkObject* child : next) g_object_unref(child);
}

struct ElementData {
  std::weak_ptr<platform::View> view;
  platform::Rect frame;
  GtkWidget* area = nullptr;
  bool button = false;
  bool focused = false;
  Children children;
};

}  // namespace

extern "C" {

struct ZorvaHostAccessible {
  GtkContainerAccessible parent;
  Children* children;
};
struct ZorvaHostAccessibleClass {
  GtkContainerAccessibleClass parent;
};
G_DEFINE_TYPE(ZorvaHostAccessible, zorva_host_accessible, GTK_TYPE_CONTAINER_ACCESSIBLE)

static Children& hostChildren(AtkObject* object) {
  return *reinterpret_cast<ZorvaHostAccessible*>(object)->children;
}
static void zorva_host_accessible_init(ZorvaHostAccessible* self) {
  self->children = new Children();
}
static void hostFinalize(GObject* object) {
  for (AtkObject* child : hostChildren(ATK_OBJECT(object))) g_object_unref(child);
  delete reinterpret_cast<ZorvaHostAccessible*>(object)->children;
  G_OBJECT_CLASS(zorva_host_accessible_parent_class)->finalize(object);
}
static gint hostChildCount(AtkObject* object) {
  return static_cast<gint>(hostChildren(object).size());
}
static AtkObject* hostChild(AtkObject* object, gint index) {
  const auto& children = hostChildren(object);
  if (index < 0 || index >= static_cast<gint>(children.size())) return nullptr;
  return ATK_OBJECT(g_object_ref(children[index]));
}
static void zorva_host_accessible_class_init(ZorvaHostAccessibleClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = hostFinalize;
  ATK_OBJECT_CLASS(klass)->get_n_children = hostChildCount;
  ATK_OBJECT_CLASS(klass)->ref_child = hostChild;
}

struct ZorvaAdElement {
  AtkObject parent;
  ElementData* data;
};
struct ZorvaAdElementClass {
  AtkObjectClass parent;
};
static void componentInit(AtkComponentIface* iface);
static void actionInit(AtkActionIface* iface);
G_DEFINE_TYPE_WITH_CODE(ZorvaAdElement, zorva_ad_element, ATK_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(ATK_TYPE_COMPONENT, componentInit)
                            G_IMPLEMENT_INTERFACE(ATK_TYPE_ACTION, actionInit))

static ElementData& data(gpointer object) {
  return *reinterpret_cast<ZorvaAdElement*>(object)->data;
}
static void zorva_ad_element_init(ZorvaAdElement* self) { self->data = new ElementData(); }
static void elementFinalize(GObject* object) {
  for (AtkObject* child : data(object).children) g_object_unref(child);
  delete reinterpret_cast<ZorvaAdElement*>(object)->data;
  G_OBJECT_CLASS(zorva_ad_element_parent_class)->finalize(object);
}
static gint elementChildCount(AtkObject* object) {
  return static_cast<gint>(data(object).children.size());
}
static AtkObject* elementChild(AtkObject* object, gint index) {
  const auto& children = data(object).children;
  if (index < 0 || index >= static_cast<gint>(children.size())) return nullptr;
  return ATK_OBJECT(g_object_ref(children[index]));
}
static AtkStateSet* elementStates(AtkObject* object) {
  AtkStateSet* states = ATK_OBJECT_CLASS(zorva_ad_element_parent_class)->ref_state_set(object);
  const ElementData& d = data(object);
  atk_state_set_add_states(states,
                           std::vector<AtkStateType>{ATK_STATE_VISIBLE, ATK_STATE_SHOWING,
                                                     ATK_STATE_ENABLED, ATK_STATE_SENSITIVE}
                               .data(),
                           4);
  if (d.button) atk_state_set_add_state(states, ATK_STATE_FOCUSABLE);
  if (d.focused) atk_state_set_add_state(states, ATK_STATE_FOCUSED);
  return states;
}
static void zorva_ad_element_class_init(ZorvaAdElementClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = elementFinalize;
  ATK_OBJECT_CLASS(klass)->get_n_children = elementChildCount;
  ATK_OBJECT_CLASS(klass)->ref_child = elementChild;
  ATK_OBJECT_CLASS(klass)->ref_state_set = elementStates;
}

static void extents(AtkComponent* component, gint* x, gint* y, gint* width, gint* height,
                    AtkCoordType coordinates) {
  const ElementData& d = data(component);
  *x = *y = *width = *height = 0;
  GdkWindow* window = gtk_widget_get_window(d.area);
  if (!window) return;
  GtkAllocation allocation;
  gtk_widget_get_allocation(d.area, &allocation);
  int left = allocation.x, top = allocation.y;
  if (coordinates != ATK_XY_WINDOW) {
    int ox = 0, oy = 0;
    gdk_window_get_origin(window, &ox, &oy);
    left += ox;
    top += oy;
  }
  *x = left + static_cast<int>(d.frame.origin.x);
  *y = top + static_cast<int>(d.frame.origin.y);
  *width = static_cast<int>(d.frame.size.width);
  *height = static_cast<int>(d.frame.size.height);
}
static void componentInit(AtkComponentIface* iface) { iface->get_extents = extents; }

static gint actionCount(AtkAction* action) { return data(action).button ? 1 : 0; }
static const gchar* actionName(AtkAction* action, gint index) {
  return data(action).button && index == 0 ? "click" : nullptr;
}
// What a tap does, on a later turn of the loop (never inside the host's own frame).
static gboolean doAction(AtkAction* action, gint index) {
  if (!data(action).button || index != 0) return FALSE;
  auto* weak = new std::weak_ptr<platform::View>(data(action).view);
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      +[](gpointer p) {
        if (auto view = static_cast<std::weak_ptr<platform::View>*>(p)->lock()) {
          view->touchesEnded();
        }
        return G_SOURCE_REMOVE;
      },
      weak, [](gpointer p) { delete static_cast<std::weak_ptr<platform::View>*>(p); });
  return TRUE;
}
static void actionInit(AtkActionIface* iface) {
  iface->get_n_actions = actionCount;
  iface->get_name = actionName;
  iface->do_action = doAction;
}

static void hostAreaClassInit(gpointer klass, gpointer) {
  gtk_widget_class_set_accessible_type(GTK_WIDGET_CLASS(klass), zorva_host_accessible_get_type());
}

}  // extern "C"

GtkWidget* hostAreaNew() {
  static const GType type = [] {
    GTypeQuery parent;
    g_type_query(placementBoxType(), &parent);
    return g_type_register_static_simple(placementBoxType(), "ZorvaHostArea", parent.class_size,
                                         hostAreaClassInit, parent.instance_size, nullptr,
                                         GTypeFlags(0));
  }();
  return GTK_WIDGET(g_object_new(type, nullptr));
}

AccessibleTree::~AccessibleTree() {
  for (auto& [view, object] : made_) g_object_unref(object);
}

void AccessibleTree::update(const std::vector<Element>& elements,
                            const std::function<GtkWidget*(const Element&)>& widgetFor,
                            const platform::View* focused) {
  AtkObject* top = gtk_widget_get_accessible(area_);
  std::map<const platform::View*, AtkObject*> made;
  // Per element: its object (null for a browser handed to the app's handler, which is not
  // shown) and, for the host's own objects, their children.
  std::vector<AtkObject*> objects(elements.size(), nullptr);
  std::vector<Children> children(elements.size());
  Children topChildren;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const Element& element = elements[i];
    AtkObject* object = nullptr;
    if (element.role == Element::Role::Page || element.role == Element::Role::Sheet) {
      GtkWidget* widget = widgetFor(element);
      if (!widget) continue;
      object = gtk_widget_get_accessible(widget);
      if (element.role == Element::Role::Sheet) {
        atk_object_set_role(object, ATK_ROLE_DIALOG);
        atk_object_set_name(object, element.name.c_str());
      }
    } else {
      auto it = made_.find(element.id);
      if (it != made_.end()) {
        object = it->second;
        made_.erase(it);
      } else {
        object = ATK_OBJECT(g_object_new(zorva_ad_element_get_type(), nullptr));
      }
      made[element.id] = object;
      ElementData& d = data(object);
      d.view = element.view;
      d.frame = element.frame;
      d.area = area_;
      d.button = element.role == Element::Role::Button;
      const bool wasFocused = std::exchange(d.focused, element.id == focused);
      atk_object_set_role(object, element.role == Element::Role::Button   ? ATK_ROLE_PUSH_BUTTON
                                  : element.role == Element::Role::Dialog ? ATK_ROLE_DIALOG
                                                                          : ATK_ROLE_PANEL);
      if (g_strcmp0(atk_object_get_name(object), element.name.c_str()) != 0) {
        atk_object_set_name(object, element.name.c_str());
      }
      if (wasFocused != d.focused) {
        atk_object_notify_state_change(object, ATK_STATE_FOCUSED, d.focused);
      }
    }
    objects[i] = object;
    AtkObject* parent = element.parent < 0 ? top : objects[element.parent];
    if (atk_object_get_parent(object) != parent) atk_object_set_parent(object, parent);
    (element.parent < 0 ? topChildren : children[element.parent]).push_back(object);
  }
  for (std::size_t i = 0; i < elements.size(); ++i) {
    if (objects[i] && G_TYPE_CHECK_INSTANCE_TYPE(objects[i], zorva_ad_element_get_type())) {
      setChildren(data(objects[i]).children, std::move(children[i]), objects[i]);
    }
  }
  setChildren(hostChildren(top), std::move(topChildren), top);
  for (auto& [view, object] : made_) g_object_unref(object);
  made_ = std::move(made);
}

}  // namespace zorva::gtk
