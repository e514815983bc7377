// The on-screen host as a person meets it: a real window in a virtual X server.
#include "zorva/engines/GtkHost.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <zorva/ZVBannerView.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/platform/Button.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Screen.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/WebView.h>
#include <zorva/platform/Window.h>

#include "support/AdFormatTesting.h"

// Last: it brings in Xlib, whose macros clash with the SDK's names.
#include "OnScreen.h"

namespace zorva::gtk {
namespace {

using platform::Color;
using platform::Rect;
using test::Pixel;

constexpr Pixel kRed{255, 0, 0}, kBlue{0, 0, 255}, kGreen{0, 255, 0}, kWhite{255, 255, 255},
    kDarkGray{85, 85, 85}, kYellow{255, 255, 0};

// A creative that fills its frame with one colour; all of it is a link to `href`.
std::string solidCreative(const std::string& colour, const std::string& href) {
  return "<a href='" + href +
         "' style='display:block;width:100vw;height:100vh;background:" + colour +
         "'></a><style>html,body{margin:0;height:100%;overflow:hidden}</style>";
}

// A bid's store parameters of an App Store product.
const Value kStoreExt = {{"skadn",
                          {{"itunesitem", "123456789"},
                           {"network", "zorva.skadnetwork"},
                           {"campaign", "7"},
                           {"nonce", "473B1D16-A3EB-4E81-9EEB-A1D2C8C57E1D"},
                           {"timestamp", "1700000000"}}}};

class GtkHostTest : public OnScreenTest {
 protected:
  std::shared_ptr<ZVBannerView> loadBanner(const Rect& frame, bool store) {
    server.respond(test::kServadPath,
                   {.body = test::bidWithMarkup(solidCreative("#00ff00", server.url("/landing")),
                                                320, 50, store ? kStoreExt : Value())});
    auto banner = ZVBannerView::create(test::requestFor(server), ZVAdSize{320, 50});
    banner->setFrame(frame);
    banner->setDelegate(delegate);
    host->rootViewController()->view()->addSubview(banner);
    banner->loadAd();
    return banner;
  }

  std::shared_ptr<ZVInterstitialAd> showInterstitial(const std::string& markup) {
    server.respond(test::kServadPath, {.body = test::bidWithMarkup(markup)});
    auto interstitial = ZVInterstitialAd::create(test::requestFor(server));
    interstitialDelegate->interstitialWillPresentAd = [this](auto&) { recorder.note("present"); };
    interstitial->setDelegate(interstitialDelegate);
    interstitial->loadAd();
    EXPECT_TRUE(waitUntil([&] { return interstitial->state() == 2; }));
    interstitial->showFromViewController(host->rootViewController());
    return interstitial;
  }

