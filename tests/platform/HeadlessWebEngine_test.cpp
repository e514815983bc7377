#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/WebView.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace zorva::platform {
namespace {

// Writes down every report and allows every navigation.
class Recorder : public NavigationDelegate {
 public:
  void webViewDecidePolicyForNavigationAction(
      WebView&, const NavigationAction&,
      std::function<void(NavigationActionPolicy)> decide) override {
    events.push_back("policy");
    decide(NavigationActionPolicy::Allow);
  }
  void webViewDidCommitNavigation(WebView&, const std::shared_ptr<Navigation>&) override {
    events.push_back("commit");
  }
  void webViewDidFinishNavigation(WebView&, const std::shared_ptr<Navigation>&) override {
    events.push_back("finish");
  }
  void webViewDidFailProvisionalNavigation(WebView&, const std::shared_ptr<Navigation>&,
                                           const Error& e) override {
    events.push_back("provisional:" + std::to_string(e.code));
  }
  std::vector<std::string> events;
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

// What every player test without a hand-driven engine relies on; the navigation's type and frame
// are checked by the players' navigation policies.
TEST(HeadlessWebEngine, AStringLoadAsksThePolicyThenFinishesOnALaterTurn) {
  Page page;
  page.webView->loadHTMLString("<p>ad</p>", URL::URLWithString("http://a.b/"));
  EXPECT_TRUE(page.recorder->events.empty());  // nothing inside the load call
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(page.recorder->events, (std::vector<std::string>{"policy", "commit", "finish"}));

  // The HTML player's test that a page which never committed is not reported means something
  // only if the failure does reach the navigation delegate.
  HeadlessWebEngine::setAutomaticByDefault(false);
  Page byHand;
  byHand.webView->loadHTMLString("", std::nullopt);
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(byHand.engine->failProvisionalNavigation(Error("NSURLErrorDomain", -1009)));
  EXPECT_FALSE(byHand.engine->finishNavigation());  // already over
  EXPECT_EQ(byHand.recorder->events, (std::vector<std::string>{"policy", "provisional:-1009"}));
}

TEST(HeadlessWebEngine, ADeadWebViewReportsNothing) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  Page page;
  bool called = false;
  page.webView->evaluateJavaScript(
      "navigator.userAgent", [&](std::optional<Value>, std::optional<Error>) { called = true; });
  page.webView->loadHTMLString("<p/>", std::nullopt);
  std::weak_ptr<HeadlessWebEngine> engine = std::exchange(page.engine, nullptr);
  EXPECT_EQ(HeadlessWebEngine::liveEngines().size(), 1u);
  page.webView.reset();
  EXPECT_TRUE(engine.expired());
  EXPECT_TRUE(HeadlessWebEngine::liveEngines().empty());
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(page.recorder->events.empty());
  EXPECT_FALSE(called);
}

}  // namespace
}  // namespace zorva::platform
