// The interstitial: the SDK's interstitial presented from the root of an on-screen host laid
// over a GtkWindow's content, and taken off again when its ad leaves the screen.
#include <zorva/ZVInterstitialAd.h>
#include <zorva/engines/GtkHost.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/View.h>

#include "Face.h"

namespace zorva::gobject {
namespace {

enum InterstitialProperty : guint { kVideo = kFirstOwnProperty };

enum InterstitialSignal { kLoaded, kFailed, kWillPresent, kClicked, kDismissed, kSignalCount };
guint signals[kSignalCount];

// An empty view riding in the modal's view: it hears the modal leave the window, whatever took
// it away (the ad's close button, the app, a later presentation).
class LeaveWatch : public platform::View {
 public:
  static std::shared_ptr<LeaveWatch> create(std::function<void()> left) {
    std::shared_ptr<LeaveWatch> watch(new LeaveWatch);
    watch->left_ = std::move(left);
    watch->setHidden(true);
    return watch;
  }

  void didMoveToWindow() override {
    if (window()) {
      onScreen_ = true;
    } else if (onScreen_ && left_) {
      std::exchange(left_, nullptr)();
    }
  }

 private:
  LeaveWatch() : View(platform::Rect()) {}
  std::function<void()> left_;
  bool onScreen_ = false;
};

}  // namespace

struct InterstitialState {
  std::shared_ptr<ZVAdRequest> request = std::make_shared<ZVAdRequest>();
  std::shared_ptr<ZVInterstitialAd> ad;
  std::shared_ptr<ZVInterstitialAdDelegate> delegate = std::make_shared<ZVInterstitialAdDelegate>();
  std::shared_ptr<Relay> relay;
  StateWatch state;
  // While shown: the host over the window, and what was changed in the window to lay it there.
  std::unique_ptr<gtk::Host> host;
  GtkWindow* parent = nullptr;   // weak
  GtkWidget* overlay = nullptr;  // the overlay put in the window, when it had no overlay
  GtkWidget* content = nullptr;  // the window's child, moved into that overlay

  // Takes the host off the window and puts the window's content back as it was.
  void hide() {
    host.reset();
    if (!parent) return;
    g_object_remove_weak_pointer(G_OBJECT(parent), reinterpret_cast<gpointer*>(&parent));
    if (overlay) {
      if (content) {
        g_object_ref(content);
        gtk_container_remove(GTK_CONTAINER(overlay), content);
      }
      gtk_container_remove(GTK_CONTAINER(parent), overlay);
      if (content) {
        gtk_container_add(GTK_CONTAINER(parent), content);
        g_object_unref(content);
      }
    }
    parent = nullptr;
    overlay = content = nullptr;
  }
};

}  // namespace zorva::gobject

struct _ZorvaInterstitial {
  GObject parent_instance;
  zorva::gobject::InterstitialState* state;
};

G_DEFINE_TYPE(ZorvaInterstitial, zorva_interstitial, G_TYPE_OBJECT)

namespace zorva::gobject {
namespace {

ZorvaAdState liveState(gpointer object) {
  const auto& s = *ZORVA_INTERSTITIAL(object)->state;
  return s.ad ? toAdState(s.ad->state(), true) : ZORVA_AD_STATE_IDLE;
}

void syncInterstitial(ZorvaInterstitial* self) {
  syncState(self, self->state->state, self->state->relay);
}

void connectDelegate(InterstitialState& s) {
  auto emit = [relay = s.relay](guint signal) {
    return [relay, signal](ZVInterstitialAd&) {
      relay->send([signal](gpointer object) {
        g_signal_emit(object, signals[signal], 0);
        syncInterstitial(ZORVA_INTERSTITIAL(object));
      });
    };
  };
  s.delegate->interstitialDidReceiveAd = emit(kLoaded);
  s.delegate->interstitialWillPresentAd = emit(kWillPresent);
  s.delegate->interstitialDidClickAd = emit(kClicked);
  s.delegate->interstitialDidFailToReceiveAdWithError = [relay = s.relay](ZVInterstitialAd&,
                                                                          const Error& error) {
    relay->send([error](gpointer object) {
      emitFailure(object, signals[kFailed], error);
      syncInterstitial(ZORVA_INTERSTITIAL(object));
    });
  };
}

}  // namespace
}  // namespace zorva::gobject

using namespace zorva;
using namespace zorva::gobject;

static void zorva_interstitial_init(ZorvaInterstitial* self) {
  installEngines();
  self->state = new InterstitialState;
  auto& s = *self->state;
  s.relay = std::make_shared<Relay>(self);
  s.state.live = liveState;
  connectDelegate(s);
  s.ad = ZVInterstitialAd::create(s.request);
  s.ad->setDelegate(s.delegate);
}

static void zorva_interstitial_dispose(GObject* object) {
  auto& s = *ZORVA_INTERSTITIAL(object)->state;
  s.ad.reset();
  s.hide();
  G_OBJECT_CLASS(zorva_interstitial_parent_class)->dispose(object);
}

static void zorva_interstitial_finalize(GObject* object) {
  delete ZORVA_INTERSTITIAL(object)->state;
  G_OBJECT_CLASS(zorva_interstitial_parent_class)->finalize(object);
}