  test::Recorder recorder;
  std::shared_ptr<ZVBannerViewDelegate> delegate =
      test::recordingBannerDelegate<ZVBannerViewDelegate>(recorder);
  std::shared_ptr<ZVInterstitialAdDelegate> interstitialDelegate =
      test::recordingInterstitialDelegate(recorder);
};

TEST_F(GtkHostTest, DrawsTheTreeAndDeliversClicksToTheViewUnderThePointer) {
  auto window = platform::Window::create(Rect(0, 0, 300, 200));
  auto root = platform::ViewController::create();
  window->setRootViewController(root);
  auto content = root->view();
  content->setBackgroundColor(Color::blueColor());
  // Custom buttons without titles, drawn as views are: they count the touches that end on them.
  int touches[3] = {};
  const auto counter = [&](const Rect& frame, int* count) {
    auto view = platform::Button::buttonWithType(platform::ButtonType::Custom);
    view->setFrame(frame);
    view->addTarget([count](platform::Button&) { ++*count; }, platform::kControlEventTouchUpInside);
    return view;
  };
  auto card = counter(Rect(10, 20, 100, 60), &touches[0]);
  card->setBackgroundColor(Color::redColor());
  card->layer()->setBorderWidth(4);
  card->layer()->setBorderColor(Color::greenColor());
  card->setClipsToBounds(true);
  // Cut at the card's edge: only its left 20 points show, and only they take clicks.
  auto overhang = counter(Rect(80, 10, 60, 20), &touches[1]);
  overhang->setBackgroundColor(Color::whiteColor());
  card->addSubview(overhang);
  auto hidden = platform::View::create(Rect(150, 20, 50, 50));
  hidden->setBackgroundColor(Color::greenColor());
  hidden->setHidden(true);
  auto button = counter(Rect(150, 20, 50, 50), &touches[2]);
  button->setBackgroundColor(Color::darkGrayColor());
  button->layer()->setCornerRadius(25);
  button->setTitle("X", platform::kControlStateNormal);
  for (const auto& view : std::vector<std::shared_ptr<platform::View>>{card, button, hidden}) {
    content->addSubview(view);
  }
  host = Host::createWindow(window, "tree");
  ASSERT_TRUE(waitForPixel(50, 50, kRed));

  auto picture = shot();
  EXPECT_TRUE(picture.at(5, 5).near(kBlue));
  EXPECT_TRUE(picture.at(11, 21).near(kGreen)) << "the border runs inside the card's edge";
  EXPECT_TRUE(picture.at(95, 35).near(kWhite)) << "the subview shows inside the card";
  EXPECT_TRUE(picture.at(115, 35).near(kBlue)) << "and is cut at the card's edge";
  EXPECT_TRUE(picture.at(152, 22).near(kBlue)) << "a round button's corner shows what is below";
  EXPECT_TRUE(picture.at(155, 45).near(kDarkGray)) << "the hidden view above it draws nothing";
  EXPECT_GT(picture.count(kWhite, 165, 30, 20, 30), 10) << "the button's title";

  // What changes in the tree is redrawn, where it was and where it is, with nothing else asked.
  card->setBackgroundColor(Color::colorWithRed(1, 1, 0, 1));
  overhang->setHidden(true);
  EXPECT_TRUE(waitForPixel(50, 50, kYellow) && waitForPixel(95, 35, kYellow))
      << "the card recoloured, the hidden overhang gone";
  overhang->setHidden(false);

  // The hidden view takes no click: the button beneath it does. The overhang takes clicks only
  // where its superview lets it show; past the card's edge the pointer finds the content.
  click(175, 45);
  click(95, 35);
  click(120, 35);
  click(50, 70);
  ASSERT_TRUE(waitUntil([&] { return touches[0] == 1; }));
  EXPECT_EQ(touches[1], 1);
  EXPECT_EQ(touches[2], 1);
}

// The app's handler runs outside the host's own pass: it may even take the host down. The
// suite's X server has one 1280 x 1024 screen, the desktop profile says 1920 x 1080: a host reads
// the display only when asked. (The web engine's agent in the bid is the WebKit suite's.)
TEST_F(GtkHostTest, BrowserAddressesGoToTheAppsHandlerAndTheBidCarriesTheDisplayWhenAsked) {
  platform::DeviceProfile::desktop().apply();
  attach(400, 600, Content::Empty);
  EXPECT_EQ(platform::Screen::mainScreen().bounds().size, (platform::Size{1920, 1080}));
  host.reset();
  std::vector<std::string> handed;
  HostOptions options{[&](const std::string& url) {
    handed.push_back(url);
    host.reset();
  }};
  options.screenFromDisplay = true;
  attach(400, 600, Content::Area, options);
  const auto window = host->window();  // the tree outlives the host its handler takes down
  auto banner = loadBanner(Rect(40, 550, 320, 50), /*store=*/false);
  ASSERT_TRUE(waitForPixel(200, 575, kGreen));
  const Value device = Value::parse(server.requests().at(0).body)["device"];
  EXPECT_EQ(device["w"], 1280);
  EXPECT_EQ(device["h"], 1024);
  EXPECT_EQ(device["pxratio"], 1);
  click(200, 575);
  ASSERT_TRUE(waitUntil([&] { return recorder.count("dismiss") == 1; }));
  EXPECT_EQ(handed, std::vector<std::string>{server.url("/landing")});
  EXPECT_EQ(recorder.names(), (std::vector<std::string>{"receive", "present", "dismiss"}));
}

// Wherever the host is, an interstitial covers the window's content and nothing of the app's
// shows through it: not the app's widgets with windows of their own below an overlay (a caret
// blinking, a button hovered and pressed, keys typed, the focus moving), not the rest of the
// window around a slot in the app's box, which itself asks for its banner's size and no more.
TEST_F(GtkHostTest, AnInterstitialCoversTheWindowFollowsItsSizeAndItsXTakesItDown) {
  g_object_set(gtk_settings_get_default(), "gtk-cursor-blink-time", 200, nullptr);
  for (const Content content : {Content::Area, Content::Controls, Content::Slot}) {
    SCOPED_TRACE(static_cast<int>(content));
    attach(400, 600, content);
    std::shared_ptr<ZVBannerView> banner;
    if (content == Content::Slot) {
      banner = loadBanner(Rect(0, 0, 320, 50), /*store=*/false);
      ASSERT_TRUE(waitForPixel(160, 575, kGreen)) << "the slot is the banner's size, at the bottom";
      EXPECT_EQ(shot().count(kBlue, 0, 0, 400, 550), 400 * 550) << "the app's content above it";
      click(200, 300);
      ASSERT_TRUE(waitUntil([&] { return app->clicks == 1; })) << "and its clicks";
    }
    auto interstitial =
        showInterstitial("<style>html,body{margin:0;height:100%;background:#ff0000}</style>");
    ASSERT_TRUE(waitForPixel(200, 300, kRed));
    // All of the window is the ad's but the close button's corner, 52 points square.
    const auto whole = [&](const test::Screenshot& s, int width, int height) {
      return s.count(kRed, 0, 52, width, height - 52) == width * (height - 52) &&
             s.count(kRed, 0, 0, width - 52, 52) == (width - 52) * 52;
    };
    EXPECT_TRUE(whole(shot(), 400, 600));
    if (content == Content::Controls) {
      // The app moving the focus to its text view and typing into it, below the ad.
      GtkTextBuffer* typed = gtk_text_view_get_buffer(GTK_TEXT_VIEW(app->text));
      gtk_widget_grab_focus(app->text);
      press(XK_a);
      ASSERT_TRUE(waitUntil([&] { return gtk_text_buffer_get_char_count(typed) == 1; }));
      GtkAllocation button;
      gtk_widget_get_allocation(app->button, &button);
      // The caret blinks every 0.2 s: 0.6 s of looks at the ad meet it shown and hidden.
      const auto untouched = [&] {
        return !waitUntil([&] { return !whole(shot(), 400, 600); }, std::chrono::milliseconds(600));
      };
      EXPECT_TRUE(untouched()) << "the app painted through the ad (caret)";
      EXPECT_TRUE(gtk_widget_is_focus(app->text)) << "its caret blinked all along";
      // The pointer over the app's button and a click there: the page's, and so is the focus.
      click(button.x + 10, button.y + button.height / 2);
      ASSERT_TRUE(waitUntil([&] { return !gtk_widget_is_focus(app->text); }));
      EXPECT_TRUE(untouched()) << "the app painted through the ad (hover, click, focus)";
    }

    gtk_window_resize(GTK_WINDOW(app->toplevel), 500, 700);
    ASSERT_TRUE(waitForPixel(500 - 10 - 30, 10 + 16, kDarkGray)) << "the X follows the corner";
    ASSERT_TRUE(waitForPixel(480, 680, kRed)) << "the ad the window";
    EXPECT_TRUE(whole(shot(), 500, 700));

    click(500 - 10 - 16, 10 + 16);
    ASSERT_TRUE(waitUntil([&] { return !pixelAt(250, 350).near(kRed); })) << "the app is back";
    EXPECT_TRUE(!banner || waitForPixel(160, 675, kGreen)) << "the banner at the bottom";
    EXPECT_EQ(app->clicks, content == Content::Slot ? 1 : 0) << "the ad's clicks are its own";
    // Closing with the X is not reported to the app, and the interstitial stays shown.
    EXPECT_EQ(recorder.count("dismiss") + recorder.count("click"), 0u);
    EXPECT_EQ(interstitial->state(), 3);
    EXPECT_EQ(host->rootViewController()->presentedViewController(), nullptr);
    host.reset();
  }
}

// A banner shows its creative in its frame and only there; clicks beside it are the app's. Without
// a pointer: Escape and the remote's Back close what each close control closes, Tab reaches the
// modal's "X" (drawing its focus ring) and Return, or the remote's OK, activates the focused
// control; the focus goes back to the app. Assistive technology meets every part, says where each
// control is (the window away from the screen's corner), sees the X focused and can press it.
TEST_F(GtkHostTest, KeysCloseWhatTheCloseControlsCloseAndEachPartIsNamedForAssistiveTechnology) {
  enum class Ad { Interstitial, Browser, StoreSheet };
  const struct {
    Ad ad;
    std::vector<KeySym> keys;  // none: the pointer clicks where assistive technology says
    const char* control;       // the accessible push button that closes the ad
  } cases[] = {
      {Ad::Interstitial, {XK_Escape}, "Close ad"},
      {Ad::Interstitial, {XK_Tab, XK_Return}, "Close ad"},
      {Ad::Interstitial, {XF86XK_Back}, "Close ad"},
      {Ad::Interstitial, {XK_Tab}, "Close ad"},
      {Ad::Interstitial, {}, "Close ad"},
      {Ad::Browser, {XK_Escape}, "Done"},
      {Ad::Browser, {XK_Return}, "Done"},
      {Ad::StoreSheet, {XK_Escape}, "Close"},
      {Ad::StoreSheet, {XK_Select}, "Close"},
      {Ad::StoreSheet, {}, "Close"},
  };
  constexpr Pixel kRing{51, 133, 227};
  server.respond("/landing", {.body = "<body style='margin:0;background:#ffff00'></body>",
                              .contentType = "text/html"});
  const auto has = [](AtkObject* object, AtkStateType state) {
    g_autoptr(AtkStateSet) states = atk_object_ref_state_set(object);
    return atk_state_set_contains_state(states, state) != FALSE;
  };
  attach(400, 600);
  gtk_window_move(GTK_WINDOW(app->toplevel), 200, 100);
  ASSERT_TRUE(waitUntil([&] {
    return host->window()->bounds().size.width == 400 && origin() == std::pair{200, 100};
  }));
  press(XK_Escape);
  ASSERT_TRUE(waitUntil([&] { return app->keys == 1; })) << "with no ad shown Escape is the app's";
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.control << " with " << c.keys.size() << " key(s)");
    const std::size_t dismissed = recorder.count("dismiss"), presented = recorder.count("present");
    const int clicks = app->clicks;
    std::shared_ptr<ZVBannerView> banner;
    std::shared_ptr<ZVInterstitialAd> interstitial;
    if (c.ad == Ad::Interstitial) {
      interstitial = showInterstitial(solidCreative("#ff0000", server.url("/landing")));
      ASSERT_TRUE(waitForPixel(200, 300, kRed));
      EXPECT_TRUE(accessible(ATK_ROLE_DIALOG, "Advertisement"));
      EXPECT_EQ(shot().count(kRing, 348, 0, 52, 52), 0) << "no ring before a key is pressed";
    } else {
      const std::size_t received = recorder.count("receive");
      banner = loadBanner(Rect(40, 550, 320, 50), c.ad == Ad::StoreSheet);
      ASSERT_TRUE(waitUntil([&] { return recorder.count("receive") > received; }));
      ASSERT_TRUE(waitForPixel(200, 575, kGreen));
      const auto picture = shot();
      EXPECT_EQ(picture.count(kGreen, 40, 550, 320, 50), 320 * 50);
      EXPECT_EQ(picture.count(kGreen, 0, 0, 400, 600), 320 * 50) << "green only in the banner";
      EXPECT_EQ(picture.count(kBlue, 0, 0, 400, 550), 400 * 550) << "the app's content above it";
      EXPECT_TRUE(accessible(ATK_ROLE_PANEL, "Advertisement"));
      click(200, 300);
      ASSERT_TRUE(waitUntil([&] { return app->clicks > clicks; })) << "a click beside it";
      click(200, 575);
      ASSERT_TRUE(waitForPixel(200, 300, c.ad == Ad::StoreSheet ? kWhite : kYellow));
      EXPECT_EQ(recorder.count("dismiss"), dismissed);
      EXPECT_EQ(recorder.count("present"), presented + 1);
    }
    AtkObject* control = nullptr;
    ASSERT_TRUE(waitUntil([&] { return (control = accessible(ATK_ROLE_PUSH_BUTTON, c.control)); }));
    EXPECT_TRUE(!interstitial ||
                (has(control, ATK_STATE_FOCUSABLE) && !has(control, ATK_STATE_FOCUSED)));
    EXPECT_TRUE(!c.keys.empty() || clickButton(screen, app->toplevel, c.control));
    for (KeySym key : c.keys) {
      press(key);
      if (key != XK_Tab) continue;
      ASSERT_TRUE(waitUntil([&] { return shot().count(kRing, 348, 0, 52, 52) > 100; }))
          << "the X's focus ring";
      EXPECT_TRUE(has(control, ATK_STATE_FOCUSED));
    }
    // Focused by Tab alone, the X is pressed by assistive technology's action.
    EXPECT_TRUE(c.keys != std::vector<KeySym>{XK_Tab} ||
                atk_action_do_action(ATK_ACTION(control), 0));
    ASSERT_TRUE(waitForPixel(200, 300, kBlue)) << "the app is back";
    EXPECT_EQ(host->rootViewController()->presentedViewController(), nullptr);
    // The focus is back where it was: on the app's content, or on the banner's page clicked.
    GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(app->toplevel));
    EXPECT_TRUE(banner ? gtk_widget_is_ancestor(focus, host->widget()) : focus == app->content);
    // A banner's delegate hears the sheet go as after a click; the X's closing is not reported.
    EXPECT_EQ(recorder.count("dismiss"), dismissed + (banner ? 1 : 0));
    EXPECT_TRUE(!banner || waitForPixel(200, 575, kGreen)) << "the banner did not follow its link";
    if (banner) banner->removeFromSuperview();
    ASSERT_TRUE(waitForPixel(200, 575, kBlue));
  }
  EXPECT_EQ(app->keys, 1) << "the ads took every other key";
  EXPECT_EQ(app->clicks, 5) << "and every click on them";
}

