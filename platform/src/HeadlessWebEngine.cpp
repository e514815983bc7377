#include "zorva/platform/HeadlessWebEngine.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "zorva/platform/Device.h"
#include "zorva/platform/MainQueue.h"
#include "zorva/platform/WebView.h"

namespace zorva::platform {

namespace {
std::atomic<bool> automaticDefault{true};
std::mutex registryMutex;
std::vector<std::weak_ptr<HeadlessWebEngine>> registry;
}  // namespace

std::shared_ptr<HeadlessWebEngine> HeadlessWebEngine::create(
    std::weak_ptr<WebEngineClient> client) {
  auto engine = std::shared_ptr<HeadlessWebEngine>(new HeadlessWebEngine(std::move(client)));
  std::lock_guard lock(registryMutex);
  std::erase_if(registry, [](const auto& weak) { return weak.expired(); });
  registry.push_back(engine);
  return engine;
}

HeadlessWebEngine::HeadlessWebEngine(std::weak_ptr<WebEngineClient> client)
    : client_(std::move(client)), automatic_(automaticDefault.load()) {}

void HeadlessWebEngine::setAutomaticByDefault(bool automatic) { automaticDefault = automatic; }

bool HeadlessWebEngine::automaticByDefault() { return automaticDefault; }

std::vector<std::shared_ptr<HeadlessWebEngine>> HeadlessWebEngine::liveEngines() {
  std::vector<std::shared_ptr<HeadlessWebEngine>> engines;
  {
    std::lock_guard lock(registryMutex);
    for (const auto& weak : registry) {
      if (auto engine = weak.lock()) engines.push_back(std::move(engine));
    }
  }
  std::erase_if(engines, [](const auto& engine) { return !engine->webView(); });
  return engines;
}

std::shared_ptr<HeadlessWebEngine> HeadlessWebEngine::of(const WebView& webView) {
  return std::dynamic_pointer_cast<HeadlessWebEngine>(webView.engine());
}

std::shared_ptr<WebView> HeadlessWebEngine::webView() const {
  auto c = client();
  return c ? c->clientWebView() : nullptr;
}

std::string HeadlessWebEngine::userAgent() const {
  auto& device = Device::currentDevice();
  std::string version = device.systemVersion();
  std::replace(version.begin(), version.end(), '.', '_');
  const bool pad = device.userInterfaceIdiom() == UserInterfaceIdiom::Pad;
  return "Mozilla/5.0 (" + device.model() + "; CPU " + (pad ? "OS " : "iPhone OS ") + version +
         " like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) Mobile/15E148";
}

void HeadlessWebEngine::loadHTMLString(const std::shared_ptr<Navigation>& navigation,
                                       const std::string& html, const std::optional<URL>& baseURL) {
  startLoad(navigation, html, baseURL);
}

void HeadlessWebEngine::loadRequest(const std::shared_ptr<Navigation>& navigation) {
  startLoad(navigation, std::nullopt, std::nullopt);
}

void HeadlessWebEngine::startLoad(const std::shared_ptr<Navigation>& navigation,
                                  std::optional<std::string> html, std::optional<URL> baseURL) {
  // The policy is asked on a later turn, never inside the caller's load call.
  MainQueue::shared().post([weak = weak_from_this(), navigation, html = std::move(html),
                            baseURL = std::move(baseURL)]() mutable {
    auto self = weak.lock();
    auto c = self ? self->client() : nullptr;
    if (!c) return;
    NavigationAction action{navigation->request(), NavigationType::Other, FrameInfo{true}};
    c->decidePolicyForNavigationAction(
        action, [weak, navigation, html = std::move(html),
                 baseURL = std::move(baseURL)](NavigationActionPolicy policy) mutable {
          auto self = weak.lock();
          if (self && policy == NavigationActionPolicy::Allow) {
            self->beginProvisional(navigation, std::move(html), std::move(baseURL));
          }
        });
  });
}

void HeadlessWebEngine::beginProvisional(const std::shared_ptr<Navigation>& navigation,
                                         std::optional<std::string> html,
                                         std::optional<URL> baseURL) {
  auto keep = shared_from_this();
  if (auto superseded = std::exchange(provisional_, navigation)) {
    if (auto c = client()) {
      c->didFailProvisionalNavigation(
          superseded, Error::withDescription(kCancelledDomain, kCancelledCode, "cancelled"));
    }
  }
  html_ = std::move(html);
  baseURL_ = std::move(baseURL);
  request_ = navigation->request();
  if (!automatic_) return;
  MainQueue::shared().post([weak = weak_from_this(), navigation] {
    auto self = weak.lock();
    if (self && self->automatic_ && self->provisional_ == navigation) self->finishNavigation();
  });
}

bool HeadlessWebEngine::finishNavigation() {
  auto keep = shared_from_this();
  auto navigation = std::exchange(provisional_, nullptr);
  auto c = client();
  if (!navigation || !c) return false;
  c->didCommitNavigation(navigation);
  c->didFinishNavigation(navigation);
  return true;
}

bool HeadlessWebEngine::failNavigation(const Error& error) {
  auto keep = shared_from_this();
  auto navigation = std::exchange(provisional_, nullptr);
  auto c = client();
  if (!navigation || !c) return false;
  c->didCommitNavigation(navigation);
  c->didFailNavigation(navigation, error);
  return true;
}

bool HeadlessWebEngine::failProvisionalNavigation(const Error& error) {
  auto keep = shared_from_this();
  auto navigation = std::exchange(provisional_, nullptr);
  auto c = client();
  if (!navigation || !c) return false;
  c->didFailProvisionalNavigation(navigation, error);
  return true;
}

std::optional<NavigationActionPolicy> HeadlessWebEngine::navigate(const URLRequest& request,
                                                                  NavigationType type) {
  auto keep = shared_from_this();
  auto c = client();
  if (!c) return std::nullopt;
  auto decision = std::make_shared<std::optional<NavigationActionPolicy>>();
  auto navigation = Navigation::create(request);
  c->decidePolicyForNavigationAction(
      NavigationAction{request, type, FrameInfo{true}},
      [weak = weak_from_this(), navigation, decision](NavigationActionPolicy policy) {
        *decision = policy;
        auto self = weak.lock();
        if (self && policy == NavigationActionPolicy::Allow) {
          self->beginProvisional(navigation, std::nullopt, std::nullopt);
        }
      });
  return *decision;
}

std::optional<NavigationActionPolicy> HeadlessWebEngine::openNewWindow(const URLRequest& request,
                                                                       NavigationType type) {
  auto keep = shared_from_this();
  auto c = client();
  if (!c) return std::nullopt;
  auto decision = std::make_shared<std::optional<NavigationActionPolicy>>();
  NavigationAction action{request, type, std::nullopt};
  c->decidePolicyForNavigationAction(
      action, [weak = weak_from_this(), action, decision](NavigationActionPolicy policy) {
        *decision = policy;
        auto self = weak.lock();
        auto c = self ? self->client() : nullptr;
        if (!c || policy != NavigationActionPolicy::Allow) return;
        if (auto opened = c->createWebView(action)) opened->loadRequest(action.request);
      });
  return *decision;
}

bool HeadlessWebEngine::runJavaScriptAlert(const std::string& message) {
  auto c = client();
  if (!c) return false;
  auto closed = std::make_shared<bool>(false);
  c->runJavaScriptAlertPanel(message, [closed] { *closed = true; });
  return *closed;
}

std::optional<bool> HeadlessWebEngine::runJavaScriptConfirm(const std::string& message) {
  auto c = client();
  if (!c) return std::nullopt;
  auto answer = std::make_shared<std::optional<bool>>();
  c->runJavaScriptConfirmPanel(message, [answer](bool ok) { *answer = ok; });
  return *answer;
}

std::optional<std::optional<std::string>> HeadlessWebEngine::runJavaScriptPrompt(
    const std::string& prompt, const std::optional<std::string>& defaultText) {
  auto c = client();
  if (!c) return std::nullopt;
  auto answer = std::make_shared<std::optional<std::optional<std::string>>>();
  c->runJavaScriptTextInputPanel(prompt, defaultText,
                                 [answer](std::optional<std::string> text) { *answer = text; });
  return *answer;
}

void HeadlessWebEngine::evaluateJavaScript(const std::string& script,
                                           JavaScriptCompletion completion) {
  scripts_.push_back(PendingScript{script, std::move(completion)});
  if (!automatic_) return;
  MainQueue::shared().post([weak = weak_from_this()] {
    auto self = weak.lock();
    if (self && self->automatic_) self->answerOldestScript();
  });
}

void HeadlessWebEngine::answerOldestScript() {
  if (scripts_.empty()) return;
  if (scripts_.front().script == "navigator.userAgent") {
    completeScript(Value(userAgent()), std::nullopt);
  } else {
    completeScript(std::nullopt,
                   Error::withDescription(kErrorDomain, kScriptExceptionCode,
                                          "The headless engine runs no page scripts"));
  }
}

std::vector<std::string> HeadlessWebEngine::pendingScripts() const {
  std::vector<std::string> scripts;
  for (const auto& pending : scripts_) scripts.push_back(pending.script);
  return scripts;
}

bool HeadlessWebEngine::completeScript(std::optional<Value> result, std::optional<Error> error) {
  if (scripts_.empty()) return false;
  // The completion may hold the last reference to the web view, and so to this engine.
  auto keep = shared_from_this();
  auto pending = std::move(scripts_.front());
  scripts_.pop_front();
  if (pending.completion) pending.completion(std::move(result), std::move(error));
  return true;
}

}  // namespace zorva::platform
