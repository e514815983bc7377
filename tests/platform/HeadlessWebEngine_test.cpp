#include <zorva/platform/Device.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/WebView.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorva::platform {
namespace {

URLRequest requestFor(const char* url) { return URLRequest(URL::URLWithString(url)); }

// Writes down every report, and answers the policy with `policy` (or holds the decision).
class Recorder : public NavigationDelegate, public UIDelegate {
 public:
  void webViewDecidePolicyForNavigationAction(
      WebView&, const NavigationAction& action,
      std::function<void(NavigationActionPolicy)> decide) override {
    actions.push_back(action);
    events.push_back("policy");
    if (holdDecision) {
      held = std::move(decide);
    } else {
      decide(policy);
    }
  }
  void webViewDidCommitNavigation(WebView&, const std::shared_ptr<Navigation>&) override {
    events.push_back("commit");
  }
  void webViewDidFinishNavigation(WebView&, const std::shared_ptr<Navigation>& n) override {
    events.push_back("finish");
    finished.push_back(n);
  }
  void webViewDidFailNavigation(WebView&, const std::shared_ptr<Navigation>&,
                                const Error& e) override {
    events.push_back("fail:" + std::to_string(e.code));
  }
  void webViewDidFailProvisionalNavigation(WebView&, const std::shared_ptr<Navigation>&,
                                           const Error& e) override {
    events.push_back("provisional:" + std::to_string(e.code));
  }
  std::shared_ptr<WebView> webViewCreateWebViewWithConfiguration(WebView& webView,
                                                                 const WebViewConfiguration&,
                                                                 const NavigationAction& action,
                                                                 const WindowFeatures&) override {
    events.push_back("create");
    webView.loadRequest(action.request);  // open it in the same view
    return nullptr;
  }
  void webViewRunJavaScriptConfirmPanelWithMessage(WebView&, const std::string& message,
                                                   const FrameInfo&,
                                                   std::function<void(bool)> done) override {
    events.push_back("confirm:" + message);
    done(true);
  }

  NavigationActionPolicy policy = NavigationActionPolicy::Allow;
  bool holdDecision = false;
  std::function<void(NavigationActionPolicy)> held;
  std::vector<NavigationAction> actions;
  std::vector<std::string> events;
  std::vector<std::shared_ptr<Navigation>> finished;
};

struct Page {
  Page() {
    webView = WebView::create(Rect(0, 0, 320, 50), WebViewConfiguration());
    webView->setNavigationDelegate(recorder);
    webView->setUIDelegate(recorder);
    engine = HeadlessWebEngine::of(*webView);
  }
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<WebView> webView;
  std::shared_ptr<HeadlessWebEngine> engine;
};

TEST(HeadlessWebEngine, AStringLoadAsksThePolicyThenFinishesOnItsOwn) {
  Page page;
  auto navigation = page.webView->loadHTMLString("<p>ad</p>", URL::URLWithString("http://a.b/"));
  EXPECT_TRUE(page.recorder->events.empty());  // nothing inside the load call
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(page.recorder->events, (std::vector<std::string>{"policy", "commit", "finish"}));
  ASSERT_EQ(page.recorder->actions.size(), 1u);
  const auto& action = page.recorder->actions[0];
  EXPECT_EQ(action.navigationType, NavigationType::Other);
  ASSERT_TRUE(action.targetFrame);
  EXPECT_TRUE(action.targetFrame->mainFrame);
  EXPECT_EQ(action.request.url->absoluteString(), "http://a.b/");
  EXPECT_EQ(page.recorder->finished, std::vector<std::shared_ptr<Navigation>>{navigation});
  EXPECT_EQ(page.engine->html(), "<p>ad</p>");
}

TEST(HeadlessWebEngine, ACancelledLoadNeverStarts) {
  Page page;
  page.recorder->policy = NavigationActionPolicy::Cancel;
  page.webView->loadRequest(requestFor("https://x.y/page"));
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(page.recorder->events, std::vector<std::string>{"policy"});
  EXPECT_EQ(page.engine->provisionalNavigation(), nullptr);
  EXPECT_FALSE(page.engine->request());
}

TEST(HeadlessWebEngine, ByHandLoadsWaitForTheTestAndALateDecisionStillCounts) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  Page page;
  page.recorder->holdDecision = true;
  page.webView->loadHTMLString("", std::nullopt);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(page.engine->provisionalNavigation(), nullptr);
  page.recorder->held(NavigationActionPolicy::Allow);
  ASSERT_NE(page.engine->provisionalNavigation(), nullptr);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(page.recorder->events, std::vector<std::string>{"policy"});

  EXPECT_TRUE(page.engine->failNavigation(Error("WebKitErrorDomain", 102)));
  EXPECT_FALSE(page.engine->finishNavigation());  // already over
  EXPECT_EQ(page.recorder->events, (std::vector<std::string>{"policy", "commit", "fail:102"}));
}

TEST(HeadlessWebEngine, ANewerLoadCancelsThePendingOne) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  Page page;
  page.webView->loadRequest(requestFor("https://one.test/"));
  page.webView->loadRequest(requestFor("https://two.test/"));
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(page.recorder->events,
            (std::vector<std::string>{"policy", "policy", "provisional:-999"}));
  EXPECT_EQ(page.engine->request()->url->host(), "two.test");
  EXPECT_TRUE(page.engine->failProvisionalNavigation(Error("NSURLErrorDomain", -1009)));
  EXPECT_EQ(page.recorder->events.back(), "provisional:-1009");
}