// A host that could never show an ad says why, once each: a page rendered headless (no web
// engine), a container that is never put on the screen.
TEST_F(GtkHostTest, AHostThatCouldNeverShowAnAdSaysWhyOnce) {
  test::LogCapture log;
  platform::WebEngine::setFactory({});
  attach(400, 600);
  for (int i = 0; i < 2; ++i) {
    host->rootViewController()->view()->addSubview(
        platform::WebView::create(Rect(0, 10 * i, 100, 10), {}));
  }
  ASSERT_TRUE(waitUntil([&] { return !log.entriesContaining("headless web engine").empty(); }));

  test::useVirtualClock();
  GtkWidget* hidden = g_object_ref_sink(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0));
  auto unseen = Host::attach(GTK_CONTAINER(hidden));
  unseen->rootViewController()->view()->addSubview(platform::View::create(Rect(0, 0, 10, 10)));
  platform::MainQueue::shared().advanceBy(std::chrono::seconds(4));
  EXPECT_TRUE(log.entriesContaining("never shown").empty());
  platform::MainQueue::shared().advanceBy(std::chrono::seconds(20));
  unseen->rootViewController()->view()->addSubview(platform::View::create(Rect(0, 0, 10, 10)));
  platform::MainQueue::shared().advanceBy(std::chrono::seconds(20));
  EXPECT_EQ(log.entriesContaining("never shown").size(), 1u);
  EXPECT_EQ(log.entriesContaining("headless web engine").size(), 1u);
  EXPECT_EQ(log.entriesContaining(" - E - ").size(), 2u);
  unseen.reset();
  g_object_unref(hidden);
}

}  // namespace
}  // namespace zorva::gtk
