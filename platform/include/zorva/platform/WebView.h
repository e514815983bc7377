#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zorva/platform/NavigationDelegate.h"
#include "zorva/platform/ScrollView.h"
#include "zorva/platform/UIDelegate.h"
#include "zorva/platform/View.h"
#include "zorva/platform/WebEngine.h"

namespace zorva::platform {

/// A view showing web content, rendered by a `WebEngine` (see `WebEngine::setFactory`). Loads
/// report to the navigation delegate, page requests for windows and dialogs go to the UI
/// delegate; both are held weakly. Every report arrives on the main thread. Main thread only.
class WebView : public View, private WebEngineClient {
 public:
  static std::shared_ptr<WebView> create(const Rect& frame,
                                         const WebViewConfiguration& configuration);

  const WebViewConfiguration& configuration() const { return configuration_; }
  /// The scroll view that holds the page, a subview filling the web view.
  const std::shared_ptr<ScrollView>& scrollView() const { return scrollView_; }

  std::shared_ptr<NavigationDelegate> navigationDelegate() const {
    return navigationDelegate_.lock();
  }
  void setNavigationDelegate(std::weak_ptr<NavigationDelegate> delegate) {
    navigationDelegate_ = std::move(delegate);
  }
  std::shared_ptr<platform::UIDelegate> uiDelegate() const { return uiDelegate_.lock(); }
  void setUIDelegate(std::weak_ptr<platform::UIDelegate> delegate) {
    uiDelegate_ = std::move(delegate);
  }

  /// Loads `html` as a page whose address is `baseURL`. The navigation policy is asked on a
  /// later main-queue turn.
  std::shared_ptr<Navigation> loadHTMLString(const std::string& html,
                                             const std::optional<URL>& baseURL);
  std::shared_ptr<Navigation> loadRequest(const URLRequest& request);
  /// Runs `script` in the page; `completion` runs on a later main-queue turn.
  void evaluateJavaScript(const std::string& script, JavaScriptCompletion completion);

  const std::shared_ptr<WebEngine>& engine() const { return engine_; }

 private:
  WebView(const Rect& frame, const WebViewConfiguration& configuration);

  std::shared_ptr<WebView> clientWebView() override;
  void decidePolicyForNavigationAction(
      const NavigationAction& action, std::function<void(NavigationActionPolicy)> handler) override;
  void didCommitNavigation(const std::shared_ptr<Navigation>& navigation) override;
  void didFinishNavigation(const std::shared_ptr<Navigation>& navigation) override;
  void didFailNavigation(const std::shared_ptr<Navigation>& navigation,
                         const Error& error) override;
  void didFailProvisionalNavigation(const std::shared_ptr<Navigation>& navigation,
                                    const Error& error) override;
  std::shared_ptr<WebView> createWebView(const NavigationAction& action) override;
  void runJavaScriptAlertPanel(const std::string& message,
                               std::function<void()> completion) override;
  void runJavaScriptConfirmPanel(const std::string& message,
                                 std::function<void(bool)> completion) override;
  void runJavaScriptTextInputPanel(
      const std::string& prompt, const std::optional<std::string>& defaultText,
      std::function<void(std::optional<std::string>)> completion) override;

  WebViewConfiguration configuration_;
  std::shared_ptr<ScrollView> scrollView_;
  std::weak_ptr<NavigationDelegate> navigationDelegate_;
  std::weak_ptr<platform::UIDelegate> uiDelegate_;
  std::shared_ptr<WebEngine> engine_;
};

}  // namespace zorva::platform
