// The banner widget (GTK 3): a GtkBin whose child is the on-screen host's widget, showing a
// platform window whose root view holds the SDK's banner view.
#include <zorva/ZVBannerView.h>
#include <zorva/engines/GtkHost.h>
#include <zorva/platform/MainQueue.h>

#include "Face.h"

namespace zorva::gobject {
namespace {

enum BannerProperty : guint {
  kRefreshInterval = kFirstOwnProperty,
  kAdWidth,
  kAdHeight,
};

enum BannerSignal { kLoaded, kFailed, kWillPresentModal, kDidDismissModal, kSignalCount };
guint signals[kSignalCount];

}  // namespace

struct BannerState {
  int width = 320;
  int height = 50;
  unsigned long refreshInterval = 0;
  std::shared_ptr<ZVAdRequest> request = std::make_shared<ZVAdRequest>();
  std::unique_ptr<gtk::Host> host;
  std::shared_ptr<ZVBannerView> banner;
  std::shared_ptr<ZVBannerViewDelegate> delegate = std::make_shared<ZVBannerViewDelegate>();
  std::shared_ptr<Relay> relay;
  ZorvaAdState state = ZORVA_AD_STATE_IDLE;
};

}  // namespace zorva::gobject

struct _ZorvaBanner {
  GtkBin parent_instance;
  zorva::gobject::BannerState* state;
};

G_DEFINE_TYPE(ZorvaBanner, zorva_banner, GTK_TYPE_BIN)

namespace zorva::gobject {
namespace {

ZorvaAdState liveState(const BannerState& s) {
  return s.banner ? toAdState(s.banner->state(), false) : ZORVA_AD_STATE_IDLE;
}

void notifyIfMoved(ZorvaBanner* self) {
  const auto state = liveState(*self->state);
  if (state == self->state->state) return;
  self->state->state = state;
  g_object_notify(G_OBJECT(self), "state");
}

// Tells "state" watchers when the SDK's state moved: now, and again on the next turn, as the SDK
// moves some states just after telling its delegate.
void syncState(ZorvaBanner* self) {
  notifyIfMoved(self);
  platform::MainQueue::shared().post([relay = self->state->relay] {
    relay->send([](gpointer object) { notifyIfMoved(ZORVA_BANNER(object)); });
  });
}

// The delegate's callbacks as the widget's signals.
void connectDelegate(BannerState& s) {
  auto emit = [relay = s.relay](guint signal) {
    return [relay, signal](ZVBannerView&) {
      relay->send([signal](gpointer object) {
        g_signal_emit(object, signals[signal], 0);
        syncState(ZORVA_BANNER(object));
      });
    };
  };
  s.delegate->bannerViewDidReceiveAd = emit(kLoaded);
  s.delegate->bannerViewWillPresentModal = emit(kWillPresentModal);
  s.delegate->bannerViewDidDismissModal = emit(kDidDismissModal);
  s.delegate->bannerViewDidFailToReceiveAdWithError = [relay = s.relay](ZVBannerView&,
                                                                        const Error& error) {
    relay->send([error](gpointer object) {
      GError* failure = toGError(error);
      g_signal_emit(object, signals[kFailed], 0, failure);
      g_error_free(failure);
      syncState(ZORVA_BANNER(object));
    });
  };
}

}  // namespace
}  // namespace zorva::gobject

using namespace zorva;
using namespace zorva::gobject;

static void zorva_banner_init(ZorvaBanner* self) {
  self->state = new BannerState;
  self->state->relay = std::make_shared<Relay>(self);
  connectDelegate(*self->state);
}

static void zorva_banner_constructed(GObject* object) {
  G_OBJECT_CLASS(zorva_banner_parent_class)->constructed(object);
  installEngines();
  auto& s = *ZORVA_BANNER(object)->state;
  s.banner = ZVBannerView::create(
      s.request, ZVAdSize{static_cast<double>(s.width), static_cast<double>(s.height)});
  s.banner->setFrame(platform::Rect(0, 0, s.width, s.height));
  s.banner->setRefreshInterval(s.refreshInterval);
  s.banner->setDelegate(s.delegate);
  s.host = gtk::Host::attach(GTK_CONTAINER(object));
  s.host->rootViewController()->view()->addSubview(s.banner);
  gtk_widget_show(s.host->widget());
}

static void zorva_banner_dispose(GObject* object) {
  auto& s = *ZORVA_BANNER(object)->state;
  // The banner first: its release stops the load in flight, then the tree leaves the screen.
  if (s.banner) s.banner->removeFromSuperview();
  s.banner.reset();
  s.host.reset();
  G_OBJECT_CLASS(zorva_banner_parent_class)->dispose(object);
}

static void zorva_banner_finalize(GObject* object) {
  delete ZORVA_BANNER(object)->state;
  G_OBJECT_CLASS(zorva_banner_parent_class)->finalize(object);
}

