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
class Recorder : public NavigationDelegate {
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
