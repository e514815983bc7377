// The GObject face as a GTK app meets it, through its C API only: ad widgets packed in a real
// window of the suite's virtual X server, loading from the loopback ad server, their pixels read
// back from the X server.
#include <gtest/gtest.h>
#include <zorva-gobject/zorva.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/LogSink.h>
#include <zorva/platform/MainQueue.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "support/TestEnvironment.h"
#include "zorva-adserver/AdServer.h"

// After every header of the SDK: Xlib's macros clash with its names.
#include <gdk/gdkx.h>

#include "gtk/AppWindow.h"

namespace zorva::test {
namespace {

using gtk::shotOf;

constexpr Pixel kBannerGreen{0x1b, 0x5e, 0x20};
constexpr Pixel kInterstitialBlue{0x0d, 0x47, 0xa1};
constexpr Pixel kWhite{255, 255, 255};
// The video player's progress bar: its fill and its track.
constexpr Pixel kBarFill{245, 214, 107}, kBarTrack{40, 46, 99};

// What an ad object told: the number of each of its signals (and of "state" notifications) by
// name, the last failure kept.
struct Heard {
  std::map<std::string, int> told;
  GQuark domain = 0;
  int code = -1;
  std::string message;

  int operator[](const std::string& name) { return told[name]; }

  void listen(gpointer object) {
    for (const char* name : {"loaded", "will-present", "will-present-modal", "did-dismiss-modal",
                             "clicked", "dismissed", "finished", "failed"}) {
      if (g_signal_lookup(name, G_OBJECT_TYPE(object))) {
        g_signal_connect_swapped(object, name, G_CALLBACK(+[](int* count) { ++*count; }),
                                 &told[name]);
      }
    }
    g_signal_connect_swapped(object, "notify::state", G_CALLBACK(+[](int* count) { ++*count; }),
                             &told["state"]);
    g_signal_connect_swapped(object, "failed", G_CALLBACK(+[](Heard* h, GError* error) {
                               h->domain = error->domain;
                               h->code = error->code;
                               h->message = error->message;
                             }),
                             this);
  }
};

// Each kind of ad object, made and loaded the same way. The widgets show an ad of their own size
// (`shows`: how each looks once its ad is up, in a shot of the window).
struct Format {
  const char* name;
  gpointer (*make)(const char* adUnit);
  void (*load)(gpointer ad);
  GtkRequisition size{};
  bool (*shows)(const Screenshot& picture, int left, int top, int width, int height) = nullptr;
};

const Format kBanner{"banner",
                     [](const char* adUnit) -> gpointer {
                       return g_object_ref_sink(zorva_banner_new("pub", adUnit, 320, 50));
                     },
                     [](gpointer ad) { zorva_banner_load(ZORVA_BANNER(ad)); },
                     {320, 50},
                     [](const Screenshot& picture, int left, int top, int width, int height) {
                       // Its green all around its text, and nowhere else.
                       const int inside = picture.count(kBannerGreen, left, top, width, height);
                       return inside > width * height * 3 / 4 &&
                              picture.count(kBannerGreen, picture.x, picture.y, picture.width,
                                            picture.height) == inside;
                     }};
const Format kVideo{"video",
                    [](const char* adUnit) -> gpointer {
                      return g_object_ref_sink(zorva_in_banner_video_new("pub", adUnit, 320, 180));
                    },
                    [](gpointer ad) { zorva_in_banner_video_load(ZORVA_IN_BANNER_VIDEO(ad)); },
                    {320, 180},
                    [](const Screenshot& picture, int left, int top, int width, int height) {
                      // The player's progress bar along the video's foot, from edge to edge.
                      const int bottom = top + height - 1;
                      return picture.count(kBarFill, left, bottom, width, 1, 12) +
                                 picture.count(kBarTrack, left, bottom, width, 1, 12) >
                             width * 9 / 10;
                    }};
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
    app.reset();
    for (gpointer object : objects) g_object_unref(object);
  }

  // An ad object of `format` for `adUnit`, asking the loopback server unless told otherwise.
  gpointer make(const Format& format, const char* adUnit, const char* serverUrl = nullptr) {
    gpointer ad = format.make(adUnit);
    const std::string url = serverUrl ? serverUrl : server->servadUrl();
    g_object_set(ad, "server-url", url.c_str(), nullptr);
    objects.push_back(ad);
    return ad;
  }

