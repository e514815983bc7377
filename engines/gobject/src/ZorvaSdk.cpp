// The SDK's process-wide settings as the properties of one object.
#include <zorva/ZorvaSDK.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "Face.h"

struct _ZorvaSdk {
  GObject parent_instance;
  guint logLevel;
};

G_DEFINE_TYPE(ZorvaSdk, zorva_sdk, G_TYPE_OBJECT)

namespace zorva::gobject {
namespace {

struct Switch {
  const char* name;
  bool (ZorvaSDK::*get)() const;
  void (ZorvaSDK::*set)(bool);
};

// Each the setting of the same name in ZorvaSDK.h; off by default.
constexpr std::array kSwitches{
    Switch{"app-conventions", &ZorvaSDK::appConventions, &ZorvaSDK::setAppConventions},
    Switch{"callbacks-on-main-queue", &ZorvaSDK::callbacksOnMainQueue,
           &ZorvaSDK::setCallbacksOnMainQueue},
    Switch{"no-fill-as-failure", &ZorvaSDK::noFillAsFailure, &ZorvaSDK::setNoFillAsFailure},
    Switch{"interstitial-close-dismisses", &ZorvaSDK::interstitialCloseDismisses,
           &ZorvaSDK::setInterstitialCloseDismisses},
    Switch{"invalid-request-as-failure", &ZorvaSDK::invalidRequestAsFailure,
           &ZorvaSDK::setInvalidRequestAsFailure},
    Switch{"http-status-as-failure", &ZorvaSDK::httpStatusAsFailure,
           &ZorvaSDK::setHttpStatusAsFailure},
    Switch{"percent-encode-query", &ZorvaSDK::percentEncodeQuery, &ZorvaSDK::setPercentEncodeQuery},
    Switch{"open-rtb-headers", &ZorvaSDK::openRtbHeaders, &ZorvaSDK::setOpenRtbHeaders},
    Switch{"desktop-profile-by-default", &ZorvaSDK::desktopProfileByDefault,
           &ZorvaSDK::setDesktopProfileByDefault},
    Switch{"banner-removes-earlier-ads", &ZorvaSDK::bannerRemovesEarlierAds,
           &ZorvaSDK::setBannerRemovesEarlierAds},
    Switch{"video-load-bounded", &ZorvaSDK::videoLoadBounded, &ZorvaSDK::setVideoLoadBounded},
    Switch{"log-missed-callbacks", &ZorvaSDK::logMissedCallbacks, &ZorvaSDK::setLogMissedCallbacks},
    Switch{"vast-cdata-text", &ZorvaSDK::vastCdataText, &ZorvaSDK::setVastCdataText},
    Switch{"tracking-transport", &ZorvaSDK::trackingTransport, &ZorvaSDK::setTrackingTransport},
    Switch{"send-regulations", &ZorvaSDK::sendRegulations, &ZorvaSDK::setSendRegulations},
    Switch{"test-mode", &ZorvaSDK::testMode, &ZorvaSDK::setTestMode},
    Switch{"coppa", &ZorvaSDK::coppa, &ZorvaSDK::setCoppa},
    Switch{"gdpr", &ZorvaSDK::gdpr, &ZorvaSDK::setGdpr},
};

struct Text {
  const char* name;
  std::optional<std::string> (ZorvaSDK::*get)() const;
  void (ZorvaSDK::*set)(std::optional<std::string>);
};

constexpr std::array kTexts{
    Text{"app-domain", &ZorvaSDK::appDomain, &ZorvaSDK::setAppDomain},
    Text{"app-categories", &ZorvaSDK::appCategories, &ZorvaSDK::setAppCategories},
    Text{"app-keywords", &ZorvaSDK::appkeywords, &ZorvaSDK::setAppkeywords},
    Text{"user-keywords", &ZorvaSDK::userKeywords, &ZorvaSDK::setUserKeywords},
    Text{"gdpr-consent", &ZorvaSDK::gdprConsent, &ZorvaSDK::setGdprConsent},
    Text{"us-privacy", &ZorvaSDK::usPrivacy, &ZorvaSDK::setUsPrivacy},
    Text{"gpp", &ZorvaSDK::gpp, &ZorvaSDK::setGpp},
    Text{"tracking-queue-path", &ZorvaSDK::trackingQueuePath, &ZorvaSDK::setTrackingQueuePath},
};

// Property ids: the log level, the fetch budget, the settings of their own shape, then the
// switches, then the texts.
enum : guint { kLogLevel = 1, kVastFetchBudget, kStoreUrl, kLocation, kGppSid, kFirstSwitch };
constexpr guint kFirstText = kFirstSwitch + kSwitches.size();
constexpr guint kPropertyCount = kFirstText + kTexts.size();
GParamSpec* properties[kPropertyCount];

}  // namespace
}  // namespace zorva::gobject

using namespace zorva;
using namespace zorva::gobject;

static void zorva_sdk_init(ZorvaSdk* self) { self->logLevel = 1; }

