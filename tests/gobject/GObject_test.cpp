// The GObject face as a GTK app meets it, through its C API only: ad widgets packed in a real
// window of the suite's virtual X server, loading from the loopback ad server, their pixels read
// back from the X server.
#include <gtest/gtest.h>
#include <zorva-gobject/zorva.h>
#include <zorva/platform/MainQueue.h>

#include <functional>
#include <memory>
#include <string>

#include "zorva-adserver/AdServer.h"

// After every header of the SDK: Xlib's macros clash with its names.
#include <gdk/gdkx.h>

#include "support/XScreen.h"

namespace zorva::test {
namespace {

constexpr Pixel kBannerGreen{0x1b, 0x5e, 0x20};
constexpr Pixel kInterstitialBlue{0x0d, 0x47, 0xa1};
constexpr Pixel kAppRed{255, 0, 0};
constexpr const char* kUnreachable = "http://127.0.0.1:1/zorva/servad";

// What an ad object told, counted per signal; the last failure kept.
struct Heard {
  int loaded = 0, failed = 0, presented = 0, dismissed = 0, states = 0;
  GQuark domain = 0;
  int code = -1;
  std::string message;

  void listen(gpointer object) {
    g_signal_connect_swapped(object, "loaded", G_CALLBACK(+[](Heard* h) { ++h->loaded; }), this);
    g_signal_connect_swapped(object, "notify::state", G_CALLBACK(+[](Heard* h) { ++h->states; }),
                             this);
    g_signal_connect_swapped(object, "failed", G_CALLBACK(+[](Heard* h, GError* error) {
                               ++h->failed;
                               h->domain = error->domain;
                               h->code = error->code;
                               h->message = error->message;
                             }),
                             this);
    if (ZORVA_IS_INTERSTITIAL(object)) {
      g_signal_connect_swapped(object, "will-present",
                               G_CALLBACK(+[](Heard* h) { ++h->presented; }), this);
      g_signal_connect_swapped(object, "dismissed", G_CALLBACK(+[](Heard* h) { ++h->dismissed; }),
                               this);
    }
  }
};

// A banner or an interstitial, made and loaded the same way.
struct Format {
  const char* name;
  gpointer (*make)(const char* adUnit);
  void (*load)(gpointer ad);
};

const Format kBanner{"banner",
                     [](const char* adUnit) -> gpointer {
                       return g_object_ref_sink(zorva_banner_new("pub", adUnit, 320, 50));
                     },
                     [](gpointer ad) { zorva_banner_load(ZORVA_BANNER(ad)); }};
const Format kInterstitial{
    "interstitial",
    [](const char* adUnit) -> gpointer { return zorva_interstitial_new("pub", adUnit); },
    [](gpointer ad) { zorva_interstitial_load(ZORVA_INTERSTITIAL(ad)); }};

class GObjectFaceTest : public testing::Test {
 protected:
  void SetUp() override {
    std::optional<platform::Error> error;
    server = tools::AdServer::start({.slowDelay = std::chrono::milliseconds(300), .log = nullptr},
                                    &error);
    ASSERT_TRUE(server) << error->localizedDescription();
    ASSERT_TRUE(gtk_init_check(nullptr, nullptr));
  }
  void TearDown() override {
    for (gpointer object : objects) g_object_unref(object);
    if (window) gtk_widget_destroy(window);
  }

  // An ad object of `format` for `adUnit`, asking the loopback server unless told otherwise.
  gpointer make(const Format& format, const char* adUnit, const char* serverUrl = nullptr) {
    gpointer ad = format.make(adUnit);
    const std::string url = serverUrl ? serverUrl : server->servadUrl();
    g_object_set(ad, "server-url", url.c_str(), nullptr);
    objects.push_back(ad);
    return ad;
  }

