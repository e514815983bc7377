// The WebKit engine behind a platform web view: real WebKit in a virtual X server, pages from
// the loopback server, reports as the web view's delegates hear them.
#include "zorva/engines/WebKitWebEngine.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "zorva/platform/MainQueue.h"
#include "zorva/platform/WebView.h"

namespace zorva::platform {
namespace {

using Events = std::vector<std::string>;

std::string typeName(NavigationType type) {
  switch (type) {
    case NavigationType::LinkActivated:
      return "link";
    case NavigationType::FormSubmitted:
      return "form";
    case NavigationType::Other:
      return "other";
    default:
      return "type" + std::to_string(static_cast<long>(type));
  }
}

std::string pathOf(const std::optional<URL>& url) {
  if (!url) return "(none)";
  const auto& text = url->absoluteString();
  return text.substr(text.find('/', text.find("://") + 3));
}

// Allows every navigation except to paths holding "blocked"; answers on a later turn, as a
// delegate that consults something first would.
class RecordingDelegate : public NavigationDelegate, public UIDelegate {
 public:
  void webViewDecidePolicyForNavigationAction(
      WebView&, const NavigationAction& action,
      std::function<void(NavigationActionPolicy)> handler) override {
    const std::string path = pathOf(action.request.url);
    events.push_back("policy " + typeName(action.navigationType) + " " + path +
                     (action.targetFrame ? "" : " new-window"));
    const bool allow = path.find("blocked") == std::string::npos;
    MainQueue::shared().post([handler = std::move(handler), allow] {
      handler(allow ? NavigationActionPolicy::Allow : NavigationActionPolicy::Cancel);
    });
  }
  void webViewDidCommitNavigation(WebView&, const std::shared_ptr<Navigation>& nav) override {
    events.push_back("commit " + pathOf(nav->request().url));
    committed.push_back(nav);
  }
  void webViewDidFinishNavigation(WebView&, const std::shared_ptr<Navigation>& nav) override {
    events.push_back("finish " + pathOf(nav->request().url));
    finished.push_back(nav);
  }
  void webViewDidFailNavigation(WebView&, const std::shared_ptr<Navigation>& nav,
                                const Error& error) override {
    events.push_back("fail " + pathOf(nav->request().url) + " " + error.domain);
  }
  void webViewDidFailProvisionalNavigation(WebView&, const std::shared_ptr<Navigation>& nav,
                                           const Error& error) override {
    events.push_back("fail-provisional " + pathOf(nav->request().url) + " " + error.domain);
  }
  std::shared_ptr<WebView> webViewCreateWebViewWithConfiguration(WebView&,
                                                                 const WebViewConfiguration&,
                                                                 const NavigationAction& action,
                                                                 const WindowFeatures&) override {
    events.push_back("create " + pathOf(action.request.url));
    return nullptr;
  }
  void webViewRunJavaScriptAlertPanelWithMessage(WebView&, const std::string& message,
                                                 const FrameInfo&,
                                                 std::function<void()> completion) override {
    events.push_back("alert " + message);
    if (holdAlerts) {
      heldAlert = std::move(completion);
    } else {
      completion();
    }
  }
  void webViewRunJavaScriptConfirmPanelWithMessage(WebView&, const std::string& message,
                                                   const FrameInfo&,
                                                   std::function<void(bool)> completion) override {
    events.push_back("confirm " + message);
    completion(true);
  }
  void webViewRunJavaScriptTextInputPanelWithPrompt(
      WebView&, const std::string& prompt, const std::optional<std::string>& defaultText,
      const FrameInfo&, std::function<void(std::optional<std::string>)> completion) override {
    events.push_back("prompt " + prompt + " " + defaultText.value_or("(none)"));
    // Answered later: the page waits.
    MainQueue::shared().post([completion] { completion("typed"); });
  }

  Events events;
  std::vector<std::shared_ptr<Navigation>> committed, finished;
  bool holdAlerts = false;
  std::function<void()> heldAlert;
};

class WebKitWebEngineTest : public testing::Test {
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
  Outcome run(WebView& view, const std::string& script) {
    auto outcome = std::make_shared<Outcome>();
    view.evaluateJavaScript(script, [outcome](std::optional<Value> v, std::optional<Error> e) {
      *outcome = {true, std::move(v), std::move(e)};
    });
    EXPECT_FALSE(outcome->done) << "completion ran inside the call";
    EXPECT_TRUE(test::runMainQueueUntil([&] { return outcome->done; })) << script;
    return *outcome;
  }
  bool waitFor(const std::string& event) {
    return test::runMainQueueUntil([&] {
      return std::find(delegate->events.begin(), delegate->events.end(), event) !=
             delegate->events.end();
    });
  }
  std::string base() const { return server.url("/"); }