static void zorva_banner_set_property(GObject* object, guint id, const GValue* value,
                                      GParamSpec* pspec) {
  auto& s = *ZORVA_BANNER(object)->state;
  if (setRequestProperty(*s.request, id, value)) {
    g_object_notify_by_pspec(object, pspec);
    return;
  }
  switch (id) {
    case kRefreshInterval:
      s.refreshInterval = g_value_get_uint(value);
      if (s.banner) s.banner->setRefreshInterval(s.refreshInterval);
      g_object_notify_by_pspec(object, pspec);
      break;
    case kAdWidth:
      s.width = g_value_get_int(value);
      break;
    case kAdHeight:
      s.height = g_value_get_int(value);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void zorva_banner_get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
  auto& s = *ZORVA_BANNER(object)->state;
  if (getRequestProperty(*s.request, id, value)) return;
  switch (id) {
    case kState:
      g_value_set_enum(value, liveState(s));
      break;
    case kRefreshInterval:
      g_value_set_uint(value, static_cast<guint>(s.refreshInterval));
      break;
    case kAdWidth:
      g_value_set_int(value, s.width);
      break;
    case kAdHeight:
      g_value_set_int(value, s.height);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

// The ad's size, whatever the layout offers.
static void zorva_banner_get_preferred_width(GtkWidget* widget, int* minimum, int* natural) {
  *minimum = *natural = ZORVA_BANNER(widget)->state->width;
}

static void zorva_banner_get_preferred_height(GtkWidget* widget, int* minimum, int* natural) {
  *minimum = *natural = ZORVA_BANNER(widget)->state->height;
}

static void zorva_banner_get_preferred_height_for_width(GtkWidget* widget, int, int* minimum,
                                                        int* natural) {
  zorva_banner_get_preferred_height(widget, minimum, natural);
}

static void zorva_banner_get_preferred_width_for_height(GtkWidget* widget, int, int* minimum,
                                                        int* natural) {
  zorva_banner_get_preferred_width(widget, minimum, natural);
}

// The host's widget asks for all the room it can get; the banner does not.
static void zorva_banner_compute_expand(GtkWidget*, gboolean* hexpand, gboolean* vexpand) {
  *hexpand = *vexpand = FALSE;
}

// Given more room than the ad's size, the ad stays centred in it.
static void zorva_banner_size_allocate(GtkWidget* widget, GtkAllocation* allocation) {
  gtk_widget_set_allocation(widget, allocation);
  GtkWidget* child = gtk_bin_get_child(GTK_BIN(widget));
  if (!child || !gtk_widget_get_visible(child)) return;
  const auto& s = *ZORVA_BANNER(widget)->state;
  GtkAllocation ad;
  ad.width = std::min(s.width, allocation->width);
  ad.height = std::min(s.height, allocation->height);
  ad.x = allocation->x + (allocation->width - ad.width) / 2;
  ad.y = allocation->y + (allocation->height - ad.height) / 2;
  gtk_widget_size_allocate(child, &ad);
}

static void zorva_banner_class_init(ZorvaBannerClass* klass) {
  auto* object = G_OBJECT_CLASS(klass);
  object->constructed = zorva_banner_constructed;
  object->dispose = zorva_banner_dispose;
  object->finalize = zorva_banner_finalize;
  object->set_property = zorva_banner_set_property;
  object->get_property = zorva_banner_get_property;
  auto* widget = GTK_WIDGET_CLASS(klass);
  widget->get_preferred_width = zorva_banner_get_preferred_width;
  widget->get_preferred_height = zorva_banner_get_preferred_height;
  widget->get_preferred_height_for_width = zorva_banner_get_preferred_height_for_width;
  widget->get_preferred_width_for_height = zorva_banner_get_preferred_width_for_height;
  widget->size_allocate = zorva_banner_size_allocate;
  widget->compute_expand = zorva_banner_compute_expand;

  installRequestProperties(object);
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property(
      object, kRefreshInterval,
      g_param_spec_uint("refresh-interval", "Refresh interval", "Seconds between ads", 0, G_MAXUINT,
                        0, static_cast<GParamFlags>(flags | G_PARAM_EXPLICIT_NOTIFY)));
  constexpr auto sizeFlags = static_cast<GParamFlags>(flags | G_PARAM_CONSTRUCT_ONLY);
  g_object_class_install_property(
      object, kAdWidth,
      g_param_spec_int("ad-width", "Ad width", "The ad's width, in logical pixels", 1, G_MAXINT,
                       320, sizeFlags));
  g_object_class_install_property(
      object, kAdHeight,
      g_param_spec_int("ad-height", "Ad height", "The ad's height, in logical pixels", 1, G_MAXINT,
                       50, sizeFlags));

  addLoadSignals(ZORVA_TYPE_BANNER, &signals[kLoaded], &signals[kFailed]);
  signals[kWillPresentModal] =
      g_signal_new("will-present-modal", ZORVA_TYPE_BANNER, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr,
                   nullptr, G_TYPE_NONE, 0);
  signals[kDidDismissModal] =
      g_signal_new("did-dismiss-modal", ZORVA_TYPE_BANNER, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr,
                   nullptr, G_TYPE_NONE, 0);
}

GtkWidget* zorva_banner_new(const char* publisher_id, const char* ad_unit_id, int width,
                            int height) {
  g_return_val_if_fail(width > 0 && height > 0, nullptr);
  return GTK_WIDGET(g_object_new(ZORVA_TYPE_BANNER, "publisher-id", publisher_id, "ad-unit-id",
                                 ad_unit_id, "ad-width", width, "ad-height", height, nullptr));
}

void zorva_banner_load(ZorvaBanner* self) {
  g_return_if_fail(ZORVA_IS_BANNER(self));
  auto& s = *self->state;
  if (!s.banner) return;  // destroyed
  if (GError* error = missingIds(*s.request)) {
    // Told like the SDK's own failures: later, never inside the call.
    platform::MainQueue::shared().post([relay = s.relay, error] {
      relay->send([error](gpointer object) { g_signal_emit(object, signals[kFailed], 0, error); });
      g_error_free(error);
    });
    return;
  }
  s.banner->loadAd();
  syncState(self);
}

ZorvaAdState zorva_banner_get_state(ZorvaBanner* self) {
  g_return_val_if_fail(ZORVA_IS_BANNER(self), ZORVA_AD_STATE_IDLE);
  return liveState(*self->state);
}