  // The app's window: its own red content above a banner packed at the bottom of a GtkBox.
  void openWindow(GtkWidget* banner) {
    window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window), 400, 300);
    gtk_window_move(GTK_WINDOW(window), 0, 0);
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    content = gtk_drawing_area_new();
    g_signal_connect(content, "draw", G_CALLBACK(+[](GtkWidget*, cairo_t* cr, gpointer) {
                       cairo_set_source_rgb(cr, 1, 0, 0);
                       cairo_paint(cr);
                       return FALSE;
                     }),
                     nullptr);
    gtk_box_pack_start(GTK_BOX(box), content, TRUE, TRUE, 0);
    if (banner) gtk_box_pack_end(GTK_BOX(box), banner, FALSE, FALSE, 0);
    gtk_container_add(GTK_CONTAINER(window), box);
    gtk_widget_show_all(window);
  }

  // The window's content area as the screen shows it.
  Screenshot shot() const {
    int x = 0, y = 0;
    gdk_window_get_origin(gtk_widget_get_window(window), &x, &y);
    return screen.grab(x, y, gtk_widget_get_allocated_width(window),
                       gtk_widget_get_allocated_height(window));
  }

  static bool waitUntil(const std::function<bool()>& condition) {
    return platform::MainQueue::shared().runUntil(condition, std::chrono::seconds(20));
  }

  std::unique_ptr<tools::AdServer> server;
  XScreen screen;
  std::vector<gpointer> objects;
  GtkWidget* window = nullptr;
  GtkWidget* content = nullptr;
};

// At the bottom of the box, at its size and centred, with the app's content above; told once.
TEST_F(GObjectFaceTest, BannerShowsAtItsSizeAtTheBottomOfABoxAndIsLoadedOnce) {
  gpointer banner = make(kBanner, "banner");
  Heard heard;
  heard.listen(banner);
  openWindow(GTK_WIDGET(banner));
  zorva_banner_load(ZORVA_BANNER(banner));
  EXPECT_EQ(zorva_banner_get_state(ZORVA_BANNER(banner)), ZORVA_AD_STATE_LOADING);

  // The ad's 320 x 50 (its green, around its text), centred on the bottom 50 rows; the app's
  // content above.
  Screenshot picture;
  int left = 0, top = 0, inside = 0;
  const bool shown = waitUntil([&] {
    picture = shot();
    left = picture.x + (picture.width - 320) / 2;
    top = picture.y + picture.height - 50;
    inside = picture.count(kBannerGreen, left, top, 320, 50);
    return inside > 320 * 50 * 3 / 4;
  });
  picture.writePng("gobject-banner.png");
  ASSERT_TRUE(shown) << heard.loaded << " " << heard.message;
  EXPECT_EQ(picture.count(kBannerGreen, picture.x, picture.y, picture.width, picture.height),
            inside);
  EXPECT_GT(picture.count(kAppRed, picture.x, picture.y, picture.width, picture.height - 50),
            picture.width * (picture.height - 60));
  EXPECT_EQ(heard.loaded, 1);
  EXPECT_EQ(heard.failed, 0);
  EXPECT_EQ(heard.states, 1);  // loading
}

// Every failure is a ZORVA_ERROR, on GTK's thread (a transport failure included), the
// original error in the message. The SDK's settings are the default ZorvaSdk's properties: the
// app conventions make an answer without a bid a failure, each convention they move notified.
TEST_F(GObjectFaceTest, FailuresCarryAZorvaError) {
  struct Case {
    const char* adUnit;
    const char* serverUrl;
    int code;
    const char* inMessage;
    bool conventions = false;
  };
  const Case cases[] = {
      {"banner", kUnreachable, ZORVA_ERROR_NETWORK, "libcurl 7"},
      {"broken", nullptr, ZORVA_ERROR_JSON, "nlohmann::json"},
      {nullptr, nullptr, ZORVA_ERROR_INVALID_REQUEST, "ad unit id"},
      {"nofill", nullptr, ZORVA_ERROR_NO_ADS, "no fill", true},
  };
  GObject* sdk = G_OBJECT(zorva_sdk_get_default());
  int moved = 0;
  g_signal_connect_swapped(sdk, "notify::no-fill-as-failure",
                           G_CALLBACK(+[](int* count) { ++*count; }), &moved);
  for (const Format* format : {&kBanner, &kInterstitial}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(format->name) + " " + (c.adUnit ? c.adUnit : "no ad unit"));
      g_object_set(sdk, "app-conventions", c.conventions, nullptr);
      gpointer ad = make(*format, c.adUnit, c.serverUrl);
      Heard heard;
      heard.listen(ad);
      format->load(ad);
      EXPECT_EQ(heard.failed, 0) << "told inside the load call";
      ASSERT_TRUE(waitUntil([&] { return heard.failed > 0; }));
      EXPECT_EQ(heard.domain, ZORVA_ERROR);
      EXPECT_EQ(heard.code, c.code);
      EXPECT_NE(heard.message.find(c.inMessage), std::string::npos) << heard.message;
      EXPECT_EQ(heard.loaded, 0);
    }
  }
  g_object_set(sdk, "app-conventions", FALSE, nullptr);
  g_signal_handlers_disconnect_by_data(sdk, &moved);
  EXPECT_EQ(moved, 4);  // on and off for each format
}