static void zorva_sdk_set_property(GObject* object, guint id, const GValue* value,
                                   GParamSpec* pspec) {
  auto sdk = ZorvaSDK::shared();
  if (id == kLogLevel) {
    ZORVA_SDK(object)->logLevel = g_value_get_uint(value);
    ZorvaSDK::setLevel(ZORVA_SDK(object)->logLevel);
  } else if (id == kVastFetchBudget) {
    sdk->setVastFetchBudget(g_value_get_uint(value));
  } else if (id == kStoreUrl) {
    const char* text = g_value_get_string(value);
    auto url = text ? platform::URL::URLWithString(text) : std::nullopt;
    if (text && !url) {
      g_warning("Zorva: \"%s\" is not an absolute URL: the store URL is unchanged", text);
      return;
    }
    sdk->setStoreURL(std::move(url));
  } else if (id == kLocation) {
    GVariant* location = g_value_get_variant(value);
    std::optional<platform::Location> fix;
    if (location) {
      double latitude = 0, longitude = 0;
      g_variant_get(location, "(dd)", &latitude, &longitude);
      fix = platform::Location(latitude, longitude);
    }
    sdk->setLocation(fix);
  } else if (id == kGppSid) {
    std::vector<int> sections;
    if (GVariant* ids = g_value_get_variant(value)) {
      gsize count = 0;
      const auto* values =
          static_cast<const gint32*>(g_variant_get_fixed_array(ids, &count, sizeof(gint32)));
      sections.assign(values, values + count);
    }
    sdk->setGppSid(std::move(sections));
  } else if (id >= kFirstText && id < kPropertyCount) {
    const char* text = g_value_get_string(value);
    ((*sdk).*kTexts[id - kFirstText].set)(text ? std::optional<std::string>(text) : std::nullopt);
  } else if (id >= kFirstSwitch && id < kFirstText) {
    // One switch may move others (app-conventions moves its conventions): each one that moved
    // is notified.
    std::array<bool, kSwitches.size()> before{};
    for (std::size_t i = 0; i < kSwitches.size(); ++i) before[i] = ((*sdk).*kSwitches[i].get)();
    ((*sdk).*kSwitches[id - kFirstSwitch].set)(g_value_get_boolean(value));
    g_object_freeze_notify(object);
    for (std::size_t i = 0; i < kSwitches.size(); ++i) {
      if (((*sdk).*kSwitches[i].get)() != before[i]) {
        g_object_notify_by_pspec(object, properties[kFirstSwitch + i]);
      }
    }
    g_object_thaw_notify(object);
    return;
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    return;
  }
  g_object_notify_by_pspec(object, pspec);
}

static void zorva_sdk_get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
  auto sdk = ZorvaSDK::shared();
  if (id == kLogLevel) {
    g_value_set_uint(value, ZORVA_SDK(object)->logLevel);
  } else if (id == kVastFetchBudget) {
    g_value_set_uint(value, static_cast<guint>(sdk->vastFetchBudget()));
  } else if (id == kStoreUrl) {
    const auto url = sdk->storeURL();
    g_value_set_string(value, url ? url->absoluteString().c_str() : nullptr);
  } else if (id == kLocation) {
    const auto fix = sdk->location();
    g_value_set_variant(
        value,
        fix ? g_variant_new("(dd)", fix->coordinate.latitude, fix->coordinate.longitude) : nullptr);
  } else if (id == kGppSid) {
    const auto sections = sdk->gppSid();
    const std::vector<gint32> ids(sections.begin(), sections.end());
    g_value_set_variant(value, g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, ids.data(),
                                                         ids.size(), sizeof(gint32)));
  } else if (id >= kFirstText && id < kPropertyCount) {
    const auto text = ((*sdk).*kTexts[id - kFirstText].get)();
    g_value_set_string(value, text ? text->c_str() : nullptr);
  } else if (id >= kFirstSwitch && id < kFirstText) {
    g_value_set_boolean(value, ((*sdk).*kSwitches[id - kFirstSwitch].get)());
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void zorva_sdk_class_init(ZorvaSdkClass* klass) {
  auto* object = G_OBJECT_CLASS(klass);
  object->set_property = zorva_sdk_set_property;
  object->get_property = zorva_sdk_get_property;
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  G_PARAM_EXPLICIT_NOTIFY);
  properties[kLogLevel] =
      g_param_spec_uint("log-level", "Log level",
                        "0 silent, 1 errors (the default), 2 warnings, 3 information, 4 debug, "
                        "5 verbose",
                        0, 5, 1, flags);
  properties[kVastFetchBudget] = g_param_spec_uint(
      "vast-fetch-budget", "VAST fetch budget",
      "The most VAST documents one video load fetches; 0: no budget", 0, G_MAXUINT, 0, flags);
  properties[kStoreUrl] =
      g_param_spec_string("store-url", "Store URL", "The app's store page", nullptr, flags);
  properties[kLocation] = g_param_spec_variant(
      "location", "Location", "A location the app knows, (latitude, longitude) in degrees",
      G_VARIANT_TYPE("(dd)"), nullptr, flags);
  properties[kGppSid] =
      g_param_spec_variant("gpp-sid", "GPP section ids", "The GPP section ids that apply",
                           G_VARIANT_TYPE("ai"), nullptr, flags);
  for (std::size_t i = 0; i < kSwitches.size(); ++i) {
    properties[kFirstSwitch + i] =
        g_param_spec_boolean(kSwitches[i].name, nullptr, nullptr, FALSE, flags);
  }
  for (std::size_t i = 0; i < kTexts.size(); ++i) {
    properties[kFirstText + i] =
        g_param_spec_string(kTexts[i].name, nullptr, nullptr, nullptr, flags);
  }
  g_object_class_install_properties(object, kPropertyCount, properties);
}

ZorvaSdk* zorva_sdk_get_default(void) {
  static ZorvaSdk* sdk = ZORVA_SDK(g_object_new(ZORVA_TYPE_SDK, nullptr));
  return sdk;
}
