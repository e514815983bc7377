/* The Zorva SDK's GObject face: banners and interstitials as GTK widgets and objects, with
 * properties and signals, for C and, through GObject Introspection (namespace Zorva 1.0), for
 * Python, JavaScript, Vala or Rust. Main thread only: every signal is emitted on GTK's thread. */
#pragma once

#include <gtk/gtk.h>

G_BEGIN_DECLS

/* Exported whatever the library's default symbol visibility is. */
#define ZORVA_API __attribute__((visibility("default"))) extern

/**
 * ZorvaAdState:
 * @ZORVA_AD_STATE_IDLE: nothing loaded or loading: a load may start.
 * @ZORVA_AD_STATE_LOADING: a load is under way.
 * @ZORVA_AD_STATE_LOADED: a banner's ad is playing; an interstitial's ad is ready to show.
 * @ZORVA_AD_STATE_SHOWN: an interstitial's ad was put on screen.
 * @ZORVA_AD_STATE_FINISHED: a banner's ad finished playing.
 *
 * Where an ad object is in its life, as the SDK counts it: a banner stays
 * %ZORVA_AD_STATE_LOADING until its ad's player starts. A failed load goes back to
 * %ZORVA_AD_STATE_IDLE, except for a banner with a refresh interval, which keeps its state until
 * the retry.
 */
typedef enum {
  ZORVA_AD_STATE_IDLE,
  ZORVA_AD_STATE_LOADING,
  ZORVA_AD_STATE_LOADED,
  ZORVA_AD_STATE_SHOWN,
  ZORVA_AD_STATE_FINISHED,
} ZorvaAdState;

ZORVA_API GType zorva_ad_state_get_type(void);
#define ZORVA_TYPE_AD_STATE (zorva_ad_state_get_type())

/**
 * ZORVA_ERROR:
 *
 * The error domain of the #GError a `failed` signal carries. Its codes are #ZorvaError.
 */
#define ZORVA_ERROR (zorva_error_quark())
ZORVA_API GQuark zorva_error_quark(void);

/**
 * ZorvaError:
 * @ZORVA_ERROR_NO_ADS: the answer was not a bid response, or held no bid.
 * @ZORVA_ERROR_INTERNAL: the bid request could not be made.
 * @ZORVA_ERROR_HTTP_STATUS: the ad server answered with an HTTP error status (the status is in
 *   the message).
 * @ZORVA_ERROR_INVALID_REQUEST: the publisher id or the ad unit id is missing or empty.
 * @ZORVA_ERROR_VAST: the video player failed (the VAST error code is in the message).
 * @ZORVA_ERROR_NETWORK: the ad server could not be reached (libcurl's error is in the message).
 * @ZORVA_ERROR_TIMEOUT: the transfer took longer than the network timeout.
 * @ZORVA_ERROR_JSON: the answer was not JSON (the parser's error is in the message).
 * @ZORVA_ERROR_XML: a VAST document was not well-formed XML (expat's error is in the message).
 * @ZORVA_ERROR_FAILED: any other failure (its domain and code are in the message).
 *
 * Why a load failed. The SDK's own codes keep their values; an error the SDK passes through
 * from a library becomes the code of its kind, the original domain and code in the message.
 */
typedef enum {
  ZORVA_ERROR_NO_ADS = 0,
  ZORVA_ERROR_INTERNAL = 1,
  ZORVA_ERROR_HTTP_STATUS = 6,
  ZORVA_ERROR_INVALID_REQUEST = 7,
  ZORVA_ERROR_VAST = 100,
  ZORVA_ERROR_NETWORK = 1000,
  ZORVA_ERROR_TIMEOUT,
  ZORVA_ERROR_JSON,
  ZORVA_ERROR_XML,
  ZORVA_ERROR_FAILED,
} ZorvaError;

ZORVA_API GType zorva_error_get_type(void);
#define ZORVA_TYPE_ERROR (zorva_error_get_type())

