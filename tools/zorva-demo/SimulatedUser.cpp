#include "zorva-demo/SimulatedUser.h"

#include <zorva/platform/Button.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/ProgressView.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>
#include <zorva/platform/URLRequest.h>
#include <zorva/platform/View.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/WebView.h>

#include "zorva-demo/Pointer.h"

namespace zorva::demo {

namespace {

using platform::View;

// How long a real page may take to answer a script.
constexpr std::chrono::seconds kScriptWait{5};

/// The first view of type T in `view`'s tree, depth first, the view itself included.
template <class T>
std::shared_ptr<T> findFirst(const std::shared_ptr<View>& view) {
  if (!view) return nullptr;
  if (auto match = std::dynamic_pointer_cast<T>(view)) return match;
  for (const auto& subview : view->subviews()) {
    if (auto match = findFirst<T>(subview)) return match;
  }
  return nullptr;
}

/// The href of the first <a> in `html`.
std::optional<std::string> firstLinkIn(const std::string& html) {
  for (std::size_t at = 0; (at = html.find("<a", at)) != std::string::npos; ++at) {
    const auto tagEnd = html.find('>', at);
    const auto href = html.find("href=", at);
    if (href == std::string::npos || href > tagEnd) continue;
    const char quote = html[href + 5];
    if (quote != '"' && quote != '\'') continue;
    const auto end = html.find(quote, href + 6);
    if (end == std::string::npos) return std::nullopt;
    return html.substr(href + 6, end - href - 6);
  }
  return std::nullopt;
}

/// What a real page's script ends with, waiting (on the main queue) for the answer a user would
/// see at once; nothing when it fails or takes too long.
std::optional<platform::Value> evaluate(platform::WebView& webView, const std::string& script) {
  auto answer = std::make_shared<std::optional<std::optional<platform::Value>>>();
  webView.evaluateJavaScript(
      script, [answer](std::optional<platform::Value> result, std::optional<platform::Error>) {
        *answer = std::move(result);
      });
  platform::MainQueue::shared().runUntil([&] { return answer->has_value(); }, kScriptWait);
  return answer->has_value() ? answer->value() : std::nullopt;
}

}  // namespace

std::string ClickDestination::describe() const {
  switch (kind) {
    case Kind::StoreSheet: {
      // The product and the attribution's network and campaign; the timeline has the rest.
      std::string text;
      for (const char* key : {"id", "adNetworkIdentifier", "adNetworkCampaignIdentifier"}) {
        if (!parameters.contains(key)) continue;
        const auto& value = parameters[key];
        text += (text.empty() ? "" : ", ") + std::string(key) + " " +
                (value.is_string() ? value.get<std::string>() : value.dump());
      }
      return "store sheet (" + text + ")";
    }
    case Kind::Browser:
      return "in-app browser on " + url;
    case Kind::Other:
      break;
  }
  return "another screen";
}

std::shared_ptr<platform::WebView> SimulatedUser::webViewIn(const std::shared_ptr<View>& view) {
  return findFirst<platform::WebView>(view);
}

std::optional<std::string> SimulatedUser::firstLink(const std::shared_ptr<View>& view) {
  auto webView = webViewIn(view);
  if (!webView) return std::nullopt;
  if (auto engine = platform::HeadlessWebEngine::of(*webView)) {
    return engine->html() ? firstLinkIn(*engine->html()) : std::nullopt;
  }
  // A real page: ask it.
  auto href = evaluate(*webView,
                       "(function(){var a=document.querySelector('a[href]');return "
                       "a?a.getAttribute('href'):null;})()");
  if (!href || !href->is_string()) return std::nullopt;
  return href->get<std::string>();
}

bool SimulatedUser::tapLink(const std::shared_ptr<View>& view, const std::string& url,
                            Pointer* pointer) {
  auto webView = webViewIn(view);
  if (!webView) return false;
  if (auto engine = platform::HeadlessWebEngine::of(*webView)) {
    engine->clickLink(platform::URLRequest(platform::URL::URLWithString(url)));
    return true;
  }
  // The anchors of a real page with that address, in the page's script.
  const std::string anchors =
      "for(const a of document.querySelectorAll('a[href]'))if(a.getAttribute('href')===" +
      platform::Value(url).dump() + ")";
  if (pointer) {
    // On the screen: a click at the middle of the link where the page lays it out.
    auto middle = evaluate(*webView, "(function(){" + anchors +
                                         "{const r=a.getBoundingClientRect();"
                                         "return [r.left+r.width/2,r.top+r.height/2];}"
                                         "return null;})()");
    if (!middle || !middle->is_array() || middle->size() != 2) return false;
    const platform::Point inPage{(*middle)[0].get<double>(), (*middle)[1].get<double>()};
    const auto bounds = webView->bounds();
    if (inPage.x < 0 || inPage.y < 0 || inPage.x >= bounds.size.width ||
        inPage.y >= bounds.size.height) {
      return false;
    }
    return pointer->click(webView->convertPointToWindow(inPage), "the link " + url);
  }
  // A click on the anchor, which the page handles as a tapped link.
  webView->evaluateJavaScript(
      "(function(){" + anchors + "{a.click();return true;}return false;})()",
      [](std::optional<platform::Value>, std::optional<platform::Error>) {});
  return true;
}

bool SimulatedUser::tapContent(const std::shared_ptr<View>& view) {
  if (!view) return false;
  auto deepest = view;
  // The video surface is the first non-control child at each level; the progress bar and the
  // close button sit beside it.
  for (;;) {
    std::shared_ptr<View> next;
    for (const auto& subview : deepest->subviews()) {
      if (!std::dynamic_pointer_cast<platform::Button>(subview) &&
          !std::dynamic_pointer_cast<platform::ProgressView>(subview)) {
        next = subview;
        break;
      }
    }
    if (!next) break;
    deepest = next;
  }
  deepest->touchesEnded();
  return true;
}

bool SimulatedUser::pressButton(const std::shared_ptr<View>& view, const std::string& title,
                                Pointer* pointer) {
  if (!view) return false;
  if (auto button = std::dynamic_pointer_cast<platform::Button>(view)) {
    if (button->titleForState(platform::kControlStateNormal) == title) {
      if (pointer) {
        const auto size = button->bounds().size;
        return pointer->click(button->convertPointToWindow({size.width / 2, size.height / 2}),
                              "the button " + title);
      }
      button->sendActionsForControlEvents(platform::kControlEventTouchUpInside);
      return true;
    }
  }
  for (const auto& subview : view->subviews()) {
    if (pressButton(subview, title, pointer)) return true;
  }
  return false;
}

std::shared_ptr<platform::ViewController> SimulatedUser::topPresented(
    const std::shared_ptr<platform::ViewController>& root) {
  std::shared_ptr<platform::ViewController> top;
  for (auto next = root ? root->presentedViewController() : nullptr; next;
       next = next->presentedViewController()) {
    top = next;
  }
  return top;
}

std::optional<ClickDestination> SimulatedUser::destinationOnTop(
    const std::shared_ptr<platform::ViewController>& root) {
  auto top = topPresented(root);
  if (auto store = std::dynamic_pointer_cast<platform::StoreProductViewController>(top)) {
    return ClickDestination{ClickDestination::Kind::StoreSheet,
                            store->productParameters().value_or(platform::Value::object()), ""};
  }
  if (auto browser = std::dynamic_pointer_cast<platform::SafariViewController>(top)) {
    return ClickDestination{ClickDestination::Kind::Browser, nullptr,
                            browser->url().absoluteString()};
  }
  return std::nullopt;
}

bool SimulatedUser::closeSheetOnTop(const std::shared_ptr<platform::ViewController>& root,
                                    Pointer* pointer) {
  auto top = topPresented(root);
  if (auto store = std::dynamic_pointer_cast<platform::StoreProductViewController>(top)) {
    // The store answers the product load before anyone can close the page.
    if (store->isLoading()) store->finishLoading(true);
    if (pointer) return pointer->clickButton("Close");
    store->finish();
    return true;
  }
  if (auto browser = std::dynamic_pointer_cast<platform::SafariViewController>(top)) {
    if (pointer) return pointer->clickButton("Done");
    browser->finish();
    return true;
  }
  return false;
}

std::optional<float> SimulatedUser::progressShown(const std::shared_ptr<View>& view) {
  auto bar = findFirst<platform::ProgressView>(view);
  if (!bar) return std::nullopt;
  return bar->progress();
}

}  // namespace zorva::demo