  Screenshot shot() const { return shotOf(screen, app->toplevel); }

  // For 20 s, longer by the time scale as in the other suites.
  static bool waitUntil(const std::function<bool()>& condition) {
    return platform::MainQueue::shared().runUntil(
        condition, std::chrono::milliseconds(static_cast<long>(20000 * test::timeScale())));
  }

  std::unique_ptr<tools::AdServer> server;
  XScreen screen;
  std::vector<gpointer> objects;
  std::optional<gtk::AppWindow> app;
};

// At the bottom of the box, below the app's content, at its size and centred; loaded told once. A
// click on the banner brings its store page, its Close takes it away, each told; the video tells
// when it has played to its end.
TEST_F(GObjectFaceTest, AdWidgetsShowAtTheirSizeAtTheBottomOfABox) {
  for (const Format* slot : {&kBanner, &kVideo}) {
    SCOPED_TRACE(slot->name);
    gpointer ad = make(*slot, slot->name);
    Heard heard;
    heard.listen(ad);
    app.emplace(400, 300, gtk::Content::Slot);  // the app's blue content, the ad below it
    gtk_box_pack_end(GTK_BOX(app->container), GTK_WIDGET(ad), FALSE, FALSE, 0);
    gtk_widget_show(GTK_WIDGET(ad));
    slot->load(ad);
    ZorvaAdState state;
    g_object_get(ad, "state", &state, nullptr);
    EXPECT_EQ(state, ZORVA_AD_STATE_LOADING);

    Screenshot picture;
    int left = 0, top = 0;
    const bool shown = waitUntil([&] {
      picture = shot();
      left = picture.x + (picture.width - slot->size.width) / 2;
      top = picture.y + picture.height - slot->size.height;
      return slot->shows(picture, left, top, slot->size.width, slot->size.height);
    });
    ASSERT_TRUE(shown) << heard["loaded"] << " " << heard.message;
    EXPECT_EQ(heard["loaded"], 1);
    EXPECT_EQ(heard["failed"], 0);

    if (ZORVA_IS_BANNER(ad)) {
      EXPECT_EQ(heard["state"], 1);  // loading
      screen.click(left + slot->size.width / 2, top + slot->size.height / 2);
      ASSERT_TRUE(waitUntil([&] { return heard["will-present-modal"] > 0; }));
      EXPECT_EQ(heard["did-dismiss-modal"], 0);
      ASSERT_TRUE(waitUntil([&] { return gtk::clickButton(screen, app->toplevel, "Close"); }));
      ASSERT_TRUE(waitUntil([&] { return heard["did-dismiss-modal"] > 0; }));
      EXPECT_EQ(heard["will-present-modal"], 1);
    } else {
      ASSERT_TRUE(waitUntil([&] { return heard["finished"] > 0; }));
      EXPECT_EQ(zorva_in_banner_video_get_state(ZORVA_IN_BANNER_VIDEO(ad)),
                ZORVA_AD_STATE_FINISHED);
    }
    app.reset();
  }
}

