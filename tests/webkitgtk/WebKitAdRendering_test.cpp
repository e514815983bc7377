// Display ads rendered by WebKit through the SDK's own path: the banner (real loader, libcurl,
// loopback ad server) and the display player built from an ad record.
#include <webkit2/webkit2.h>

#include <gtest/gtest.h>
#include <zorva/ZVBannerView.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/SafariViewController.h>

#include "Banner/ZVBannerViewImpl.h"
#include "Players/ZVDisplayAdPlayer.h"
#include "support/AdFormatTesting.h"
#include "support/TestEnvironment.h"
#include "zorva/engines/WebKitWebEngine.h"

namespace zorva {
namespace {

using platform::WebKitWebEngine;
using test::Recorder;

class PlayerRecorder : public ZVAdPlayerDelegate {
 public:
  explicit PlayerRecorder(Recorder& recorder) : recorder_(recorder) {}
  void playerWillPresentModal() override { recorder_.note("willPresent"); }
  void playerDidDismissModal() override { recorder_.note("didDismiss"); }
  void playerDidLoad() override { recorder_.note("load"); }
  void playerDidStartPlaying() override { recorder_.note("start"); }
  void playerDidEndPlaying() override { recorder_.note("end"); }
  void playerDidFailWithError(const Error&) override { recorder_.note("fail"); }

 private:
  Recorder& recorder_;
};

class WebKitAdRenderingTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(WebKitWebEngine::install(&whyNot)) << whyNot;
    platform::DeviceProfile::phone().makeKeyWindow(root);
  }

  std::shared_ptr<ZVBannerView> loadBanner(const std::string& markup) {
    server.respond(test::kServadPath, {.body = test::bidWithMarkup(markup)});
    auto banner = ZVBannerView::create(test::requestFor(server), ZVAdSize{320, 50});
    banner->setFrame(platform::Rect(0, 0, 320, 50));
    banner->setDelegate(bannerDelegate);
    banner->loadAd();
    EXPECT_TRUE(waitFor("receive"));
    return banner;
  }
  std::shared_ptr<ZVDisplayAdPlayer> playAd(const std::string& creative) {
    ZVPlayerConfig config;
    config.ad = std::make_shared<ZorvaAd>();
    config.ad->creative = creative;
    config.ad->size = ZVAdSize(320, 50);
    auto player = ZVDisplayAdPlayer::create(config);
    player->setDelegate(playerDelegate);
    player->play();
    return player;
  }
  bool waitFor(const std::string& name) {
    return test::runMainQueueUntil([&] { return recorder.count(name) > 0; });
  }
  static std::optional<Value> evaluate(platform::WebView& view, const std::string& script) {
    std::optional<Value> result;
    bool done = false;
    view.evaluateJavaScript(script, [&](std::optional<Value> value, std::optional<Error>) {
      result = std::move(value);
      done = true;
    });
    EXPECT_TRUE(test::runMainQueueUntil([&] { return done; }));
    return result;
  }
  std::shared_ptr<platform::SafariViewController> browser() const {
    return std::dynamic_pointer_cast<platform::SafariViewController>(
        root->presentedViewController());
  }

  test::LoopbackServer server;
  Recorder recorder;
  std::shared_ptr<platform::ViewController> root = platform::ViewController::create();
  std::shared_ptr<ZVBannerViewDelegate> bannerDelegate = [this] {
    auto delegate = std::make_shared<ZVBannerViewDelegate>();
    delegate->bannerViewDidReceiveAd = [this](ZVBannerView&) { recorder.note("receive"); };
    delegate->bannerViewDidFailToReceiveAdWithError = [this](ZVBannerView&, const Error&) {
      recorder.note("fail");
    };
    delegate->bannerViewWillPresentModal = [this](ZVBannerView&) { recorder.note("present"); };
    return delegate;
  }();
  std::shared_ptr<PlayerRecorder> playerDelegate = std::make_shared<PlayerRecorder>(recorder);
};

TEST_F(WebKitAdRenderingTest, ABannerAdIsRenderedByWebKitAndTheBidCarriesWebKitsUserAgent) {
  auto banner = loadBanner("<p id='ad'>Zorva banner</p>");
  auto webView = test::findWebView(banner);
  ASSERT_NE(webView, nullptr);
  auto engine = std::dynamic_pointer_cast<WebKitWebEngine>(webView->engine());
  ASSERT_NE(engine, nullptr);
  EXPECT_EQ(engine->renderedSize(), (platform::Size{320, 50}));
  // The load was reported by the page itself: the creative is in WebKit's document.
  EXPECT_EQ(evaluate(*webView, "document.getElementById('ad').textContent"), Value("Zorva banner"));

  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(Value::parse(requests[0].body)["device"]["ua"], Value(engine->userAgent()));
  EXPECT_EQ(recorder.names(), (std::vector<std::string>{"receive"}));
}

TEST_F(WebKitAdRenderingTest, AClickedLinkOpensTheBrowserOnItsURLAndTheAdStaysPut) {
  auto banner = loadBanner("<a id='go' href='https://advertiser.example/landing'>Go</a>");
  auto webView = test::findWebView(banner);
  ASSERT_NE(webView, nullptr);
  const auto page = evaluate(*webView, "location.href");

  evaluate(*webView, "document.getElementById('go').click()");
  ASSERT_TRUE(waitFor("present"));
  ASSERT_NE(browser(), nullptr);
  EXPECT_EQ(browser()->url().absoluteString(), "https://advertiser.example/landing");
  EXPECT_EQ(evaluate(*webView, "location.href"), page);
  EXPECT_EQ(recorder.names(), (std::vector<std::string>{"receive", "present"}));
}

TEST_F(WebKitAdRenderingTest, ACreativeCallingAlertRunsOnAndLoads) {
  auto player = playAd("<script>alert('hi'); document.title = 'after alert';</script>");
  ASSERT_TRUE(waitFor("load"));
  EXPECT_EQ(evaluate(*player->htmlPlayer()->contenView(), "document.title"), Value("after alert"));
  EXPECT_EQ(recorder.names(), (std::vector<std::string>{"load"}));
}

TEST_F(WebKitAdRenderingTest, ACreativeURLThatCannotBeReachedIsSilent) {
  auto player = playAd("http://127.0.0.1:" + std::to_string(test::LoopbackServer::unusedPort()) +
                       "/creative");
  auto engine =
      std::dynamic_pointer_cast<WebKitWebEngine>(player->htmlPlayer()->contenView()->engine());
  ASSERT_NE(engine, nullptr);
  // Watch WebKit itself to know when the failure has been through the engine: WebKit finishes
  // a failed load too.
  int finished = 0;
  const gulong watch =
      g_signal_connect(engine->webKitWebView(), "load-changed",
                       G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, gpointer count) {
                         if (event == WEBKIT_LOAD_FINISHED) ++*static_cast<int*>(count);
                       }),
                       &finished);
  ASSERT_TRUE(test::runMainQueueUntil([&] { return finished > 0; }));
  g_signal_handler_disconnect(engine->webKitWebView(), watch);
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_EQ(recorder.names(), std::vector<std::string>{});
}

}  // namespace
}  // namespace zorva
