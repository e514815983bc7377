#include "zorva/platform/WebView.h"

namespace zorva::platform {

std::shared_ptr<WebView> WebView::create(const Rect& frame,
                                         const WebViewConfiguration& configuration) {
  auto view = std::shared_ptr<WebView>(new WebView(frame, configuration));
  view->addSubview(view->scrollView_);
  // The engine sees the view only as its client, and only weakly: the view owns the engine.
  std::shared_ptr<WebEngineClient> client(view, static_cast<WebEngineClient*>(view.get()));
  view->engine_ = WebEngine::make(client, view->configuration_);
  return view;
}

WebView::WebView(const Rect& frame, const WebViewConfiguration& configuration)
    : View(frame),
      configuration_(configuration),
      scrollView_(ScrollView::create(Rect(0, 0, frame.size.width, frame.size.height))) {}

std::shared_ptr<Navigation> WebView::loadHTMLString(const std::string& html,
                                                    const std::optional<URL>& baseURL) {
  auto navigation =
      Navigation::create(URLRequest(baseURL ? baseURL : URL::URLWithString("about:blank")));
  engine_->loadHTMLString(navigation, html, baseURL);
  return navigation;
}

std::shared_ptr<Navigation> WebView::loadRequest(const URLRequest& request) {
  auto navigation = Navigation::create(request);
  engine_->loadRequest(navigation);
  return navigation;
}

void WebView::evaluateJavaScript(const std::string& script, JavaScriptCompletion completion) {
  engine_->evaluateJavaScript(script, std::move(completion));
}

std::shared_ptr<WebView> WebView::clientWebView() {
  return std::static_pointer_cast<WebView>(shared_from_this());
}

void WebView::decidePolicyForNavigationAction(const NavigationAction& action,
                                              std::function<void(NavigationActionPolicy)> handler) {
  auto keep = shared_from_this();
  if (auto delegate = navigationDelegate()) {
    delegate->webViewDecidePolicyForNavigationAction(*this, action, std::move(handler));
  } else {
    handler(NavigationActionPolicy::Allow);
  }
}

void WebView::didCommitNavigation(const std::shared_ptr<Navigation>& navigation) {
  auto keep = shared_from_this();
  if (auto delegate = navigationDelegate()) delegate->webViewDidCommitNavigation(*this, navigation);
}

void WebView::didFinishNavigation(const std::shared_ptr<Navigation>& navigation) {
  auto keep = shared_from_this();
  if (auto delegate = navigationDelegate()) delegate->webViewDidFinishNavigation(*this, navigation);
}

void WebView::didFailNavigation(const std::shared_ptr<Navigation>& navigation, const Error& error) {
  auto keep = shared_from_this();
  if (auto delegate = navigationDelegate()) {
    delegate->webViewDidFailNavigation(*this, navigation, error);
  }
}

void WebView::didFailProvisionalNavigation(const std::shared_ptr<Navigation>& navigation,
                                           const Error& error) {
  auto keep = shared_from_this();
  if (auto delegate = navigationDelegate()) {
    delegate->webViewDidFailProvisionalNavigation(*this, navigation, error);
  }
}

std::shared_ptr<WebView> WebView::createWebView(const NavigationAction& action) {
  auto keep = shared_from_this();
  auto delegate = uiDelegate();
  if (!delegate) return nullptr;
  return delegate->webViewCreateWebViewWithConfiguration(*this, configuration_, action,
                                                         WindowFeatures{});
}

void WebView::runJavaScriptAlertPanel(const std::string& message,
                                      std::function<void()> completion) {
  auto keep = shared_from_this();
  if (auto delegate = uiDelegate()) {
    delegate->webViewRunJavaScriptAlertPanelWithMessage(*this, message, FrameInfo{},
                                                        std::move(completion));
  } else {
    completion();
  }
}

void WebView::runJavaScriptConfirmPanel(const std::string& message,
                                        std::function<void(bool)> completion) {
  auto keep = shared_from_this();
  if (auto delegate = uiDelegate()) {
    delegate->webViewRunJavaScriptConfirmPanelWithMessage(*this, message, FrameInfo{},
                                                          std::move(completion));
  } else {
    completion(false);
  }
}

void WebView::runJavaScriptTextInputPanel(
    const std::string& prompt, const std::optional<std::string>& defaultText,
    std::function<void(std::optional<std::string>)> completion) {
  auto keep = shared_from_this();
  if (auto delegate = uiDelegate()) {
    delegate->webViewRunJavaScriptTextInputPanelWithPrompt(*this, prompt, defaultText, FrameInfo{},
                                                           std::move(completion));
  } else {
    completion(std::nullopt);
  }
}

}  // namespace zorva::platform
