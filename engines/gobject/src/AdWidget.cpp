#include "AdWidget.h"

#include <algorithm>

namespace zorva::gobject {
namespace {

GObjectClass* binClass;  // GtkBin's, which every ad widget type derives from

ZorvaAdState liveState(gpointer widget) {
  const auto& ad = adWidgetOf(widget);
  return ad.view() ? toAdState(ad.sdkState(), false) : ZORVA_AD_STATE_IDLE;
}

void constructed(GObject* object) {
  binClass->constructed(object);
  installEngines();
  auto& ad = adWidgetOf(object);
  ad.create();
  ad.view()->setFrame(platform::Rect(0, 0, ad.width, ad.height));
  ad.host = gtk::Host::attach(GTK_CONTAINER(object));
  ad.host->rootViewController()->view()->addSubview(ad.view()->shared_from_this());
  gtk_widget_show(ad.host->widget());
}

void dispose(GObject* object) {
  auto& ad = adWidgetOf(object);
  // The SDK's object first: its release stops the load in flight, then the tree leaves the
  // screen.
  if (ad.view()) ad.view()->removeFromSuperview();
  ad.release();
  ad.host.reset();
  binClass->dispose(object);
}

void finalize(GObject* object) {
  delete &adWidgetOf(object);
  binClass->finalize(object);
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
  auto& ad = adWidgetOf(object);
  if (setRequestProperty(*ad.request, id, value) || ad.setProperty(id, value)) {
    g_object_notify_by_pspec(object, pspec);
  } else if (id == kAdWidth) {
    ad.width = g_value_get_int(value);
  } else if (id == kAdHeight) {
    ad.height = g_value_get_int(value);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
  auto& ad = adWidgetOf(object);
  if (getRequestProperty(*ad.request, id, value) || ad.getProperty(id, value)) return;
  if (id == kState) {
    g_value_set_enum(value, liveState(object));
  } else if (id == kAdWidth) {
    g_value_set_int(value, ad.width);
  } else if (id == kAdHeight) {
    g_value_set_int(value, ad.height);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

// The ad's size, whatever the layout offers.
void preferredWidth(GtkWidget* widget, int* minimum, int* natural) {
  *minimum = *natural = adWidgetOf(widget).width;
}

void preferredHeight(GtkWidget* widget, int* minimum, int* natural) {
  *minimum = *natural = adWidgetOf(widget).height;
}

void preferredHeightForWidth(GtkWidget* widget, int, int* minimum, int* natural) {
  preferredHeight(widget, minimum, natural);
}

void preferredWidthForHeight(GtkWidget* widget, int, int* minimum, int* natural) {
  preferredWidth(widget, minimum, natural);
}

// The host's widget asks for all the room it can get; the ad widget does not.
void computeExpand(GtkWidget*, gboolean* hexpand, gboolean* vexpand) {
  *hexpand = *vexpand = FALSE;
}

// Given more room than the ad's size, the ad stays centred in it.
void sizeAllocate(GtkWidget* widget, GtkAllocation* allocation) {
  gtk_widget_set_allocation(widget, allocation);
  GtkWidget* child = gtk_bin_get_child(GTK_BIN(widget));
  if (!child || !gtk_widget_get_visible(child)) return;
  const auto& ad = adWidgetOf(widget);
  GtkAllocation area;
  area.width = std::min(ad.width, allocation->width);
  area.height = std::min(ad.height, allocation->height);
  area.x = allocation->x + (allocation->width - area.width) / 2;
  area.y = allocation->y + (allocation->height - area.height) / 2;
  gtk_widget_size_allocate(child, &area);
}

}  // namespace

void adWidgetClassInit(gpointer klass, guint* signals, bool finishes) {
  binClass = G_OBJECT_CLASS(g_type_class_peek(GTK_TYPE_BIN));
  auto* object = G_OBJECT_CLASS(klass);
  object->constructed = constructed;
  object->dispose = dispose;
  object->finalize = finalize;
  object->set_property = setProperty;
  object->get_property = getProperty;
  auto* widget = GTK_WIDGET_CLASS(klass);
  widget->get_preferred_width = preferredWidth;
  widget->get_preferred_height = preferredHeight;
  widget->get_preferred_height_for_width = preferredHeightForWidth;
  widget->get_preferred_width_for_height = preferredWidthForHeight;
  widget->size_allocate = sizeAllocate;
  widget->compute_expand = computeExpand;

  installRequestProperties(object);
  constexpr auto sizeFlags =
      static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | G_PARAM_CONSTRUCT_ONLY);
  g_object_class_install_property(
      object, kAdWidth,
      g_param_spec_int("ad-width", "Ad width", "The ad's width, in logical pixels", 1, G_MAXINT,
                       320, sizeFlags));
  g_object_class_install_property(
      object, kAdHeight,
      g_param_spec_int("ad-height", "Ad height", "The ad's height, in logical pixels", 1, G_MAXINT,
                       50, sizeFlags));

  const GType type = G_TYPE_FROM_CLASS(klass);
  addLoadSignals(type, &signals[kLoaded], &signals[kFailed]);
  for (auto [signal, name] : {std::pair{kWillPresentModal, "will-present-modal"},
                              {kDidDismissModal, "did-dismiss-modal"},
                              {kFinished, "finished"}}) {
    if (signal == kFinished && !finishes) continue;
    signals[signal] =
        g_signal_new(name, type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
  }
}

void adWidgetInit(gpointer widget, AdWidget* ad) {
  reinterpret_cast<AdWidgetInstance*>(widget)->ad = ad;
  ad->relay = std::make_shared<Relay>(widget);
  ad->state.live = liveState;
}

void adWidgetLoad(gpointer widget) {
  auto& ad = adWidgetOf(widget);
  if (!ad.view()) return;  // destroyed
  if (refuseWithoutIds(*ad.request, ad.relay, ad.signals[kFailed])) return;
  ad.loadAd();
  syncState(widget, ad.state, ad.relay);
}

ZorvaAdState adWidgetState(gpointer widget) { return liveState(widget); }

}  // namespace zorva::gobject
