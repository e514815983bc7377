#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zorva/platform/Error.h"
#include "zorva/platform/Navigation.h"
#include "zorva/platform/URL.h"
#include "zorva/platform/Value.h"
#include "zorva/platform/WebViewConfiguration.h"

namespace zorva::platform {

class WebView;

/// (result, error) of a script: a result, an error, or — for a script whose value is undefined —
/// neither.
using JavaScriptCompletion =
    std::function<void(std::optional<Value> result, std::optional<Error> error)>;

/// What a web engine reports to the web view it renders for (the web view turns these into
/// delegate calls). Main thread only.
class WebEngineClient {
 public:
  virtual ~WebEngineClient() = default;
  virtual std::shared_ptr<WebView> clientWebView() = 0;
  virtual void decidePolicyForNavigationAction(
      const NavigationAction& action, std::function<void(NavigationActionPolicy)> handler) = 0;
  virtual void didCommitNavigation(const std::shared_ptr<Navigation>& navigation) = 0;
  virtual void didFinishNavigation(const std::shared_ptr<Navigation>& navigation) = 0;
  virtual void didFailNavigation(const std::shared_ptr<Navigation>& navigation,
                                 const Error& error) = 0;
  virtual void didFailProvisionalNavigation(const std::shared_ptr<Navigation>& navigation,
                                            const Error& error) = 0;
  virtual std::shared_ptr<WebView> createWebView(const NavigationAction& action) = 0;
  virtual void runJavaScriptAlertPanel(const std::string& message,
                                       std::function<void()> completion) = 0;
  virtual void runJavaScriptConfirmPanel(const std::string& message,
                                         std::function<void(bool)> completion) = 0;
  virtual void runJavaScriptTextInputPanel(
      const std::string& prompt, const std::optional<std::string>& defaultText,
      std::function<void(std::optional<std::string>)> completion) = 0;
};

/// Renders web content for one web view. The headless engine is the default; a host picks
/// another (a WebKitGTK engine) at start-up with `setFactory`. Main thread only.
class WebEngine {
 public:
  using Factory = std::function<std::shared_ptr<WebEngine>(
      std::weak_ptr<WebEngineClient> client, const WebViewConfiguration& configuration)>;

  virtual ~WebEngine() = default;

  /// Starts loading `html` as a page at `baseURL` (about:blank when absent) as `navigation`.
  virtual void loadHTMLString(const std::shared_ptr<Navigation>& navigation,
                              const std::string& html, const std::optional<URL>& baseURL) = 0;
  virtual void loadRequest(const std::shared_ptr<Navigation>& navigation) = 0;
  /// Runs `script` in the page; `completion` runs on a later main-queue turn.
  virtual void evaluateJavaScript(const std::string& script, JavaScriptCompletion completion) = 0;
  /// What the page sees as `navigator.userAgent`.
  virtual std::string userAgent() const = 0;

  /// Installs the factory of every later web view's engine (empty: the headless engine).
  static void setFactory(Factory factory);
  static std::shared_ptr<WebEngine> make(std::weak_ptr<WebEngineClient> client,
                                         const WebViewConfiguration& configuration);
};

}  // namespace zorva::platform
