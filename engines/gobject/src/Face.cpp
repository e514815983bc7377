#include "Face.h"

#include <zorva/ZVErrors.h>
#include <zorva/engines/GStreamerMediaEngine.h>
#include <zorva/engines/WebKitWebEngine.h>
#include <zorva/platform/MainQueue.h>

#include <string>

namespace zorva::gobject {

void installEngines() {
  static const bool installed = [] {
    std::string whyNot;
    if (!platform::WebKitWebEngine::install(&whyNot)) {
      g_critical("Zorva: ads cannot be shown: %s", whyNot.c_str());
      return false;
    }
    if (!platform::GStreamerMediaEngine::install(&whyNot)) {
      g_warning("Zorva: videos will not play: %s", whyNot.c_str());
    }
    return true;
  }();
  (void)installed;
}

GError* toGError(const platform::Error& error) {
  ZorvaError code = ZORVA_ERROR_FAILED;
  if (error.domain == kZVErrorDomain) {
    switch (error.code) {
      case ZORVA_ERROR_NO_ADS:
      case ZORVA_ERROR_INTERNAL:
      case ZORVA_ERROR_HTTP_STATUS:
      case ZORVA_ERROR_INVALID_REQUEST:
        code = static_cast<ZorvaError>(error.code);
        break;
      default:
        if (error.code >= 100 && error.code <= 901) code = ZORVA_ERROR_VAST;
    }
  } else if (error.domain == kZVCurlErrorDomain) {
    code = classifyError(error) == ZVErrorKind::Timeout ? ZORVA_ERROR_TIMEOUT : ZORVA_ERROR_NETWORK;
  } else if (error.domain == kZVJsonErrorDomain) {
    code = ZORVA_ERROR_JSON;
  } else if (error.domain == kZVXmlErrorDomain) {
    code = ZORVA_ERROR_XML;
  }
  return g_error_new(ZORVA_ERROR, code, "%s (%s %lld)", error.localizedDescription().c_str(),
                     error.domain.c_str(), static_cast<long long>(error.code));
}

ZorvaAdState toAdState(long state, bool interstitial) {
  switch (state) {
    case 1:
      return ZORVA_AD_STATE_LOADING;
    case 2:
      return ZORVA_AD_STATE_LOADED;
    case 3:
      return interstitial ? ZORVA_AD_STATE_SHOWN : ZORVA_AD_STATE_FINISHED;
    default:
      return ZORVA_AD_STATE_IDLE;
  }
}

Relay::Relay(gpointer object) { g_weak_ref_init(&object_, object); }

Relay::~Relay() { g_weak_ref_clear(&object_); }

void Relay::send(std::function<void(gpointer object)> emit) {
  auto run = [self = shared_from_this(), emit = std::move(emit)] {
    gpointer object = g_weak_ref_get(&self->object_);
    if (!object) return;
    emit(object);
    g_object_unref(object);
  };
  auto& queue = platform::MainQueue::shared();
  if (queue.isCurrent()) {
    run();
  } else {
    queue.post(std::move(run));
  }
}

void installRequestProperties(GObjectClass* klass) {
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  G_PARAM_EXPLICIT_NOTIFY);
  g_object_class_install_property(
      klass, kPublisherId,
      g_param_spec_string("publisher-id", "Publisher id", "The publisher's id", nullptr, flags));
  g_object_class_install_property(
      klass, kAdUnitId,
      g_param_spec_string("ad-unit-id", "Ad unit id", "The ad unit's id", nullptr, flags));
  g_object_class_install_property(
      klass, kServerUrl,
      g_param_spec_string("server-url", "Server URL",
                          "Where bid requests are posted; NULL puts the default endpoint back",
                          nullptr, flags));
  g_object_class_install_property(
      klass, kNetworkTimeout,
      g_param_spec_uint("network-timeout", "Network timeout",
                        "Seconds before a bid request times out", 1, G_MAXUINT, 10, flags));
  g_object_class_install_property(
      klass, kState,
      g_param_spec_enum("state", "State", "Where the ad is in its life", ZORVA_TYPE_AD_STATE,
                        ZORVA_AD_STATE_IDLE,
                        static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
}

namespace {

void setOptional(std::optional<std::string>& field, const GValue* value) {
  const char* text = g_value_get_string(value);
  field = text ? std::optional<std::string>(text) : std::nullopt;
}

void getOptional(const std::optional<std::string>& field, GValue* value) {
  g_value_set_string(value, field ? field->c_str() : nullptr);
}

}  // namespace

bool setRequestProperty(ZVAdRequest& request, guint id, const GValue* value) {
  switch (id) {
    case kPublisherId:
      setOptional(request.publisherId, value);
      return true;
    case kAdUnitId:
      setOptional(request.adunitId, value);
      return true;
    case kServerUrl:
      setOptional(request.serverUrl, value);
      if (!request.serverUrl) request.serverUrl = ZVAdRequest::defaultServerUrl();
      return true;
    case kNetworkTimeout:
      request.netoworkTimeout = g_value_get_uint(value);
      return true;
    default:
      return false;
  }
}

bool getRequestProperty(const ZVAdRequest& request, guint id, GValue* value) {
  switch (id) {
    case kPublisherId:
      getOptional(request.publisherId, value);
      return true;
    case kAdUnitId:
      getOptional(request.adunitId, value);
      return true;
    case kServerUrl:
      getOptional(request.serverUrl, value);
      return true;
    case kNetworkTimeout:
      g_value_set_uint(value, static_cast<guint>(request.netoworkTimeout));
      return true;
    default:
      return false;
  }
}

namespace {

bool missing(const std::optional<std::string>& id) { return !id || id->empty(); }

}  // namespace

bool refuseWithoutIds(const ZVAdRequest& request, const std::shared_ptr<Relay>& relay,
                      guint failed) {
  if (!missing(request.publisherId) && !missing(request.adunitId)) return false;
  GError* error = g_error_new_literal(
      ZORVA_ERROR, ZORVA_ERROR_INVALID_REQUEST,
      missing(request.publisherId) ? "the publisher id is missing" : "the ad unit id is missing");
  platform::MainQueue::shared().post([relay, error, failed] {
    relay->send([error, failed](gpointer object) { g_signal_emit(object, failed, 0, error); });
    g_error_free(error);
  });
  return true;
}

void emitFailure(gpointer object, guint failed, const platform::Error& error) {
  GError* failure = toGError(error);
  g_signal_emit(object, failed, 0, failure);
  g_error_free(failure);
}

namespace {

void notifyIfMoved(gpointer object, StateWatch& watch) {
  const auto state = watch.live(object);
  if (state == watch.last) return;
  watch.last = state;
  g_object_notify(G_OBJECT(object), "state");
}

}  // namespace

void syncState(gpointer object, StateWatch& watch, const std::shared_ptr<Relay>& relay) {
  notifyIfMoved(object, watch);
  // The watch lives as long as the object, which the relay finds alive or not at all.
  platform::MainQueue::shared().post([relay, &watch] {
    relay->send([&watch](gpointer object) { notifyIfMoved(object, watch); });
  });
}

void addLoadSignals(GType type, guint* loaded, guint* failed) {
  *loaded =
      g_signal_new("loaded", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
  *failed = g_signal_new("failed", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                         G_TYPE_NONE, 1, G_TYPE_ERROR);
}

}  // namespace zorva::gobject

G_DEFINE_QUARK(zorva - error - quark, zorva_error)

namespace {

template <typename Enum>
GType registerEnum(const char* name, const GEnumValue* values) {
  static gsize type = 0;
  if (g_once_init_enter(&type)) g_once_init_leave(&type, g_enum_register_static(name, values));
  return type;
}

}  // namespace

GType zorva_ad_state_get_type(void) {
  static const GEnumValue values[] = {
      {ZORVA_AD_STATE_IDLE, "ZORVA_AD_STATE_IDLE", "idle"},
      {ZORVA_AD_STATE_LOADING, "ZORVA_AD_STATE_LOADING", "loading"},
      {ZORVA_AD_STATE_LOADED, "ZORVA_AD_STATE_LOADED", "loaded"},
      {ZORVA_AD_STATE_SHOWN, "ZORVA_AD_STATE_SHOWN", "shown"},
      {ZORVA_AD_STATE_FINISHED, "ZORVA_AD_STATE_FINISHED", "finished"},
      {0, nullptr, nullptr},
  };
  return registerEnum<ZorvaAdState>("ZorvaAdState", values);
}

GType zorva_error_get_type(void) {
  static const GEnumValue values[] = {
      {ZORVA_ERROR_NO_ADS, "ZORVA_ERROR_NO_ADS", "no-ads"},
      {ZORVA_ERROR_INTERNAL, "ZORVA_ERROR_INTERNAL", "internal"},
      {ZORVA_ERROR_HTTP_STATUS, "ZORVA_ERROR_HTTP_STATUS", "http-status"},
      {ZORVA_ERROR_INVALID_REQUEST, "ZORVA_ERROR_INVALID_REQUEST", "invalid-request"},
      {ZORVA_ERROR_VAST, "ZORVA_ERROR_VAST", "vast"},
      {ZORVA_ERROR_NETWORK, "ZORVA_ERROR_NETWORK", "network"},
      {ZORVA_ERROR_TIMEOUT, "ZORVA_ERROR_TIMEOUT", "timeout"},
      {ZORVA_ERROR_JSON, "ZORVA_ERROR_JSON", "json"},
      {ZORVA_ERROR_XML, "ZORVA_ERROR_XML", "xml"},
      {ZORVA_ERROR_FAILED, "ZORVA_ERROR_FAILED", "failed"},
      {0, nullptr, nullptr},
  };
  return registerEnum<ZorvaError>("ZorvaError", values);
}
