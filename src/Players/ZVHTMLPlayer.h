#pragma once

#include <memory>
#include <string>

#include <zorva/platform/Geometry.h>
#include <zorva/platform/NavigationDelegate.h>
#include <zorva/platform/ScrollView.h>
#include <zorva/platform/UIDelegate.h>
#include <zorva/platform/WebView.h>

#include "Players/ZVHTMLPlayerDelegate.h"

namespace zorva {

/// One web view showing a display creative: markup wrapped in the ad page, or a page loaded from
/// the creative when it is a web address. It answers the page's navigation questions through its
/// delegate, never lets the page raise a dialog or open a window of its own, and reports when
/// the page has loaded or failed. A page that fails before it commits is not reported.
///
/// Reports, on the main thread: `htmlPlayerShouldLoadRequest` for every navigation (the initial
/// load too), then `htmlPlayerDidPlayAd` or `htmlPlayerDidFailToPlayWithError` per committed
/// load. Without a delegate every navigation is cancelled. Main thread only.
class ZVHTMLPlayer : public std::enable_shared_from_this<ZVHTMLPlayer>,
                     public platform::NavigationDelegate,
                     public platform::UIDelegate,
                     public platform::ScrollViewDelegate {
 public:
  /// The ad page around a markup creative; the three "%@" take, in order, a script (empty), extra
  /// head content (empty) and the creative.
  static constexpr const char* kPageTemplate =
      "<html><head><script>%@</script><meta name=\"viewport\" "
      "content=\"initial-scale=1.0\"/><style>*:not(input){-webkit-touch-callout:none;"
      "-webkit-text-size-adjust:none;}body{margin:0;padding:0;}</style>%@</head><body><div "
      "align=\"center\">%@</div></body></html>";

  static std::shared_ptr<ZVHTMLPlayer> create(const platform::Rect& frame, std::string creative);

  /// Loads the creative: a request when it starts with "http" (case-sensitive, so "https" too),
  /// else the ad page at the creative base URL.
  void play();
  /// The web view. (Spelt so; callers use this name.)
  std::shared_ptr<platform::WebView> contenView() const { return webView_; }

  /// False from `play` until the first finished or failed load: until then a navigation of type
  /// "other" is the creative loading, afterwards it is the page acting on its own.
  bool loadingFinished() const { return loadingFinished_; }
  std::shared_ptr<ZVHTMLPlayerDelegate> delegate() const { return delegate_.lock(); }
  /// Held weakly.
  void setDelegate(std::weak_ptr<ZVHTMLPlayerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  const std::shared_ptr<platform::WebView>& webView() const { return webView_; }
  const std::string& creative() const { return creative_; }

  /// The fixed address markup creatives are loaded at (a build setting; nothing if it is not a
  /// valid URL, and the page then loads at about:blank).
  static std::optional<platform::URL> creativeBaseURL();
  /// The ad page for `creative`.
  static std::string pageForCreative(const std::string& creative);

  // Navigation.
  void webViewDecidePolicyForNavigationAction(
      platform::WebView& webView, const platform::NavigationAction& navigationAction,
      std::function<void(platform::NavigationActionPolicy)> decisionHandler) override;
  void webViewDidCommitNavigation(platform::WebView& webView,
                                  const std::shared_ptr<platform::Navigation>& navigation) override;
  void webViewDidFinishNavigation(platform::WebView& webView,
                                  const std::shared_ptr<platform::Navigation>& navigation) override;
  void webViewDidFailNavigation(platform::WebView& webView,
                                const std::shared_ptr<platform::Navigation>& navigation,
                                const Error& error) override;
  void webViewDidFailProvisionalNavigation(platform::WebView& webView,
                                           const std::shared_ptr<platform::Navigation>& navigation,
                                           const Error& error) override;

  // Windows and dialogs.
  std::shared_ptr<platform::WebView> webViewCreateWebViewWithConfiguration(
      platform::WebView& webView, const platform::WebViewConfiguration& configuration,
      const platform::NavigationAction& navigationAction,
      const platform::WindowFeatures& windowFeatures) override;
  void webViewRunJavaScriptAlertPanelWithMessage(platform::WebView& webView,
                                                 const std::string& message,
                                                 const platform::FrameInfo& frame,
                                                 std::function<void()> completion) override;
  void webViewRunJavaScriptConfirmPanelWithMessage(platform::WebView& webView,
                                                   const std::string& message,
                                                   const platform::FrameInfo& frame,
                                                   std::function<void(bool)> completion) override;
  void webViewRunJavaScriptTextInputPanelWithPrompt(
      platform::WebView& webView, const std::string& prompt,
      const std::optional<std::string>& defaultText, const platform::FrameInfo& frame,
      std::function<void(std::optional<std::string>)> completion) override;

 private:
  ZVHTMLPlayer(const platform::Rect& frame, std::string creative);

  bool loadingFinished_ = false;
  std::weak_ptr<ZVHTMLPlayerDelegate> delegate_;
  std::shared_ptr<platform::WebView> webView_;
  std::string creative_;
};

}  // namespace zorva