// Every failure is a ZORVA_ERROR, on GTK's thread (a transport failure included), the
// original error in the message. The SDK's settings are the default ZorvaSdk's properties: the
// app conventions make an answer without a bid a failure.
// An object disposed while its answer is on the way hears nothing of it, its memory untouched
// (the sanitizer builds check that): another one, asked later, hears its own answer, which the
// server sends after the first.
TEST_F(GObjectFaceTest, FailuresCarryAZorvaErrorAndAnObjectReleasedMidLoadHearsNothing) {
  struct Case {
    const char* adUnit;
    const char* serverUrl;
    int code;
    const char* inMessage;
    bool conventions = false;
  };
  const Case cases[] = {
      {"banner", "http://127.0.0.1:1/zorva/servad", ZORVA_ERROR_NETWORK, "libcurl 7"},
      {"broken", nullptr, ZORVA_ERROR_JSON, "nlohmann::json"},
      {nullptr, nullptr, ZORVA_ERROR_INVALID_REQUEST, "ad unit id"},
      {"", nullptr, ZORVA_ERROR_INVALID_REQUEST, "ad unit id"},
      {"nofill", nullptr, ZORVA_ERROR_NO_ADS, "no fill", true},
  };
  GObject* sdk = G_OBJECT(zorva_sdk_get_default());
  std::atomic<int> told = 0;  // entries at the information level, which the loads make
  platform::LogSink::shared().setHandler(
      [&](std::string_view entry) { told += entry.find("- I -") != std::string_view::npos; });
  g_object_set(sdk, "log-level", 3u, nullptr);
  for (const Format* format : {&kBanner, &kInterstitial}) {
    gpointer released = make(*format, "slow");
    format->load(released);
    g_object_run_dispose(G_OBJECT(released));
    Heard late;
    late.listen(released);  // on the disposed object, still referenced
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(format->name) + " '" + (c.adUnit ? c.adUnit : "(null)") + "'");
      g_object_set(sdk, "app-conventions", c.conventions, nullptr);
      gpointer ad = make(*format, c.adUnit, c.serverUrl);
      Heard heard;
      heard.listen(ad);
      format->load(ad);
      EXPECT_EQ(heard["failed"], 0) << "told inside the load call";
      ASSERT_TRUE(waitUntil([&] { return heard["failed"] > 0; }));
      EXPECT_EQ(heard.domain, ZORVA_ERROR);
      EXPECT_EQ(heard.code, c.code);
      EXPECT_NE(heard.message.find(c.inMessage), std::string::npos) << heard.message;
      EXPECT_EQ(heard["loaded"], 0);
    }
    SCOPED_TRACE(format->name);
    gpointer witness = make(*format, "slow");
    Heard heard;
    heard.listen(witness);
    format->load(witness);
    ASSERT_TRUE(waitUntil([&] { return heard["loaded"] + heard["failed"] > 0; }));
    EXPECT_EQ(heard["loaded"], 1) << heard.message;
    EXPECT_EQ(late["loaded"] + late["failed"] + late["state"], 0);
  }
  g_object_set(sdk, "app-conventions", FALSE, "log-level", 1u, nullptr);
  platform::LogSink::shared().setHandler(nullptr);
  EXPECT_GT(told, 0);
}

// Each setting of the SDK is the default ZorvaSdk's property of its name: what is set is read back
// and held by the SDK itself, and the property's default puts the SDK's default back.
TEST_F(GObjectFaceTest, EachSdkPropertyIsTheSdkSettingOfItsName) {
  GObject* object = G_OBJECT(zorva_sdk_get_default());
  const auto sdk = ZorvaSDK::shared();
  const auto check = [&](const char* name, GVariant* set, const std::function<bool()>& held) {
    SCOPED_TRACE(name);
    g_autoptr(GVariant) value = g_variant_ref_sink(set);
    g_auto(GValue) in = G_VALUE_INIT;
    g_auto(GValue) out = G_VALUE_INIT;
    g_dbus_gvariant_to_gvalue(value, &in);
    g_object_set_property(object, name, &in);
    g_object_get_property(object, name, &out);  // which takes the property's type
    g_autoptr(GVariant) back = g_dbus_gvalue_to_gvariant(&out, g_variant_get_type(value));
    EXPECT_TRUE(g_variant_equal(value, back));
    EXPECT_TRUE(!held || held());
    GParamSpec* property = g_object_class_find_property(G_OBJECT_GET_CLASS(object), name);
    g_object_set_property(object, name, g_param_spec_get_default_value(property));
    EXPECT_TRUE(!held || !held());
  };
  constexpr const char* kStore = "https://store.example/app/id42";
  check("log-level", g_variant_new_uint32(4), nullptr);  // the failure test sees it logging
  check("vast-fetch-budget", g_variant_new_uint32(7), [&] { return sdk->vastFetchBudget() == 7; });
  check("store-url", g_variant_new_string(kStore),
        [&] { return sdk->storeURL() && sdk->storeURL()->absoluteString() == kStore; });
  check("location", g_variant_new_parsed("(1.5, -2.25)"), [&] {
    const auto fix = sdk->location();
    return fix && fix->coordinate.latitude == 1.5 && fix->coordinate.longitude == -2.25;
  });
  check("gpp-sid", g_variant_new_parsed("[2, 7]"), [&] {
    return sdk->gppSid() == std::vector{2, 7};
  });
  using Text = std::optional<std::string> (ZorvaSDK::*)() const;
  for (const auto& [name, text] : std::initializer_list<std::pair<const char*, Text>>{
           {"app-domain", &ZorvaSDK::appDomain},
           {"app-categories", &ZorvaSDK::appCategories},
           {"app-keywords", &ZorvaSDK::appkeywords},
           {"user-keywords", &ZorvaSDK::userKeywords},
           {"gdpr-consent", &ZorvaSDK::gdprConsent},
           {"us-privacy", &ZorvaSDK::usPrivacy},
           {"gpp", &ZorvaSDK::gpp},
           {"tracking-queue-path", &ZorvaSDK::trackingQueuePath}}) {
    check(name, g_variant_new_string(name), [&] { return ((*sdk).*text)() == name; });
  }
  // Each switch on, then off, is notified alone: its setting moves no other (app-conventions
  // moves the conventions it stands for, each notified).
  guint count = 0;
  g_autofree GParamSpec** properties =
      g_object_class_list_properties(G_OBJECT_GET_CLASS(object), &count);
  int notified = 0;
  g_signal_connect_swapped(object, "notify", G_CALLBACK(+[](int* n) { ++*n; }), &notified);
  g_setenv("XDG_CACHE_HOME", testing::TempDir().c_str(), TRUE);  // the transport's queue goes there
  for (guint i = 0; i < count; ++i) {
    if (!G_IS_PARAM_SPEC_BOOLEAN(properties[i])) continue;
    notified = 0;
    check(properties[i]->name, g_variant_new_boolean(TRUE), nullptr);
    EXPECT_TRUE(properties[i]->name == std::string_view("app-conventions") ? notified > 2
                                                                           : notified == 2)
        << properties[i]->name << " notified " << notified << " times";
  }
  g_signal_handlers_disconnect_by_data(object, &notified);
}

