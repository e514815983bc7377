// The in-banner video widget: the SDK's in-banner video in an ad widget, played as soon as it is
// loaded.
#include <zorva/ZVInBannerVideo.h>

#include "AdWidget.h"

namespace zorva::gobject {
namespace {

guint videoSignals[kAdWidgetSignalCount];

class VideoSlot final : public AdSlot<ZVInBannerVideo, ZVInBannerVideoDelegate> {
 public:
  VideoSlot() : AdSlot(videoSignals) {}

  void create() override {
    AdSlot::create();
    // In place before the app hears of it, as a banner's ad is.
    delegate->bannerViewDidReceiveAd =
        emitter(kLoaded, [](ZVInBannerVideo& video) { video.playAd(); });
    delegate->bannerViewDidFinishPlayingAd = emitter(kFinished);
  }
};

}  // namespace
}  // namespace zorva::gobject

struct _ZorvaInBannerVideo : zorva::gobject::AdWidgetInstance {};

G_DEFINE_TYPE(ZorvaInBannerVideo, zorva_in_banner_video, GTK_TYPE_BIN)

using namespace zorva::gobject;

static void zorva_in_banner_video_init(ZorvaInBannerVideo* self) {
  adWidgetInit(self, new VideoSlot);
}

static void zorva_in_banner_video_class_init(ZorvaInBannerVideoClass* klass) {
  adWidgetClassInit(klass, videoSignals, true);
}

GtkWidget* zorva_in_banner_video_new(const char* publisher_id, const char* ad_unit_id, int width,
                                     int height) {
  g_return_val_if_fail(width > 0 && height > 0, nullptr);
  return GTK_WIDGET(g_object_new(ZORVA_TYPE_IN_BANNER_VIDEO, "publisher-id", publisher_id,
                                 "ad-unit-id", ad_unit_id, "ad-width", width, "ad-height", height,
                                 nullptr));
}

void zorva_in_banner_video_load(ZorvaInBannerVideo* self) {
  g_return_if_fail(ZORVA_IS_IN_BANNER_VIDEO(self));
  adWidgetLoad(self);
}

ZorvaAdState zorva_in_banner_video_get_state(ZorvaInBannerVideo* self) {
  g_return_val_if_fail(ZORVA_IS_IN_BANNER_VIDEO(self), ZORVA_AD_STATE_IDLE);
  return adWidgetState(self);
}
