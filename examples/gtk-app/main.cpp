// A GTK 3 app that shows ads over its own window: a banner docked at the bottom of its content,
// and an interstitial behind a button of its header bar.
#include <glib-unix.h>
#include <gtk/gtk.h>
#include <zorva/Zorva.h>
#include <zorva/engines/GStreamerMediaEngine.h>
#include <zorva/engines/GtkHost.h>
#include <zorva/engines/WebKitWebEngine.h>

#include <charconv>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace zorva;

constexpr const char* kUsage = R"(Usage: gtk-app [bid URL] [options]
A GTK window with its own content, a banner docked at its bottom, and "Show interstitial" and
"Video interstitial" buttons.
The ads come from the bid URL (default: the SDK's endpoint). What the app hears goes to standard
output, one line each. SIGINT and SIGTERM quit it like closing the window.

Options:
  --interstitial      press "Show interstitial" at start-up
  --video             press "Video interstitial" at start-up
  --quit-after N      quit after N seconds
  --screenshot FILE   on quitting, save the window's picture as a PNG
)";

constexpr const char* kAppText =
    "Notes\n\n"
    "This text is the app's own content. The banner below it belongs to the Zorva SDK: it is "
    "pinned to the bottom of the window and stays there when the window is resized.\n\n"
    "Clicks beside the banner stay the app's: the SDK takes only those that land on its ads.\n\n"
    "\"Show interstitial\" loads a full-screen ad and shows it over the window when it is loaded; "
    "\"Video interstitial\" does the same with a video ad, played with its sound.";

struct Options {
  std::optional<std::string> serverUrl;
  bool interstitial = false;
  bool video = false;
  unsigned quitAfter = 0;
  std::string screenshot;
};

std::optional<Options> parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--interstitial") {
      options.interstitial = true;
    } else if (arg == "--video") {
      options.video = true;
    } else if ((arg == "--quit-after" || arg == "--screenshot") && i + 1 < argc) {
      const std::string_view value = argv[++i];
      if (arg == "--screenshot") {
        options.screenshot = value;
        continue;
      }
      auto [end, ec] =
          std::from_chars(value.data(), value.data() + value.size(), options.quitAfter);
      if (ec != std::errc() || end != value.data() + value.size() || options.quitAfter == 0) {
        return std::nullopt;
      }
    } else if (!arg.starts_with("-") && !options.serverUrl) {
      options.serverUrl = arg;
    } else {
      return std::nullopt;
    }
  }
  return options;
}

void say(const std::string& line) { std::cout << line << std::endl; }

bool savePicture(GtkWidget* widget, const std::string& path) {
  GdkWindow* window = gtk_widget_get_window(widget);
  GdkPixbuf* picture = gdk_pixbuf_get_from_window(window, 0, 0, gdk_window_get_width(window),
                                                  gdk_window_get_height(window));
  const bool saved = picture && gdk_pixbuf_save(picture, path.c_str(), "png", nullptr, nullptr);
  if (picture) g_object_unref(picture);
  return saved;
}

