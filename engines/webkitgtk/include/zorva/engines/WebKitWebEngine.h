#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zorva/platform/EngineExport.h"
#include "zorva/platform/Geometry.h"
#include "zorva/platform/WebEngine.h"

// GTK and WebKit types stay out of the public header: hosts include it without their flags.
typedef struct _GtkWidget GtkWidget;
typedef struct _WebKitWebView WebKitWebView;
typedef struct _GCancellable GCancellable;

namespace zorva::platform {

/// A web engine that renders with WebKitGTK: each engine owns a WebKit web view in an offscreen
/// GTK window the size of its web view's frame. Page loads, navigation policy, new-window
/// requests and script dialogs go to the web view (the engine's client) as the platform
/// reports them; nothing is ever shown on a screen of its own. Main thread only; WebKit's
/// signals arrive through GLib's default context (see `GLibMainLoopBridge`).
///
/// Every engine's page runs in one WebKit web process, started with the first engine and ended
/// with the last. Should it end early (a crash), each engine fails the load it had in flight
/// (`kWebProcessTerminatedCode`), pages already shown stay blank, and the next load starts a
/// new process.
class ZORVA_ENGINE_EXPORT WebKitWebEngine : public WebEngine,
                                            public std::enable_shared_from_this<WebKitWebEngine> {
 public:
  /// Error domain of the engine's own failures (WebKit's and GLib's errors keep their domains).
  static constexpr const char* kErrorDomain = "WebKitWebEngine";
  /// A script ended with a value that has no JSON form (a function, a cyclic object...).
  static constexpr std::int64_t kScriptResultUnsupportedCode = 5;
  /// A snapshot could not be taken or written.
  static constexpr std::int64_t kSnapshotFailedCode = 6;
  /// The web process ended (crashed, or was ended) while a load was in flight.
  static constexpr std::int64_t kWebProcessTerminatedCode = 7;
  /// A request without a usable URL, as the platform's URL loading reports it.
  static constexpr const char* kBadURLDomain = "NSURLErrorDomain";
  static constexpr std::int64_t kBadURLCode = -1000;

  /// Host start-up: gtk_init_check (needs a display), GLibMainLoopBridge::install(), and
  /// WebEngine::setFactory(...) so every later web view renders with WebKit. False (reason in
  /// *whyNot when given) without a display.
  static bool install(std::string* whyNot = nullptr);
  /// Null when GTK cannot open a display (the platform then falls back to its headless engine).
  static std::shared_ptr<WebKitWebEngine> create(std::weak_ptr<WebEngineClient> client,
                                                 const WebViewConfiguration& configuration);
  /// A new WebKit web view (a floating reference) in the web process the engines' pages share,
  /// drawn as theirs are (without accelerated compositing) and otherwise with WebKit's default
  /// settings: for a page a host shows itself, such as a browser's.
  static GtkWidget* createSharedProcessWebView();
  ~WebKitWebEngine() override;
  WebKitWebEngine(const WebKitWebEngine&) = delete;
  WebKitWebEngine& operator=(const WebKitWebEngine&) = delete;

  void loadHTMLString(const std::shared_ptr<Navigation>& navigation, const std::string& html,
                      const std::optional<URL>& baseURL) override;
  void loadRequest(const std::shared_ptr<Navigation>& navigation) override;
  /// Completion on a later main-queue turn: strings, numbers, booleans and null as themselves,
  /// arrays and objects through their JSON form; undefined as neither result nor error.
  void evaluateJavaScript(const std::string& script, JavaScriptCompletion completion) override;
  /// WebKit's own user agent, the one pages see.
  std::string userAgent() const override;

  /// Writes a PNG of the page as currently rendered; completion on the main thread with an
  /// error or none.
  void snapshot(const std::string& pngPath, std::function<void(std::optional<Error>)> completion);

  /// The WebKit widget (for hosts that embed or inspect it); owned by the engine.
  WebKitWebView* webKitWebView() const { return webView_; }
  /// The size the page is rendered at.
  Size renderedSize() const { return renderedSize_; }

 private:
  struct ZORVA_ENGINE_HIDDEN Callbacks;
  struct ZORVA_ENGINE_HIDDEN DialogSlot;
  struct ZORVA_ENGINE_HIDDEN ProcessAnchor;
  enum class LoadPhase { Idle, Provisional, Committed };

  WebKitWebEngine(std::weak_ptr<WebEngineClient> client, const WebViewConfiguration& configuration);
  std::shared_ptr<WebEngineClient> client() const { return client_.lock(); }
  /// Follows the web view's frame size and background, which the engine hears no report of.
  void syncWithView();
  void startLoad(const std::shared_ptr<Navigation>& navigation);
  std::shared_ptr<Navigation> navigationForStart(const std::string& uri);
  void openNewWindow(const NavigationAction& action);
  void finishDialog(const std::shared_ptr<DialogSlot>& slot);

  std::weak_ptr<WebEngineClient> client_;
  std::shared_ptr<ProcessAnchor> anchor_;
  GtkWidget* window_ = nullptr;
  WebKitWebView* webView_ = nullptr;
  GCancellable* cancellable_ = nullptr;
  Size renderedSize_;
  std::optional<std::uint32_t> background_;

  /// The latest load started through this engine, until WebKit asks its policy.
  std::shared_ptr<Navigation> awaitingPolicy_;
  /// Main-frame candidates the policy allowed that have not started yet, oldest first (WebKit
  /// does not say which frame a navigation targets).
  std::vector<std::shared_ptr<Navigation>> allowed_;
  std::shared_ptr<Navigation> current_;
  LoadPhase phase_ = LoadPhase::Idle;
  std::vector<std::shared_ptr<DialogSlot>> dialogs_;
};

}  // namespace zorva::platform