  test::LoopbackServer server;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

TEST_F(WebKitWebEngineTest, WebViewsRenderWithWebKitOnceInstalled) {
  auto view = makeWebView();
  auto engine = engineOf(*view);
  ASSERT_NE(engine, nullptr);
  EXPECT_NE(engine->userAgent().find("AppleWebKit"), std::string::npos);
  // What pages see is what the engine reports (the SDK reads it through a script).
  EXPECT_EQ(run(*view, "navigator.userAgent").value, Value(engine->userAgent()));
}

TEST_F(WebKitWebEngineTest, ScriptResultsArriveAsValuesAndErrors) {
  auto view = makeWebView();
  EXPECT_EQ(run(*view, "'a' + 1").value, Value("a1"));
  EXPECT_EQ(run(*view, "6 * 7").value->dump(), "42");
  EXPECT_EQ(run(*view, "1.5").value, Value(1.5));
  EXPECT_EQ(run(*view, "1 < 2").value, Value(true));
  EXPECT_EQ(run(*view, "null").value, Value(nullptr));
  EXPECT_EQ(run(*view, "({a: [1, 'x'], b: {c: null}})").value,
            Value::parse(R"({"a":[1,"x"],"b":{"c":null}})"));

  auto undefined = run(*view, "undefined");
  EXPECT_FALSE(undefined.value || undefined.error);

  auto thrown = run(*view, "throw new Error('boom')");
  EXPECT_FALSE(thrown.value);
  ASSERT_TRUE(thrown.error);
  EXPECT_NE(thrown.error->localizedDescription().find("boom"), std::string::npos);

  auto cyclic = run(*view, "var o = {}; o.self = o; o");
  ASSERT_TRUE(cyclic.error);
  EXPECT_EQ(cyclic.error->code, WebKitWebEngine::kScriptResultUnsupportedCode);
  // The failed conversion leaves nothing behind for the next script.
  EXPECT_EQ(run(*view, "2 + 2").value, Value(4));
}

TEST_F(WebKitWebEngineTest, PolicyDecidesPageNavigationsAndEachLoadReportsItsOwnNavigation) {
  auto view = makeWebView();
  auto first = view->loadHTMLString(
      "<a id='link' href='/blocked-link'>x</a><form id='form' method='post' "
      "action='/blocked-form'></form>",
      URL::URLWithString(base()));
  ASSERT_TRUE(waitFor("finish /"));
  ASSERT_EQ(delegate->finished.size(), 1u);
  EXPECT_EQ(delegate->committed[0], first);
  EXPECT_EQ(delegate->finished[0], first);

  run(*view, "document.getElementById('link').click()");
  run(*view, "document.getElementById('form').submit()");
  ASSERT_TRUE(waitFor("policy form /blocked-form"));
  run(*view, "location.href = '/page'");
  ASSERT_TRUE(waitFor("finish /page"));

  // Cancelled navigations fail nothing; the page's own load is a navigation of its own.
  EXPECT_EQ(delegate->events, (Events{"policy other /", "commit /", "finish /",
                                      "policy link /blocked-link", "policy form /blocked-form",
                                      "policy other /page", "commit /page", "finish /page"}));
  EXPECT_NE(delegate->finished[1], first);
  EXPECT_EQ(run(*view, "document.body.textContent").value, Value("second"));
}

TEST_F(WebKitWebEngineTest, FailuresAreProvisionalBeforeCommitAndNeverFollowedByAFinish) {
  auto view = makeWebView();
  const auto unreachable = "http://127.0.0.1:" + std::to_string(test::LoopbackServer::unusedPort());
  view->loadRequest(URLRequest(URL::URLWithString(unreachable + "/ad")));
  ASSERT_TRUE(waitFor("fail-provisional /ad g-io-error-quark"));

  // A committed page still fetching an image is cut off by the next load.
  view->loadHTMLString("<img src='/slow.png'>", URL::URLWithString(server.url("/first")));
  ASSERT_TRUE(waitFor("commit /first"));
  view->loadHTMLString("<p>next</p>", URL::URLWithString(server.url("/next")));
  ASSERT_TRUE(waitFor("finish /next"));
  EXPECT_EQ(delegate->events,
            (Events{"policy other /ad", "fail-provisional /ad g-io-error-quark",
                    "policy other /first", "commit /first", "policy other /next",
                    "fail /first WebKitNetworkError", "commit /next", "finish /next"}));
}

TEST_F(WebKitWebEngineTest, DialogsGoToTheUIDelegateAndThePageWaitsForTheirAnswers) {
  auto view = makeWebView();
  view->loadHTMLString(
      "<script>alert('hello'); var ok = confirm('sure?'); var text = prompt('name', 'def');"
      "document.title = ok + '|' + text;</script>",
      URL::URLWithString(base()));
  ASSERT_TRUE(waitFor("finish /"));
  EXPECT_EQ(run(*view, "document.title").value, Value("true|typed"));
  EXPECT_EQ(delegate->events, (Events{"policy other /", "commit /", "alert hello", "confirm sure?",
                                      "prompt name def", "finish /"}));
}

TEST_F(WebKitWebEngineTest, NewWindowsAskThePolicyWithoutATargetFrameThenTheUIDelegate) {
  auto view = makeWebView();
  // Not the loopback server's address: WebKit may connect ahead to where a click points.
  view->loadHTMLString("<a id='blank' target='_blank' href='/opened-by-link'>x</a>",
                       URL::URLWithString("http://ads.invalid/"));
  ASSERT_TRUE(waitFor("finish /"));
  run(*view, "document.getElementById('blank').click()");
  ASSERT_TRUE(waitFor("create /opened-by-link"));
  run(*view, "window.open('/opened-by-script'); 0");
  ASSERT_TRUE(waitFor("create /opened-by-script"));
  EXPECT_EQ(delegate->events,
            (Events{"policy other /", "commit /", "finish /",
                    "policy link /opened-by-link new-window", "create /opened-by-link",
                    "policy other /opened-by-script new-window", "create /opened-by-script"}));
}

// Width and height from a PNG's header, or nothing when the file is not a PNG.
std::optional<std::pair<int, int>> pngSize(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() < 24 || bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 ||
      bytes.compare(12, 4, "IHDR") != 0) {
    return std::nullopt;
  }
  auto be32 = [&](std::size_t at) {
    int value = 0;
    for (std::size_t i = 0; i < 4; ++i)
      value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
  };
  return std::pair{be32(16), be32(20)};
}

TEST_F(WebKitWebEngineTest, SnapshotsArePNGsOfTheWebViewsCurrentFrame) {
  auto view = makeWebView(Rect(0, 0, 300, 120));
  view->loadHTMLString("<body style='background:#c00'>ad</body>", URL::URLWithString(base()));
  ASSERT_TRUE(waitFor("finish /"));
  const std::string path = testing::TempDir() + "zorva-webkit-snapshot.png";
  auto shoot = [&] {
    std::remove(path.c_str());
    std::optional<std::optional<Error>> result;
    engineOf(*view)->snapshot(path, [&](std::optional<Error> error) { result = error; });
    EXPECT_TRUE(test::runMainQueueUntil([&] { return result.has_value(); }));
    EXPECT_FALSE(result.value_or(Error()));
    return pngSize(path);
  };
  EXPECT_EQ(shoot(), std::pair(300, 120));
  view->setFrame(Rect(0, 0, 200, 90));
  EXPECT_EQ(shoot(), std::pair(200, 90));

  std::optional<Error> failure;
  bool done = false;
  engineOf(*view)->snapshot("/nonexistent-dir/x.png", [&](std::optional<Error> error) {
    failure = error;
    done = true;
  });
  ASSERT_TRUE(test::runMainQueueUntil([&] { return done; }));
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->code, WebKitWebEngine::kSnapshotFailedCode);
}

TEST_F(WebKitWebEngineTest, AnAnswerArrivingAfterTheWebViewIsGoneTouchesNothing) {
  delegate->holdAlerts = true;
  auto view = makeWebView();
  view->loadHTMLString("<script>alert('held')</script>", URL::URLWithString(base()));
  ASSERT_TRUE(waitFor("alert held"));
  std::optional<Error> scriptError;
  bool scriptEnded = false;
  view->evaluateJavaScript("1", [&](std::optional<Value>, std::optional<Error> error) {
    scriptError = error;
    scriptEnded = true;
  });
  std::weak_ptr<WebEngine> engine = view->engine();
  view.reset();
  EXPECT_TRUE(engine.expired());
  delegate->heldAlert();  // the dialog was closed with its web view
  ASSERT_TRUE(test::runMainQueueUntil([&] { return scriptEnded; }));
  EXPECT_TRUE(scriptError);  // a pending script ends with an error, not silence
  EXPECT_EQ(delegate->events, (Events{"policy other /", "commit /", "alert held"}));
}

}  // namespace
}  // namespace zorva::platform
