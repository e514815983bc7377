// Real WebKit in a virtual X server, pages from the loopback server: the engine as a web view's
// delegates hear it, then display ads through the SDK's own path (a banner).
#include "zorva/engines/WebKitWebEngine.h"

#include <gtest/gtest.h>
#include <webkit2/webkit2.h>
#include <zorva/ZVBannerView.h>
#include <zorva/platform/DeviceProfile.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "support/AdFormatTesting.h"
#include "support/PngSize.h"
#include "support/TestEnvironment.h"

namespace zorva::platform {
namespace {

using Events = std::vector<std::string>;

std::string pathOf(const std::optional<URL>& url) {
  if (!url) return "(none)";
  const auto& text = url->absoluteString();
  return text.substr(text.find('/', text.find("://") + 3));
}

// Records what a web view reports. Navigations to paths holding "blocked" are cancelled, on a
// later turn, as by a delegate that consults something first; alerts are held unanswered.
class RecordingDelegate : public NavigationDelegate, public UIDelegate {
 public:
  void webViewDecidePolicyForNavigationAction(
      WebView&, const NavigationAction& action,
      std::function<void(NavigationActionPolicy)> handler) override {
    const std::string path = pathOf(action.request.url);
    note("policy " + std::to_string(static_cast<long>(action.navigationType)) + " " + path +
         (action.targetFrame ? "" : " new-window"));
    const auto policy = path.find("blocked") == std::string::npos ? NavigationActionPolicy::Allow
                                                                  : NavigationActionPolicy::Cancel;
    MainQueue::shared().post([handler, policy] { handler(policy); });
  }
  void webViewDidCommitNavigation(WebView&, const std::shared_ptr<Navigation>& nav) override {
    note("commit " + pathOf(nav->request().url));
  }
  void webViewDidFinishNavigation(WebView&, const std::shared_ptr<Navigation>& nav) override {
    note("finish " + pathOf(nav->request().url));
  }
  void webViewDidFailNavigation(WebView&, const std::shared_ptr<Navigation>& nav,
                                const Error& error) override {
    note("fail " + pathOf(nav->request().url) + " " + error.domain);
  }
  void webViewDidFailProvisionalNavigation(WebView&, const std::shared_ptr<Navigation>& nav,
                                           const Error& error) override {
    note("fail-provisional " + pathOf(nav->request().url) + " " + error.domain);
  }
  std::shared_ptr<WebView> webViewCreateWebViewWithConfiguration(WebView&,
                                                                 const WebViewConfiguration&,
                                                                 const NavigationAction& action,
                                                                 const WindowFeatures&) override {
    note("create " + pathOf(action.request.url));
    return nullptr;
  }
  void webViewRunJavaScriptAlertPanelWithMessage(WebView&, const std::string& message,
                                                 const FrameInfo&,
                                                 std::function<void()> completion) override {
    note("alert " + message);
    heldAlert = std::move(completion);
  }

  void note(std::string event) { events.push_back(std::move(event)); }
  Events events;
  std::function<void()> heldAlert;
};

class WebKitTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    ASSERT_TRUE(WebKitWebEngine::install(&whyNot)) << whyNot;
    server.respond("/page", {.body = "<p>second</p>", .contentType = "text/html"});
    server.respond("/slow.png",
                   {.body = "", .contentType = "image/png", .delay = std::chrono::seconds(20)});
  }
  std::shared_ptr<WebView> makeWebView(Rect frame = Rect(0, 0, 320, 50)) {
    auto view = WebView::create(frame, WebViewConfiguration());
    view->setNavigationDelegate(delegate);
    view->setUIDelegate(delegate);
    return view;
  }
  static std::shared_ptr<WebKitWebEngine> engineOf(const WebView& view) {
    return std::dynamic_pointer_cast<WebKitWebEngine>(view.engine());
  }
  struct Outcome {
    bool done = false;
    std::optional<Value> value;
    std::optional<Error> error;
  };
  static Outcome run(WebView& view, const std::string& script) {
    auto outcome = std::make_shared<Outcome>();
    view.evaluateJavaScript(script, [outcome](std::optional<Value> v, std::optional<Error> e) {
      *outcome = {true, std::move(v), std::move(e)};
    });
    EXPECT_FALSE(outcome->done) << "completion ran inside the call";
    EXPECT_TRUE(test::runMainQueueUntil([&] { return outcome->done; })) << script;
    return *outcome;
  }
  bool waitFor(const std::string& event) {
    return test::runMainQueueUntil(
        [&] { return std::count(delegate->events.begin(), delegate->events.end(), event) > 0; });
  }
  // Live WebKit web processes started by this one ("WebKitWebProces": the kernel keeps 15 chars).
  static std::size_t webProcessCount() {
    std::size_t count = 0;
    std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
    for (std::string pid, name; children >> pid;)
      count += std::ifstream("/proc/" + pid + "/comm") >> name && name == "WebKitWebProces";
    return count;
  }
  std::optional<URL> at(const std::string& path) const {
    return URL::URLWithString(server.url(path));
  }