TEST(HeadlessWebEngine, PageNavigationsCarryTheirTypeAndTheDecision) {
  Page page;
  page.recorder->policy = NavigationActionPolicy::Cancel;
  EXPECT_EQ(page.engine->clickLink(requestFor("https://click.test/")),
            NavigationActionPolicy::Cancel);
  page.recorder->policy = NavigationActionPolicy::Allow;
  EXPECT_EQ(page.engine->navigate(requestFor("https://form.test/"), NavigationType::FormSubmitted),
            NavigationActionPolicy::Allow);
  ASSERT_EQ(page.recorder->actions.size(), 2u);
  EXPECT_EQ(page.recorder->actions[0].navigationType, NavigationType::LinkActivated);
  EXPECT_EQ(page.recorder->actions[1].navigationType, NavigationType::FormSubmitted);
  MainQueue::shared().runUntilIdle();  // the allowed one finishes by itself
  EXPECT_EQ(page.recorder->events.back(), "finish");
  EXPECT_EQ(page.engine->request()->url->host(), "form.test");
}

TEST(HeadlessWebEngine, ANewWindowRequestHasNoTargetFrameAndGoesToTheUIDelegate) {
  Page page;
  page.engine->openNewWindow(requestFor("https://popup.test/"), NavigationType::Other);
  ASSERT_EQ(page.recorder->actions.size(), 1u);
  EXPECT_FALSE(page.recorder->actions[0].targetFrame);
  EXPECT_EQ(page.recorder->events, (std::vector<std::string>{"policy", "create"}));
  MainQueue::shared().runUntilIdle();
  // The delegate loaded it in the same view: asked again, now for the main frame.
  ASSERT_EQ(page.recorder->actions.size(), 2u);
  EXPECT_TRUE(page.recorder->actions[1].targetFrame);
  EXPECT_EQ(page.engine->request()->url->host(), "popup.test");
}

TEST(HeadlessWebEngine, DialogsGoThroughTheUIDelegateOrCloseAtOnceWithoutOne) {
  Page page;
  EXPECT_EQ(page.engine->runJavaScriptConfirm("sure?"), true);
  EXPECT_TRUE(page.engine->runJavaScriptAlert("hi"));  // default answer of the delegate
  auto typed = page.engine->runJavaScriptPrompt("name?", "x");
  ASSERT_TRUE(typed);    // closed at once...
  EXPECT_FALSE(*typed);  // ...with no text
  EXPECT_EQ(page.recorder->events, std::vector<std::string>{"confirm:sure?"});
  page.webView->setUIDelegate(std::weak_ptr<UIDelegate>());
  EXPECT_EQ(page.engine->runJavaScriptConfirm("sure?"), false);
}

TEST(HeadlessWebEngine, AnswersTheUserAgentScriptForTheCurrentDevice) {
  Device::currentDevice().setSystemVersion("16.4");
  Page page;
  std::optional<Value> result;
  std::optional<Error> error;
  page.webView->evaluateJavaScript("navigator.userAgent",
                                   [&](std::optional<Value> r, std::optional<Error> e) {
                                     result = std::move(r);
                                     error = std::move(e);
                                   });
  EXPECT_FALSE(result);
  MainQueue::shared().runUntilIdle();
  ASSERT_TRUE(result);
  EXPECT_EQ(*result,
            "Mozilla/5.0 (iPhone; CPU iPhone OS 16_4 like Mac OS X) AppleWebKit/605.1.15 "
            "(KHTML, like Gecko) Mobile/15E148");
  EXPECT_FALSE(error);

  page.webView->evaluateJavaScript("document.title",
                                   [&](std::optional<Value> r, std::optional<Error> e) {
                                     result = std::move(r);
                                     error = std::move(e);
                                   });
  MainQueue::shared().runUntilIdle();
  EXPECT_FALSE(result);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, HeadlessWebEngine::kErrorDomain);
}

TEST(HeadlessWebEngine, ADeadWebViewReportsNothing) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  auto recorder = std::make_shared<Recorder>();
  auto webView = WebView::create(Rect(), WebViewConfiguration());
  webView->setNavigationDelegate(recorder);
  bool called = false;
  webView->evaluateJavaScript("navigator.userAgent",
                              [&](std::optional<Value>, std::optional<Error>) { called = true; });
  webView->loadHTMLString("<p/>", std::nullopt);
  std::weak_ptr<HeadlessWebEngine> engine = HeadlessWebEngine::of(*webView);
  EXPECT_EQ(HeadlessWebEngine::liveEngines().size(), 1u);
  webView.reset();
  EXPECT_TRUE(engine.expired());
  EXPECT_TRUE(HeadlessWebEngine::liveEngines().empty());
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(recorder->events.empty());
  EXPECT_FALSE(called);
}

TEST(WebEngine, AHostFactoryReplacesTheHeadlessEngine) {
  struct NullEngine : WebEngine {
    void loadHTMLString(const std::shared_ptr<Navigation>&, const std::string&,
                        const std::optional<URL>&) override {}
    void loadRequest(const std::shared_ptr<Navigation>&) override {}
    void evaluateJavaScript(const std::string&, JavaScriptCompletion) override {}
    std::string userAgent() const override { return "null"; }
  };
  WebEngine::setFactory([](std::weak_ptr<WebEngineClient>, const WebViewConfiguration&) {
    return std::make_shared<NullEngine>();
  });
  auto webView = WebView::create(Rect(), WebViewConfiguration());
  EXPECT_EQ(webView->engine()->userAgent(), "null");
  EXPECT_EQ(HeadlessWebEngine::of(*webView), nullptr);
}

}  // namespace
}  // namespace zorva::platform
