#include "Players/ZVHTMLPlayer.h"

#include <string_view>

#include "Common/ZVViewUtils.h"

namespace zorva {

using platform::NavigationActionPolicy;

std::shared_ptr<ZVHTMLPlayer> ZVHTMLPlayer::create(const platform::Rect& frame,
                                                   std::string creative) {
  auto player = std::shared_ptr<ZVHTMLPlayer>(new ZVHTMLPlayer(frame, std::move(creative)));
  player->webView_->setNavigationDelegate(std::weak_ptr<platform::NavigationDelegate>(player));
  player->webView_->setUIDelegate(std::weak_ptr<platform::UIDelegate>(player));
  // No scroll report is handled; taking the slot keeps any other listener off the ad's page.
  player->webView_->scrollView()->setDelegate(std::weak_ptr<platform::ScrollViewDelegate>(player));
  return player;
}

ZVHTMLPlayer::ZVHTMLPlayer(const platform::Rect& frame, std::string creative)
    : webView_(ZVViewUtils::webViewWithFrame(frame)), creative_(std::move(creative)) {}

std::optional<platform::URL> ZVHTMLPlayer::creativeBaseURL() {
  return platform::URL::URLWithString(ZORVA_CREATIVE_BASE_URL);
}

std::string ZVHTMLPlayer::pageForCreative(const std::string& creative) {
  const std::string_view fills[] = {"", "", creative};
  std::string_view rest = kPageTemplate;
  std::string page;
  for (std::string_view fill : fills) {
    auto marker = rest.find("%@");
    page.append(rest.substr(0, marker));
    page.append(fill);
    rest.remove_prefix(marker + 2);
  }
  page.append(rest);
  return page;
}

void ZVHTMLPlayer::play() {
  loadingFinished_ = false;
  if (creative_.starts_with("http")) {
    webView_->loadRequest(platform::URLRequest(platform::URL::URLWithString(creative_)));
  } else {
    webView_->loadHTMLString(pageForCreative(creative_), creativeBaseURL());
  }
}

void ZVHTMLPlayer::webViewDecidePolicyForNavigationAction(
    platform::WebView&, const platform::NavigationAction& navigationAction,
    std::function<void(NavigationActionPolicy)> decisionHandler) {
  auto delegate = this->delegate();
  const bool allow = delegate && delegate->htmlPlayerShouldLoadRequest(
                                     navigationAction.request, navigationAction.navigationType);
  decisionHandler(allow ? NavigationActionPolicy::Allow : NavigationActionPolicy::Cancel);
}

void ZVHTMLPlayer::webViewDidCommitNavigation(platform::WebView&,
                                              const std::shared_ptr<platform::Navigation>&) {}

void ZVHTMLPlayer::webViewDidFinishNavigation(platform::WebView&,
                                              const std::shared_ptr<platform::Navigation>&) {
  loadingFinished_ = true;
  if (auto delegate = this->delegate()) delegate->htmlPlayerDidPlayAd();
}

void ZVHTMLPlayer::webViewDidFailNavigation(platform::WebView&,
                                            const std::shared_ptr<platform::Navigation>&,
                                            const Error& error) {
  loadingFinished_ = true;
  if (auto delegate = this->delegate()) delegate->htmlPlayerDidFailToPlayWithError(error);
}

void ZVHTMLPlayer::webViewDidFailProvisionalNavigation(platform::WebView&,
                                                       const std::shared_ptr<platform::Navigation>&,
                                                       const Error&) {
  // A page that never committed is not reported: any time-out is the ad object's concern.
}

std::shared_ptr<platform::WebView> ZVHTMLPlayer::webViewCreateWebViewWithConfiguration(
    platform::WebView& webView, const platform::WebViewConfiguration&,
    const platform::NavigationAction& navigationAction, const platform::WindowFeatures&) {
  // A new window opens in the ad's own view, where it meets the navigation policy again.
  if (!navigationAction.targetFrame || !navigationAction.targetFrame->mainFrame) {
    webView.loadRequest(navigationAction.request);
  }
  return nullptr;
}

void ZVHTMLPlayer::webViewRunJavaScriptAlertPanelWithMessage(platform::WebView&, const std::string&,
                                                             const platform::FrameInfo&,
                                                             std::function<void()> completion) {
  completion();
}

void ZVHTMLPlayer::webViewRunJavaScriptConfirmPanelWithMessage(
    platform::WebView&, const std::string&, const platform::FrameInfo&,
    std::function<void(bool)> completion) {
  completion(false);
}

void ZVHTMLPlayer::webViewRunJavaScriptTextInputPanelWithPrompt(
    platform::WebView&, const std::string&, const std::optional<std::string>&,
    const platform::FrameInfo&, std::function<void(std::optional<std::string>)> completion) {
  completion(std::nullopt);
}

}  // namespace zorva