  test::LoopbackServer server;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

TEST_F(WebKitTest, PolicyDecidesNavigationsNewWindowsOpenNothingAndFailuresNeverFinish) {
  auto view = makeWebView();
  view->loadHTMLString(
      "<a id='link' href='/blocked-link'></a><a id='blank' target='_blank' href='/by-link'></a>"
      "<form id='form' method='post' action='/blocked-form'></form>",
      URL::URLWithString("http://ads.invalid/"));  // nothing for WebKit to connect to ahead
  ASSERT_TRUE(waitFor("finish /"));
  run(*view, "document.getElementById('link').click()");
  run(*view, "document.getElementById('form').submit()");
  ASSERT_TRUE(waitFor("policy 1 /blocked-form"));  // a submission is scheduled, not immediate
  run(*view, "document.getElementById('blank').click()");
  ASSERT_TRUE(waitFor("create /by-link"));
  run(*view, "window.open('/by-script'); 0");
  ASSERT_TRUE(waitFor("create /by-script"));
  run(*view, "location.href = '" + server.url("/page") + "'");
  ASSERT_TRUE(waitFor("finish /page"));

  // Cancelled navigations fail nothing; a page's own load is a navigation of its own.
  EXPECT_EQ(delegate->events,
            (Events{"policy -1 /", "commit /", "finish /", "policy 0 /blocked-link",
                    "policy 1 /blocked-form", "policy 0 /by-link new-window", "create /by-link",
                    "policy -1 /by-script new-window", "create /by-script", "policy -1 /page",
                    "commit /page", "finish /page"}));

  delegate->events.clear();
  view = makeWebView();
  view->loadRequest(URLRequest(URL::URLWithString(
      "http://127.0.0.1:" + std::to_string(test::LoopbackServer::unusedPort()) + "/ad")));
  ASSERT_TRUE(waitFor("fail-provisional /ad g-io-error-quark"));
  // A committed page still fetching an image is cut off by the next load, or by its process's end.
  view->loadHTMLString("<img src='/slow.png'>", at("/first"));
  ASSERT_TRUE(waitFor("commit /first"));
  view->loadHTMLString("<img src='/slow.png'>", at("/next"));
  ASSERT_TRUE(waitFor("commit /next"));
  webkit_web_view_terminate_web_process(engineOf(*view)->webKitWebView());
  ASSERT_TRUE(waitFor("fail /next WebKitWebEngine"));

  // A later web view, let go of while its page holds an alert: the answers arriving after it
  // touch nothing, and a script cut off ends with an error, not silence.
  view = makeWebView();
  view->loadHTMLString("<script>alert('held')</script>", at("/later"));
  ASSERT_TRUE(waitFor("alert held"));
  bool ended = false, failed = false;
  view->evaluateJavaScript("1", [&](auto, auto e) { ended = true, failed = e.has_value(); });
  std::weak_ptr<WebEngine> engine = view->engine();
  view.reset();
  EXPECT_TRUE(engine.expired());
  delegate->heldAlert();  // its dialog closed with the web view
  ASSERT_TRUE(test::runMainQueueUntil([&] { return ended; }));
  EXPECT_TRUE(failed);
  EXPECT_EQ(
      delegate->events,
      (Events{"policy -1 /ad", "fail-provisional /ad g-io-error-quark", "policy -1 /first",
              "commit /first", "policy -1 /next", "fail /first WebKitNetworkError", "commit /next",
              "fail /next WebKitWebEngine", "policy -1 /later", "commit /later", "alert held"}));
}

// A display ad through the SDK's own path; refreshes stack ads in one web process, not one page.
// Then script results and snapshots of a shown page, each handed over on a later turn.
TEST_F(WebKitTest, ABannerIsRenderedPastAnAlertInOneProcessAndScriptsAndSnapshotsComeLater) {
  test::useVirtualClock();
  auto window = DeviceProfile::phone().makeKeyWindow(ViewController::create());
  server.respond(test::kServadPath,
                 {.body = test::bidWithMarkup(
                      "<p id='ad'>Zorva banner</p><script>alert('hi'); document.title = "
                      "open('', 'ad') ? 'reached' : 'alone'; name = 'ad'</script>")});
  auto banner = ZVBannerView::create(test::requestFor(server), ZVAdSize{320, 50});
  banner->setRefreshInterval(1);
  test::Recorder recorder;
  auto listener = test::recordingBannerDelegate<ZVBannerViewDelegate>(recorder);
  banner->setDelegate(listener);
  banner->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder.count("receive") > 0; }));
  auto webView = test::findWebView(banner);
  ASSERT_TRUE(webView && engineOf(*webView));
  EXPECT_EQ(engineOf(*webView)->renderedSize(), (Size{320, 50}));
  EXPECT_EQ(run(*webView, "document.getElementById('ad').textContent").value,
            Value("Zorva banner"));
  const std::string agent = engineOf(*webView)->userAgent();
  EXPECT_NE(agent.find("AppleWebKit"), std::string::npos);
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(Value::parse(server.requests()[0].body)["device"]["ua"], Value(agent));
  for (std::size_t ads = 2; ads <= 121; ++ads) {  // two minutes of refreshes
    MainQueue::shared().advanceBy(seconds(1));
    ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder.count("receive") == ads; }));
    ASSERT_LE(webProcessCount() - 1, 1u) << "not one or two web processes for " << ads << " ads";
  }
  EXPECT_EQ(run(*test::findWebView(banner->subviews().back()), "document.title").value,
            Value("alone"));

  auto view = makeWebView(Rect(0, 0, 300, 120));
  view->loadHTMLString("<body style='background:#c00'>ad</body>", at("/"));
  ASSERT_TRUE(waitFor("finish /"));
  EXPECT_EQ(run(*view, "[6 * 7, 1.5, 1 < 2, null, {b: 'x'}]").value->dump(),
            R"([42,1.5,true,null,{"b":"x"}])");
  auto undefined = run(*view, "undefined");
  EXPECT_FALSE(undefined.value || undefined.error);
  auto thrown = run(*view, "throw new Error('boom')");
  ASSERT_TRUE(thrown.error && !thrown.value);
  EXPECT_NE(thrown.error->localizedDescription().find("boom"), std::string::npos);
  auto cyclic = run(*view, "var o = {}; o.self = o; o");
  ASSERT_TRUE(cyclic.error);
  EXPECT_EQ(cyclic.error->code, WebKitWebEngine::kScriptResultUnsupportedCode);
  EXPECT_EQ(run(*view, "'after'").value, Value("after"));  // nothing left behind by the failure

  const std::string path = testing::TempDir() + "zorva-webkit-snapshot.png";
  auto shoot = [&](const std::string& to) {
    std::remove(to.c_str());
    std::optional<std::optional<Error>> result;
    engineOf(*view)->snapshot(to, [&](std::optional<Error> error) { result = error; });
    EXPECT_FALSE(result) << "completion ran inside the call";
    EXPECT_TRUE(test::runMainQueueUntil([&] { return result.has_value(); }));
    return result.value_or(Error());
  };
  EXPECT_FALSE(shoot(path));
  EXPECT_EQ(test::pngSize(path), std::pair(300, 120));
  EXPECT_EQ(shoot("/nonexistent-dir/x.png")->code, WebKitWebEngine::kSnapshotFailedCode);
}

}  // namespace
}  // namespace zorva::platform
