// The banner widget: the SDK's banner view in an ad widget, with its refresh interval.
#include <zorva/ZVBannerView.h>

#include "AdWidget.h"

namespace zorva::gobject {
namespace {

enum BannerProperty : guint { kRefreshInterval = kFirstFormatProperty };

guint bannerSignals[kAdWidgetSignalCount];

class BannerSlot final : public AdSlot<ZVBannerView, ZVBannerViewDelegate> {
 public:
  BannerSlot() : AdSlot(bannerSignals) {}

  void create() override {
    AdSlot::create();
    sdk->setRefreshInterval(refreshInterval_);
  }

  bool setProperty(guint id, const GValue* value) override {
    if (id != kRefreshInterval) return false;
    refreshInterval_ = g_value_get_uint(value);
    if (sdk) sdk->setRefreshInterval(refreshInterval_);
    return true;
  }

  bool getProperty(guint id, GValue* value) const override {
    if (id != kRefreshInterval) return false;
    g_value_set_uint(value, static_cast<guint>(refreshInterval_));
    return true;
  }

 private:
  unsigned long refreshInterval_ = 0;
};

}  // namespace
}  // namespace zorva::gobject

struct _ZorvaBanner : zorva::gobject::AdWidgetInstance {};

G_DEFINE_TYPE(ZorvaBanner, zorva_banner, GTK_TYPE_BIN)

using namespace zorva::gobject;

static void zorva_banner_init(ZorvaBanner* self) { adWidgetInit(self, new BannerSlot); }

static void zorva_banner_class_init(ZorvaBannerClass* klass) {
  adWidgetClassInit(klass, bannerSignals, false);
  g_object_class_install_property(
      G_OBJECT_CLASS(klass), kRefreshInterval,
      g_param_spec_uint("refresh-interval", "Refresh interval", "Seconds between ads", 0, G_MAXUINT,
                        0,
                        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                 G_PARAM_EXPLICIT_NOTIFY)));
}

GtkWidget* zorva_banner_new(const char* publisher_id, const char* ad_unit_id, int width,
                            int height) {
  g_return_val_if_fail(width > 0 && height > 0, nullptr);
  return GTK_WIDGET(g_object_new(ZORVA_TYPE_BANNER, "publisher-id", publisher_id, "ad-unit-id",
                                 ad_unit_id, "ad-width", width, "ad-height", height, nullptr));
}

void zorva_banner_load(ZorvaBanner* self) {
  g_return_if_fail(ZORVA_IS_BANNER(self));
  adWidgetLoad(self);
}

ZorvaAdState zorva_banner_get_state(ZorvaBanner* self) {
  g_return_val_if_fail(ZORVA_IS_BANNER(self), ZORVA_AD_STATE_IDLE);
  return adWidgetState(self);
}