// Shown over a window whose child is a plain box: the ad covers the content; Escape takes it
// away, "dismissed" is told and the box is the window's child again.
TEST_F(GObjectFaceTest, InterstitialCoversTheWindowAndTellsWhenItLeaves) {
  app.emplace(400, 300, gtk::Content::Slot);
  gpointer ad = make(kInterstitial, "interstitial");
  Heard heard;
  heard.listen(ad);
  zorva_interstitial_load(ZORVA_INTERSTITIAL(ad));
  ASSERT_TRUE(waitUntil([&] { return heard["loaded"] + heard["failed"] > 0; })) << heard.message;
  ASSERT_TRUE(zorva_interstitial_show(ZORVA_INTERSTITIAL(ad), GTK_WINDOW(app->toplevel)));
  EXPECT_FALSE(zorva_interstitial_show(ZORVA_INTERSTITIAL(ad), GTK_WINDOW(app->toplevel)));

  Screenshot picture;
  const auto covered = [&] {
    picture = shot();
    return picture.count(kInterstitialBlue, picture.x, picture.y, picture.width, picture.height) >
           picture.width * picture.height * 3 / 4;
  };
  ASSERT_TRUE(waitUntil(covered));
  EXPECT_EQ(zorva_interstitial_get_state(ZORVA_INTERSTITIAL(ad)), ZORVA_AD_STATE_SHOWN);
  EXPECT_EQ(heard["will-present"], 1);

  // A click on the ad's link (its white text nearest the bottom) is told; Escape takes the page
  // it opens away, then the ad.
  int row = picture.y + picture.height - 1, linkX = picture.x;
  while (row > picture.y && !picture.count(kWhite, picture.x, row, picture.width, 1, 40)) --row;
  while (!picture.at(linkX, row).near(kWhite, 40)) ++linkX;
  screen.click(linkX + 20, row - 3);
  ASSERT_TRUE(waitUntil([&] { return heard["clicked"] > 0 && !covered(); }));
  screen.key(gdk_x11_window_get_xid(gtk_widget_get_window(app->toplevel)), XK_Escape);
  ASSERT_TRUE(waitUntil(covered));
  screen.key(gdk_x11_window_get_xid(gtk_widget_get_window(app->toplevel)), XK_Escape);
  ASSERT_TRUE(waitUntil([&] { return heard["dismissed"] > 0; }));
  EXPECT_EQ(gtk_bin_get_child(GTK_BIN(app->toplevel)), app->container);
  EXPECT_EQ(heard["dismissed"], 1) << "the page's going is not the ad's";
}

}  // namespace
}  // namespace zorva::test
