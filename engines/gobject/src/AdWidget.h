// What the banner-sized ad widgets (ZorvaBanner, ZorvaInBannerVideo) share: a GtkBin whose child
// is the widget of an on-screen host of its own, the SDK's view at the root of it; the ad's size
// asked of the layout; the request's properties, and the signals of a load and a click-through.
// The GTK 3 specific code of the widgets is here and in AdWidget.cpp alone.
#pragma once

#include <zorva/ZVTypes.h>
#include <zorva/engines/GtkHost.h>
#include <zorva/platform/View.h>
#include <zorva/platform/ViewController.h>

#include "Face.h"

namespace zorva::gobject {

enum AdWidgetSignal {
  kLoaded,
  kFailed,
  kWillPresentModal,
  kDidDismissModal,
  kFinished,  // the in-banner video's only
  kAdWidgetSignalCount,
};

enum AdWidgetProperty : guint { kAdWidth = kFirstOwnProperty, kAdHeight, kFirstFormatProperty };

/// A widget's side of its SDK object. Each format derives from it (through AdSlot).
class AdWidget {
 public:
  explicit AdWidget(const guint* signals) : signals(signals) {}
  virtual ~AdWidget() = default;
  AdWidget(const AdWidget&) = delete;
  AdWidget& operator=(const AdWidget&) = delete;

  /// Makes the SDK's object at the widget's size, its delegate connected to the relay.
  virtual void create() = 0;
  /// Releases the SDK's object (it stops a load in flight); null afterwards.
  virtual void release() = 0;
  virtual platform::View* view() const = 0;
  virtual long sdkState() const = 0;
  virtual void loadAd() = 0;
  /// The format's own properties (ids from kFirstFormatProperty); false for any other id.
  virtual bool setProperty(guint, const GValue*) { return false; }
  virtual bool getProperty(guint, GValue*) const { return false; }

  const guint* const signals;  // the class's, indexed by AdWidgetSignal
  int width = 320;
  int height = 50;
  std::shared_ptr<ZVAdRequest> request = std::make_shared<ZVAdRequest>();
  std::unique_ptr<gtk::Host> host;
  std::shared_ptr<Relay> relay;
  StateWatch state;
};

/// The instance of each widget type: its GtkBin, then its AdWidget.
struct AdWidgetInstance {
  GtkBin parent_instance;
  AdWidget* ad;
};

/// The AdWidget of a widget made by adWidgetInit.
inline AdWidget& adWidgetOf(gpointer widget) {
  return *reinterpret_cast<AdWidgetInstance*>(widget)->ad;
}

/// What a format's SDK object needs of the widget: its delegate's common callbacks (the banner's
/// and the video's have the same names) as the signals.
template <typename SdkView, typename Delegate>
class AdSlot : public AdWidget {
 public:
  using AdWidget::AdWidget;

  void create() override {
    sdk =
        SdkView::create(request, ZVAdSize{static_cast<double>(width), static_cast<double>(height)});
    delegate->bannerViewDidReceiveAd = emitter(kLoaded);
    delegate->bannerViewWillPresentModal = emitter(kWillPresentModal);
    delegate->bannerViewDidDismissModal = emitter(kDidDismissModal);
    delegate->bannerViewDidFailToReceiveAdWithError = [relay = relay, signals = signals](
                                                          SdkView&, const Error& error) {
      relay->send([error, signals](gpointer object) {
        emitFailure(object, signals[kFailed], error);
        syncState(object, adWidgetOf(object).state, adWidgetOf(object).relay);
      });
    };
    sdk->setDelegate(delegate);
  }
  void release() override { sdk.reset(); }
  platform::View* view() const override { return sdk.get(); }
  long sdkState() const override { return sdk ? sdk->state() : 0; }
  void loadAd() override { sdk->loadAd(); }

 protected:
  /// A delegate callback emitting `signal`, after `before` has run on the widget's object.
  std::function<void(SdkView&)> emitter(AdWidgetSignal signal,
                                        std::function<void(SdkView&)> before = nullptr) {
    return [relay = relay, signals = signals, signal, before](SdkView& view) {
      if (before) before(view);
      relay->send([signals, signal](gpointer object) {
        g_signal_emit(object, signals[signal], 0);
        syncState(object, adWidgetOf(object).state, adWidgetOf(object).relay);
      });
    };
  }

  std::shared_ptr<SdkView> sdk;
  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
};

/// A widget type's class_init: sizing, life cycle, the request's properties and the ad size,
/// the signals (`finished` too when `finishes`), each id stored in `signals`.
void adWidgetClassInit(gpointer klass, guint* signals, bool finishes);
/// A widget's init, taking ownership of `ad`.
void adWidgetInit(gpointer widget, AdWidget* ad);
/// The widget's load: refused without ids, otherwise the SDK's.
void adWidgetLoad(gpointer widget);
/// The widget's state, read from its SDK object.
ZorvaAdState adWidgetState(gpointer widget);

}  // namespace zorva::gobject