/**
 * ZorvaBanner:
 *
 * A banner ad as a widget: pack it like any widget (in a #GtkBox, a #GtkGrid...), it asks for
 * its ad size; then call zorva_banner_load(). Given more room than its size, it stays centred.
 *
 * Signals: #ZorvaBanner::loaded when an ad is in place, #ZorvaBanner::failed with a
 * %ZORVA_ERROR #GError, #ZorvaBanner::will-present-modal and #ZorvaBanner::did-dismiss-modal
 * around a click-through. Nothing is emitted after the widget is destroyed, a load in flight
 * included.
 */
/**
 * ZorvaBanner:publisher-id:
 *
 * The publisher's id, sent with every bid request. #ZorvaInterstitial has the same
 * properties: publisher-id, ad-unit-id, server-url, network-timeout and the read-only state.
 */
/**
 * ZorvaBanner:ad-unit-id:
 *
 * The ad unit's id.
 */
/**
 * ZorvaBanner:server-url:
 *
 * Where bid requests are posted; %NULL puts the SDK's default endpoint back.
 */
/**
 * ZorvaBanner:network-timeout:
 *
 * Seconds before a bid request times out (10 by default).
 */
/**
 * ZorvaBanner:state:
 *
 * Where the banner is in its life (#ZorvaAdState), read from the SDK's object. Notified when a
 * call or a signal of the object finds it changed (the SDK tells nothing of some changes, such as
 * a banner's player starting).
 */
/**
 * ZorvaBanner:refresh-interval:
 *
 * Seconds each ad stays before the next is loaded, and the retry delay after a failure; 0 (the
 * default) loads one ad only.
 */
/**
 * ZorvaBanner:ad-width:
 *
 * The ad's width in logical pixels, set when the banner is made: the width the banner asks for.
 */
/**
 * ZorvaBanner:ad-height:
 *
 * The ad's height in logical pixels, set when the banner is made.
 */
/**
 * ZorvaBanner::loaded:
 * @self: the banner
 *
 * An ad is in place in the banner.
 */
/**
 * ZorvaBanner::failed:
 * @self: the banner
 * @error: why, in the %ZORVA_ERROR domain
 *
 * The load failed.
 */
/**
 * ZorvaBanner::will-present-modal:
 * @self: the banner
 *
 * A click on the ad is about to show a browser or a store page over the window.
 */
/**
 * ZorvaBanner::did-dismiss-modal:
 * @self: the banner
 *
 * The browser or store page a click showed was closed.
 */
#define ZORVA_TYPE_BANNER (zorva_banner_get_type())
ZORVA_API G_DECLARE_FINAL_TYPE(ZorvaBanner, zorva_banner, ZORVA, BANNER, GtkBin)

/**
 * zorva_banner_new:
 * @publisher_id: (nullable): the publisher's id
 * @ad_unit_id: (nullable): the ad unit's id
 * @width: the ad's width, in logical pixels
 * @height: the ad's height, in logical pixels
 *
 * Makes a banner asking for a @width x @height ad. The first ad widget made installs the SDK's
 * engines (WebKitGTK, GStreamer, the GLib main loop bridge).
 *
 * Returns: (transfer floating): the banner
 */
ZORVA_API GtkWidget* zorva_banner_new(const char* publisher_id, const char* ad_unit_id, int width,
                                      int height);

/**
 * zorva_banner_load:
 * @self: a banner
 *
 * Starts loading an ad when the banner is idle; otherwise the SDK logs the refusal and nothing
 * happens. Without a publisher id or an ad unit id (%NULL or empty) the load fails with
 * %ZORVA_ERROR_INVALID_REQUEST.
 */
ZORVA_API void zorva_banner_load(ZorvaBanner* self);

/**
 * zorva_banner_get_state:
 * @self: a banner
 *
 * Returns: the banner's state (the #ZorvaBanner:state property)
 */
ZORVA_API ZorvaAdState zorva_banner_get_state(ZorvaBanner* self);

/**
 * ZorvaInBannerVideo:
 *
 * A video ad in a banner-sized slot, as a widget: it packs and sizes like a #ZorvaBanner, has its
 * properties (but refresh-interval) and signals, and #ZorvaInBannerVideo::finished when the video
 * has played to its end. The video plays as soon as it is loaded; a finished video loads no
 * other: make a new widget for the next ad.
 */
/**
 * ZorvaInBannerVideo:publisher-id:
 *
 * The publisher's id, sent with every bid request.
 */