// An ad object disposed while its answer is on the way hears nothing of it, its memory
// untouched (the sanitizer builds check that): another one, asked later, hears its own answer,
// which the server sends after the first.
TEST_F(GObjectFaceTest, AnObjectReleasedMidLoadSendsNothing) {
  for (const Format* format : {&kBanner, &kInterstitial}) {
    SCOPED_TRACE(format->name);
    gpointer released = make(*format, "slow");
    format->load(released);
    g_object_run_dispose(G_OBJECT(released));
    Heard late;
    late.listen(released);  // on the disposed object, still referenced

    gpointer witness = make(*format, "slow");
    Heard heard;
    heard.listen(witness);
    format->load(witness);
    ASSERT_TRUE(waitUntil([&] { return heard.loaded + heard.failed > 0; }));
    EXPECT_EQ(heard.loaded, 1) << heard.message;
    EXPECT_EQ(late.loaded + late.failed + late.states, 0);
  }
}

// Shown over a window whose child is a plain box: the ad covers the content; Escape takes it
// away, "dismissed" is told and the box is the window's child again.
TEST_F(GObjectFaceTest, InterstitialCoversTheWindowAndTellsWhenItLeaves) {
  openWindow(nullptr);
  GtkWidget* box = gtk_bin_get_child(GTK_BIN(window));
  gpointer ad = make(kInterstitial, "interstitial");
  Heard heard;
  heard.listen(ad);
  zorva_interstitial_load(ZORVA_INTERSTITIAL(ad));
  ASSERT_TRUE(waitUntil([&] { return heard.loaded + heard.failed > 0; })) << heard.message;
  ASSERT_TRUE(zorva_interstitial_show(ZORVA_INTERSTITIAL(ad), GTK_WINDOW(window)));
  EXPECT_FALSE(zorva_interstitial_show(ZORVA_INTERSTITIAL(ad), GTK_WINDOW(window)));

  Screenshot picture;
  ASSERT_TRUE(waitUntil([&] {
    picture = shot();
    return picture.count(kInterstitialBlue, picture.x, picture.y, picture.width, picture.height) >
           picture.width * picture.height * 3 / 4;
  }));
  picture.writePng("gobject-interstitial.png");
  EXPECT_EQ(zorva_interstitial_get_state(ZORVA_INTERSTITIAL(ad)), ZORVA_AD_STATE_SHOWN);
  EXPECT_EQ(heard.presented, 1);
  EXPECT_EQ(heard.dismissed, 0);

  screen.key(gdk_x11_window_get_xid(gtk_widget_get_window(window)), XK_Escape);
  ASSERT_TRUE(waitUntil([&] { return heard.dismissed > 0; }));
  EXPECT_EQ(gtk_bin_get_child(GTK_BIN(window)), box);
  EXPECT_TRUE(waitUntil([&] {
    picture = shot();
    return picture.count(kAppRed, picture.x, picture.y, picture.width, picture.height) ==
           picture.width * picture.height;
  }));
  EXPECT_EQ(heard.dismissed, 1);
}

}  // namespace
}  // namespace zorva::test
