#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zorva/platform/WebEngine.h"

namespace zorva::platform {

/// The web engine of a machine without one: it keeps what it was asked to load and reports loads
/// the way a browser engine does, runs no page script of its own, and answers only the
/// `navigator.userAgent` script. Hosts and tests drive what a page would do: finish or fail the
/// pending load, click a link, navigate by script, open a window, raise a dialog.
///
/// Automatic mode (the default, see `setAutomaticByDefault`): a load whose policy allows it
/// finishes on the next main-queue turn, and scripts are answered on the next turn; so a host
/// without a real engine still sees ads load. Out of automatic mode, loads stay pending and
/// scripts unanswered until driven by hand. Main thread only.
class HeadlessWebEngine : public WebEngine, public std::enable_shared_from_this<HeadlessWebEngine> {
 public:
  /// Error domain of the engine's own failures.
  static constexpr const char* kErrorDomain = "HeadlessWebEngine";
  /// Code of a script the engine cannot run (the code of a script exception).
  static constexpr std::int64_t kScriptExceptionCode = 4;
  /// Domain and code with which a pending load is cancelled when a newer one starts.
  static constexpr const char* kCancelledDomain = "NSURLErrorDomain";
  static constexpr std::int64_t kCancelledCode = -999;

  static std::shared_ptr<HeadlessWebEngine> create(std::weak_ptr<WebEngineClient> client);

  void loadHTMLString(const std::shared_ptr<Navigation>& navigation, const std::string& html,
                      const std::optional<URL>& baseURL) override;
  void loadRequest(const std::shared_ptr<Navigation>& navigation) override;
  void evaluateJavaScript(const std::string& script, JavaScriptCompletion completion) override;
  /// A mobile Safari user agent for the current device's model and system version.
  std::string userAgent() const override;

  // --- driving (hosts and tests) ---

  /// Whether engines made from now on start in automatic mode. Thread-safe.
  static void setAutomaticByDefault(bool automatic);
  static bool automaticByDefault();
  bool isAutomatic() const { return automatic_; }
  void setAutomatic(bool automatic) { automatic_ = automatic; }

  /// Engines whose web view is alive, oldest first.
  static std::vector<std::shared_ptr<HeadlessWebEngine>> liveEngines();
  /// The engine of `webView` when it is a headless one.
  static std::shared_ptr<HeadlessWebEngine> of(const WebView& webView);
  std::shared_ptr<WebView> webView() const;

  /// The page content of the latest load the policy allowed: markup and base URL for a string
  /// load, nothing for a request load.
  const std::optional<std::string>& html() const { return html_; }
  const std::optional<URL>& baseURL() const { return baseURL_; }
  /// The request of the latest allowed load.
  const std::optional<URLRequest>& request() const { return request_; }

  /// The load allowed and not yet finished or failed, or null.
  const std::shared_ptr<Navigation>& provisionalNavigation() const { return provisional_; }
  /// Commits and finishes the pending load. False when none is pending.
  bool finishNavigation();
  /// Commits the pending load, then fails it with `error`.
  bool failNavigation(const Error& error);
  /// Fails the pending load before it commits.
  bool failProvisionalNavigation(const Error& error);

  /// The page navigates its main frame (a tapped link, script, a form...): the policy is asked
  /// and an allowed navigation becomes the pending load. The decision, when given at once.
  std::optional<NavigationActionPolicy> navigate(const URLRequest& request, NavigationType type);
  std::optional<NavigationActionPolicy> clickLink(const URLRequest& request) {
    return navigate(request, NavigationType::LinkActivated);
  }
  /// The page asks for a new window (a target="_blank" link, window.open): the policy is asked
  /// with no target frame and, when allowed, the UI delegate's create-web-view, whose web view
  /// then loads the request. The decision, when given at once.
  std::optional<NavigationActionPolicy> openNewWindow(const URLRequest& request,
                                                      NavigationType type);

  /// The page raises a dialog. Each answers whether (and with what) the dialog was closed before
  /// the UI delegate returned: nothing while it is still open.
  bool runJavaScriptAlert(const std::string& message);
  std::optional<bool> runJavaScriptConfirm(const std::string& message);
  std::optional<std::optional<std::string>> runJavaScriptPrompt(
      const std::string& prompt, const std::optional<std::string>& defaultText);

  /// Scripts not yet answered, oldest first.
  std::vector<std::string> pendingScripts() const;
  /// Ends the oldest pending script with `result` and `error` (both may be absent). False when
  /// none is pending.
  bool completeScript(std::optional<Value> result, std::optional<Error> error);

 private:
  struct PendingScript {
    std::string script;
    JavaScriptCompletion completion;
  };

  explicit HeadlessWebEngine(std::weak_ptr<WebEngineClient> client);
  std::shared_ptr<WebEngineClient> client() const { return client_.lock(); }
  void startLoad(const std::shared_ptr<Navigation>& navigation, std::optional<std::string> html,
                 std::optional<URL> baseURL);
  void beginProvisional(const std::shared_ptr<Navigation>& navigation,
                        std::optional<std::string> html, std::optional<URL> baseURL);
  void answerOldestScript();

  std::weak_ptr<WebEngineClient> client_;
  bool automatic_;
  std::optional<std::string> html_;
  std::optional<URL> baseURL_;
  std::optional<URLRequest> request_;
  std::shared_ptr<Navigation> provisional_;
  std::deque<PendingScript> scripts_;
};

}  // namespace zorva::platform
