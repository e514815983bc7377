#pragma once

#include <functional>
#include <memory>

#include "zorva/platform/Error.h"
#include "zorva/platform/Navigation.h"

namespace zorva::platform {

class WebView;

/// Hears how a web view's loads go and decides which may happen. Every report is optional: the
/// defaults allow every navigation and ignore the rest. Calls arrive on the main thread, in the
/// order policy → (provisional failure | commit → finish or failure).
class NavigationDelegate {
 public:
  virtual ~NavigationDelegate() = default;

  /// Must call `decisionHandler` exactly once, now or later.
  virtual void webViewDecidePolicyForNavigationAction(
      WebView& webView, const NavigationAction& navigationAction,
      std::function<void(NavigationActionPolicy)> decisionHandler) {
    (void)webView;
    (void)navigationAction;
    decisionHandler(NavigationActionPolicy::Allow);
  }
  virtual void webViewDidCommitNavigation(WebView&, const std::shared_ptr<Navigation>&) {}
  virtual void webViewDidFinishNavigation(WebView&, const std::shared_ptr<Navigation>&) {}
  /// A load failed after its content began to arrive.
  virtual void webViewDidFailNavigation(WebView&, const std::shared_ptr<Navigation>&,
                                        const Error&) {}
  /// A load failed before any content arrived (bad address, no network, superseded).
  virtual void webViewDidFailProvisionalNavigation(WebView&, const std::shared_ptr<Navigation>&,
                                                   const Error&) {}
};

}  // namespace zorva::platform