/**
 * ZorvaInBannerVideo:ad-unit-id:
 *
 * The ad unit's id.
 */
/**
 * ZorvaInBannerVideo:server-url:
 *
 * Where bid requests are posted; %NULL puts the SDK's default endpoint back.
 */
/**
 * ZorvaInBannerVideo:network-timeout:
 *
 * Seconds before a bid request times out (10 by default).
 */
/**
 * ZorvaInBannerVideo:state:
 *
 * Where the video is in its life (#ZorvaAdState): %ZORVA_AD_STATE_LOADED while it plays,
 * %ZORVA_AD_STATE_FINISHED once it has played. Notified as #ZorvaBanner:state is.
 */
/**
 * ZorvaInBannerVideo:ad-width:
 *
 * The slot's width in logical pixels, set when the widget is made.
 */
/**
 * ZorvaInBannerVideo:ad-height:
 *
 * The slot's height in logical pixels, set when the widget is made.
 */
/**
 * ZorvaInBannerVideo::loaded:
 * @self: the video
 *
 * The video is in place and starts playing.
 */
/**
 * ZorvaInBannerVideo::failed:
 * @self: the video
 * @error: why, in the %ZORVA_ERROR domain
 *
 * The load or the playback failed; the widget is loadable again.
 */
/**
 * ZorvaInBannerVideo::will-present-modal:
 * @self: the video
 *
 * A click on the video is about to show its landing page over the window.
 */
/**
 * ZorvaInBannerVideo::did-dismiss-modal:
 * @self: the video
 *
 * The landing page a click showed was closed.
 */
/**
 * ZorvaInBannerVideo::finished:
 * @self: the video
 *
 * The video has played to its end.
 */
#define ZORVA_TYPE_IN_BANNER_VIDEO (zorva_in_banner_video_get_type())
ZORVA_API G_DECLARE_FINAL_TYPE(ZorvaInBannerVideo, zorva_in_banner_video, ZORVA, IN_BANNER_VIDEO,
                               GtkBin)

/**
 * zorva_in_banner_video_new:
 * @publisher_id: (nullable): the publisher's id
 * @ad_unit_id: (nullable): the ad unit's id
 * @width: the slot's width, in logical pixels
 * @height: the slot's height, in logical pixels
 *
 * Makes an in-banner video asking for a @width x @height slot. The first ad widget made installs
 * the SDK's engines.
 *
 * Returns: (transfer floating): the video widget
 */
ZORVA_API GtkWidget* zorva_in_banner_video_new(const char* publisher_id, const char* ad_unit_id,
                                               int width, int height);

/**
 * zorva_in_banner_video_load:
 * @self: an in-banner video
 *
 * Starts loading a video when the widget is idle; otherwise the SDK logs the refusal and nothing
 * happens. Without a publisher id or an ad unit id (%NULL or empty) the load fails with
 * %ZORVA_ERROR_INVALID_REQUEST.
 */
ZORVA_API void zorva_in_banner_video_load(ZorvaInBannerVideo* self);

/**
 * zorva_in_banner_video_get_state:
 * @self: an in-banner video
 *
 * Returns: the video's state (the #ZorvaInBannerVideo:state property)
 */
ZORVA_API ZorvaAdState zorva_in_banner_video_get_state(ZorvaInBannerVideo* self);

/**
 * ZorvaInterstitial:
 *
 * A full-screen ad: zorva_interstitial_load(), then, on #ZorvaInterstitial::loaded,
 * zorva_interstitial_show() over a #GtkWindow, whose content it covers.
 *
 * #ZorvaInterstitial::dismissed is emitted when the ad leaves the window, whatever took it away
 * (its close button, Escape, the app). Nothing is emitted after the last reference is dropped.
 */
/**
 * ZorvaInterstitial:video:
 *
 * Asks for a video ad. Read when the first load starts.
 */
/**
 * ZorvaInterstitial::loaded:
 * @self: the interstitial
 *
 * The ad is loaded, off screen: it can be shown.
 */
/**
 * ZorvaInterstitial::failed:
 * @self: the interstitial
 * @error: why, in the %ZORVA_ERROR domain
 *
 * The load failed; the interstitial is loadable again.
 */