static void zorva_interstitial_set_property(GObject* object, guint id, const GValue* value,
                                            GParamSpec* pspec) {
  auto& s = *ZORVA_INTERSTITIAL(object)->state;
  if (setRequestProperty(*s.request, id, value)) {
    g_object_notify_by_pspec(object, pspec);
  } else if (id == kVideo && s.ad) {
    s.ad->setSwitchToVideo(g_value_get_boolean(value));
    g_object_notify_by_pspec(object, pspec);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void zorva_interstitial_get_property(GObject* object, guint id, GValue* value,
                                            GParamSpec* pspec) {
  auto& s = *ZORVA_INTERSTITIAL(object)->state;
  if (getRequestProperty(*s.request, id, value)) return;
  if (id == kState) {
    g_value_set_enum(value, liveState(object));
  } else if (id == kVideo) {
    g_value_set_boolean(value, s.ad && s.ad->switchToVideo());
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void zorva_interstitial_class_init(ZorvaInterstitialClass* klass) {
  auto* object = G_OBJECT_CLASS(klass);
  object->dispose = zorva_interstitial_dispose;
  object->finalize = zorva_interstitial_finalize;
  object->set_property = zorva_interstitial_set_property;
  object->get_property = zorva_interstitial_get_property;

  installRequestProperties(object);
  g_object_class_install_property(
      object, kVideo,
      g_param_spec_boolean("video", "Video", "Asks for a video ad; read when the first load starts",
                           FALSE,
                           static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                    G_PARAM_EXPLICIT_NOTIFY)));

  addLoadSignals(ZORVA_TYPE_INTERSTITIAL, &signals[kLoaded], &signals[kFailed]);
  for (auto [signal, name] : {std::pair{kWillPresent, "will-present"},
                              {kClicked, "clicked"},
                              {kDismissed, "dismissed"}}) {
    signals[signal] = g_signal_new(name, ZORVA_TYPE_INTERSTITIAL, G_SIGNAL_RUN_LAST, 0, nullptr,
                                   nullptr, nullptr, G_TYPE_NONE, 0);
  }
}

ZorvaInterstitial* zorva_interstitial_new(const char* publisher_id, const char* ad_unit_id) {
  return ZORVA_INTERSTITIAL(g_object_new(ZORVA_TYPE_INTERSTITIAL, "publisher-id", publisher_id,
                                         "ad-unit-id", ad_unit_id, nullptr));
}

void zorva_interstitial_load(ZorvaInterstitial* self) {
  g_return_if_fail(ZORVA_IS_INTERSTITIAL(self));
  auto& s = *self->state;
  if (!s.ad) return;  // disposed
  if (refuseWithoutIds(*s.request, s.relay, signals[kFailed])) return;
  s.ad->loadAd();
  syncInterstitial(self);
}

gboolean zorva_interstitial_show(ZorvaInterstitial* self, GtkWindow* parent) {
  g_return_val_if_fail(ZORVA_IS_INTERSTITIAL(self), FALSE);
  g_return_val_if_fail(GTK_IS_WINDOW(parent), FALSE);
  auto& s = *self->state;
  if (!s.ad || s.host) return FALSE;

  // The host goes over the window's content: in its overlay, or in one put around it.
  GtkWidget* child = gtk_bin_get_child(GTK_BIN(parent));
  GtkContainer* target = GTK_CONTAINER(parent);
  if (child && GTK_IS_OVERLAY(child)) {
    target = GTK_CONTAINER(child);
  } else if (child) {
    s.overlay = gtk_overlay_new();
    s.content = child;
    g_object_ref(child);
    gtk_container_remove(GTK_CONTAINER(parent), child);
    gtk_container_add(GTK_CONTAINER(s.overlay), child);
    g_object_unref(child);
    gtk_container_add(GTK_CONTAINER(parent), s.overlay);
    gtk_widget_show(s.overlay);
    target = GTK_CONTAINER(s.overlay);
  }
  s.parent = parent;
  g_object_add_weak_pointer(G_OBJECT(parent), reinterpret_cast<gpointer*>(&s.parent));
  s.host = gtk::Host::attach(target);
  gtk_widget_show(s.host->widget());
  s.ad->showFromViewController(s.host->rootViewController());

  // When the ad leaves the screen: the window gets its content back (on the next turn, outside
  // the SDK's dismissal), then the app hears it.
  auto left = [relay = s.relay] {
    platform::MainQueue::shared().post([relay] {
      relay->send([](gpointer object) {
        auto* self = ZORVA_INTERSTITIAL(object);
        self->state->hide();
        g_signal_emit(object, signals[kDismissed], 0);
        syncInterstitial(self);
      });
    });
  };
  if (auto modal = s.ad->modalController()) modal->view()->addSubview(LeaveWatch::create(left));
  syncInterstitial(self);
  return TRUE;
}

ZorvaAdState zorva_interstitial_get_state(ZorvaInterstitial* self) {
  g_return_val_if_fail(ZORVA_IS_INTERSTITIAL(self), ZORVA_AD_STATE_IDLE);
  return liveState(self);
}
