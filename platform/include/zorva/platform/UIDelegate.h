#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zorva/platform/Navigation.h"
#include "zorva/platform/WebViewConfiguration.h"

namespace zorva::platform {

class WebView;

/// Answers a page's requests for user interface: new windows and script dialogs. Every call is
/// optional; the defaults open no window and answer dialogs at once as if dismissed (alert
/// acknowledged, confirm false, prompt no text), showing nothing. Main thread.
class UIDelegate {
 public:
  virtual ~UIDelegate() = default;

  /// The page asked for a new window. A returned web view receives the load; null opens none.
  virtual std::shared_ptr<WebView> webViewCreateWebViewWithConfiguration(
      WebView&, const WebViewConfiguration&, const NavigationAction&, const WindowFeatures&) {
    return nullptr;
  }
  /// Each dialog's completion must be called exactly once; the page waits until then.
  virtual void webViewRunJavaScriptAlertPanelWithMessage(WebView&, const std::string&,
                                                         const FrameInfo&,
                                                         std::function<void()> completion) {
    completion();
  }
  virtual void webViewRunJavaScriptConfirmPanelWithMessage(WebView&, const std::string&,
                                                           const FrameInfo&,
                                                           std::function<void(bool)> completion) {
    completion(false);
  }
  virtual void webViewRunJavaScriptTextInputPanelWithPrompt(
      WebView&, const std::string&, const std::optional<std::string>&, const FrameInfo&,
      std::function<void(std::optional<std::string>)> completion) {
    completion(std::nullopt);
  }
};

}  // namespace zorva::platform