/**
 * ZorvaInterstitial::will-present:
 * @self: the interstitial
 *
 * The ad was put on screen by zorva_interstitial_show().
 */
/**
 * ZorvaInterstitial::clicked:
 * @self: the interstitial
 *
 * A click on the ad is about to open a store page or a browser.
 */
/**
 * ZorvaInterstitial::dismissed:
 * @self: the interstitial
 *
 * The ad left the window, by its close button or otherwise; the window's content is back as
 * it was.
 */
#define ZORVA_TYPE_INTERSTITIAL (zorva_interstitial_get_type())
ZORVA_API G_DECLARE_FINAL_TYPE(ZorvaInterstitial, zorva_interstitial, ZORVA, INTERSTITIAL, GObject)

/**
 * zorva_interstitial_new:
 * @publisher_id: (nullable): the publisher's id
 * @ad_unit_id: (nullable): the ad unit's id
 *
 * Makes an interstitial. The first ad object made installs the SDK's engines.
 *
 * Returns: (transfer full): the interstitial
 */
ZORVA_API ZorvaInterstitial* zorva_interstitial_new(const char* publisher_id,
                                                    const char* ad_unit_id);

/**
 * zorva_interstitial_load:
 * @self: an interstitial
 *
 * Starts loading an ad when the interstitial is idle; otherwise the SDK logs the refusal and
 * nothing happens. Without a publisher id or an ad unit id (%NULL or empty) the load fails with
 * %ZORVA_ERROR_INVALID_REQUEST.
 */
ZORVA_API void zorva_interstitial_load(ZorvaInterstitial* self);

/**
 * zorva_interstitial_show:
 * @self: an interstitial
 * @parent: the window the ad covers
 *
 * Shows the ad over @parent's content, until it is dismissed. While it is shown the window's
 * child sits in a #GtkOverlay (the window's own child is used when it is one); the child is put
 * back when the ad leaves. Returns %FALSE, showing nothing, while the interstitial is shown
 * already.
 *
 * Returns: whether the ad is being shown
 */
ZORVA_API gboolean zorva_interstitial_show(ZorvaInterstitial* self, GtkWindow* parent);

/**
 * zorva_interstitial_get_state:
 * @self: an interstitial
 *
 * Returns: the interstitial's state (the #ZorvaInterstitial:state property)
 */
ZORVA_API ZorvaAdState zorva_interstitial_get_state(ZorvaInterstitial* self);

/**
 * ZorvaSdk:
 *
 * The SDK's settings for the whole process, as properties of one object
 * (zorva_sdk_get_default()). Each boolean property is the opt-in setting of the same name of the
 * SDK (off by default; see docs/settings.md): `app-conventions` (turning it on or off moves every
 * convention with it, each notified), `callbacks-on-main-queue`, `no-fill-as-failure`,
 * `interstitial-close-dismisses`, `invalid-request-as-failure`, `http-status-as-failure`,
 * `percent-encode-query`, `open-rtb-headers`, `desktop-profile-by-default`,
 * `banner-removes-earlier-ads`, `video-load-bounded`, `log-missed-callbacks`, `vast-cdata-text`,
 * `tracking-transport`, `send-regulations`, `test-mode`, `coppa`, `gdpr`. The string properties
 * (%NULL when unset) are `app-domain`, `app-categories`, `app-keywords`, `user-keywords`,
 * `gdpr-consent`, `us-privacy`, `gpp` and `tracking-queue-path`; `log-level` (0 to 5, 1 by
 * default) and `vast-fetch-budget` (0: none) are numbers. `store-url` is the app's store page
 * (an absolute URL; anything else is refused with a warning), `location` a #GVariant `(dd)`,
 * latitude and longitude in degrees, that the SDK then uses instead of fetching one, and
 * `gpp-sid` a #GVariant `ai`, the GPP section ids. Every load reads them afresh.
 */
#define ZORVA_TYPE_SDK (zorva_sdk_get_type())
ZORVA_API G_DECLARE_FINAL_TYPE(ZorvaSdk, zorva_sdk, ZORVA, SDK, GObject)

/**
 * zorva_sdk_get_default:
 *
 * Returns: (transfer none): the settings object of the process
 */
ZORVA_API ZorvaSdk* zorva_sdk_get_default(void);

G_END_DECLS