class App {
 public:
  explicit App(Options options) : options_(std::move(options)) {
    window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window_), 600, 400);
    g_signal_connect_swapped(window_, "destroy", G_CALLBACK(+[](App* app) {
                               app->window_ = nullptr;
                               gtk_main_quit();
                             }),
                             this);

    GtkWidget* header = gtk_header_bar_new();
    gtk_header_bar_set_title(GTK_HEADER_BAR(header), "Zorva GTK example");
    gtk_header_bar_set_show_close_button(GTK_HEADER_BAR(header), TRUE);
    button_ = gtk_button_new_with_label("Show interstitial");
    g_signal_connect_swapped(button_, "clicked",
                             G_CALLBACK(+[](App* app) { app->interstitial(false); }), this);
    gtk_header_bar_pack_start(GTK_HEADER_BAR(header), button_);
    videoButton_ = gtk_button_new_with_label("Video interstitial");
    g_signal_connect_swapped(videoButton_, "clicked",
                             G_CALLBACK(+[](App* app) { app->interstitial(true); }), this);
    gtk_header_bar_pack_start(GTK_HEADER_BAR(header), videoButton_);
    gtk_window_set_titlebar(GTK_WINDOW(window_), header);

    // The app's content, above a strip kept for the banner. The overlay lays the host over its
    // main child's allocation: the box fills the overlay, so the host does too.
    GtkWidget* text = gtk_text_view_new();
    gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(text), GTK_WRAP_WORD);
    gtk_text_view_set_editable(GTK_TEXT_VIEW(text), FALSE);
    gtk_text_view_set_cursor_visible(GTK_TEXT_VIEW(text), FALSE);
    gtk_container_set_border_width(GTK_CONTAINER(text), 12);
    gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(text)), kAppText, -1);
    GtkWidget* scroller = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_widget_set_margin_bottom(scroller, 50);
    gtk_container_add(GTK_CONTAINER(scroller), text);
    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_box_pack_start(GTK_BOX(content), scroller, TRUE, TRUE, 0);
    GtkWidget* overlay = gtk_overlay_new();
    gtk_container_add(GTK_CONTAINER(overlay), content);
    gtk_container_add(GTK_CONTAINER(window_), overlay);

    bannerDelegate_->bannerViewDidReceiveAd = [](ZVBannerView&) { say("banner: ad received"); };
    bannerDelegate_->bannerViewDidFailToReceiveAdWithError = [](ZVBannerView&, const Error& e) {
      say("banner: no ad (" + e.localizedDescription() + ")");  // on GTK's thread: see main
    };

    // The SDK's tree over the content: it takes only the clicks that land on its ads.
    host_ = gtk::Host::attach(GTK_CONTAINER(overlay));
    banner_ = ZVBannerView::create(request("banner"), ZVAdSize{320, 50});
    banner_->setDelegate(bannerDelegate_);  // the banner holds it weakly
    host_->rootViewController()->view()->addSubview(banner_);
    dock(banner_);
    banner_->loadAd();

    interstitialDelegate_->interstitialDidReceiveAd = [this](ZVInterstitialAd& ad) {
      say("interstitial: loaded");
      ad.showFromViewController(host_->rootViewController());
    };
    interstitialDelegate_->interstitialWillPresentAd = [this](ZVInterstitialAd&) {
      say("interstitial: shown");
      enableButtons(true);
    };
    interstitialDelegate_->interstitialDidFailToReceiveAdWithError = [this](ZVInterstitialAd&,
                                                                            const Error& e) {
      say("interstitial: no ad (" + e.localizedDescription() + ")");
      enableButtons(true);
    };
    // Its "X", or Escape: the same object could load the next one.
    interstitialDelegate_->interstitialDidDismissAd = [](ZVInterstitialAd&) {
      say("interstitial: closed");
    };

    gtk_widget_show_all(window_);
    if (options_.interstitial || options_.video) interstitial(options_.video);
    if (options_.quitAfter) {
      g_timeout_add_seconds(options_.quitAfter, G_SOURCE_FUNC(+[](gpointer app) {
                              static_cast<App*>(app)->quit();
                              return G_SOURCE_REMOVE;
                            }),
                            this);
    }
  }

  ~App() {
    // The tree leaves the screen before the window goes.
    host_.reset();
    if (!window_) return;
    g_signal_handlers_disconnect_by_data(window_, this);
    gtk_widget_destroy(window_);
  }

  void quit() {
    if (window_ && !options_.screenshot.empty() && !savePicture(window_, options_.screenshot)) {
      std::cerr << "gtk-app: cannot save " << options_.screenshot << "\n";
    }
    gtk_main_quit();
  }

 private:
  std::shared_ptr<ZVAdRequest> request(const char* adunit) const {
    auto request = std::make_shared<ZVAdRequest>();
    request->publisherId = "my-publisher-id";
    request->adunitId = adunit;
    if (options_.serverUrl) request->serverUrl = options_.serverUrl;
    return request;
  }

  // 320 x 50, centred at the bottom of its superview, wherever the superview's size goes.
  static void dock(const std::shared_ptr<platform::View>& view) {
    using platform::LayoutAttribute;
    const auto parent = view->superview();
    auto pin = [&](LayoutAttribute attribute, const std::shared_ptr<platform::View>& to,
                   double constant) {
      return platform::LayoutConstraint::constraintWithItem(
          view, attribute, platform::LayoutRelation::Equal, to,
          to ? attribute : LayoutAttribute::NotAnAttribute, 1.0, constant);
    };
    view->setTranslatesAutoresizingMaskIntoConstraints(false);
    platform::LayoutConstraint::activateConstraints({
        pin(LayoutAttribute::Width, nullptr, 320),
        pin(LayoutAttribute::Height, nullptr, 50),
        pin(LayoutAttribute::CenterX, parent, 0),
        pin(LayoutAttribute::Bottom, parent, 0),
    });
  }

  // A new interstitial for every press, of the kind pressed. A video one plays its VAST video full
  // screen, with its sound.
  void interstitial(bool video) {
    if (host_->rootViewController()->presentedViewController()) {
      say("interstitial: one is on screen already");
      return;
    }
    enableButtons(false);
    interstitial_ = ZVInterstitialAd::create(request(video ? "video" : "interstitial"));
    interstitial_->setSwitchToVideo(video);
    interstitial_->setDelegate(interstitialDelegate_);
    interstitial_->loadAd();
  }

  void enableButtons(bool enabled) {
    gtk_widget_set_sensitive(button_, enabled);
    gtk_widget_set_sensitive(videoButton_, enabled);
  }

  Options options_;
  GtkWidget* window_ = nullptr;
  GtkWidget* button_ = nullptr;
  GtkWidget* videoButton_ = nullptr;
  std::unique_ptr<gtk::Host> host_;
  std::shared_ptr<ZVBannerView> banner_;
  std::shared_ptr<ZVInterstitialAd> interstitial_;
  std::shared_ptr<ZVBannerViewDelegate> bannerDelegate_ = std::make_shared<ZVBannerViewDelegate>();
  std::shared_ptr<ZVInterstitialAdDelegate> interstitialDelegate_ =
      std::make_shared<ZVInterstitialAdDelegate>();
};

gboolean quitOnSignal(gpointer app) {
  static_cast<App*>(app)->quit();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  const auto options = parse(argc, argv);
  if (!options) {
    std::cerr << kUsage;
    return 2;
  }
  // WebKit first: it initialises GTK and serves the SDK's main queue from GTK's main loop.
  std::string whyNot;
  if (!platform::WebKitWebEngine::install(&whyNot)) {
    std::cerr << "gtk-app: no display for GTK (" << whyNot << ")\n";
    return 1;
  }
  if (!platform::GStreamerMediaEngine::install(&whyNot)) {
    std::cerr << "gtk-app: videos will not play (" << whyNot << ")\n";
  }
  // What a GTK app expects of a library: every callback on GTK's thread (so the delegates touch
  // widgets directly), failures told rather than fatal (no fill, HTTP errors, missing ids), the
  // interstitial's close told, bid requests saying this is a Linux desktop, and a refreshed
  // banner that does not keep its earlier ads. See docs/settings.md.
  ZorvaSDK::shared()->setAppConventions(true);
  App app(*options);
  g_unix_signal_add(SIGINT, quitOnSignal, &app);
  g_unix_signal_add(SIGTERM, quitOnSignal, &app);
  gtk_main();
  return 0;
}
