#include "zorva/engines/WebKitWebEngine.h"

#include <cairo.h>
#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "zorva/engines/GLibMainLoopBridge.h"
#include "zorva/platform/JSONSerialization.h"
#include "zorva/platform/MainQueue.h"
#include "zorva/platform/WebView.h"

namespace zorva::platform {

namespace {

Error errorFrom(const GError* error) {
  return Error::withDescription(g_quark_to_string(error->domain), error->code, error->message);
}

std::optional<URL> urlFrom(const char* uri) { return uri ? URL::URLWithString(uri) : std::nullopt; }

// Pages are drawn without accelerated compositing. WebKit gives every accelerated page a
// compositor and GL context of its own (about 14 MB of the web process each), and a refreshing
// banner keeps every earlier ad's page. And an accelerated page paints only when a new frame of
// it arrives: a redraw of its region for another reason (an app's widget below repainting: a
// caret blinking, a button hovered) would leave there what was painted below, over the page.
// Without it the page is painted from WebKit's backing store in every redraw GTK asks of it.
void paintsWhole(WebKitSettings* settings) {
  webkit_settings_set_hardware_acceleration_policy(settings,
                                                   WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
}

// WebKit and libcurl may spell one address differently ("http://a.example" vs "http://a.example/");
// both sides go through the same parser before they are compared.
bool sameAddress(const std::optional<URL>& url, const char* uri) {
  if (!url || !uri) return false;
  auto parsed = URL::URLWithString(uri);
  return parsed ? *parsed == *url : url->absoluteString() == uri;
}

NavigationType navigationTypeFrom(WebKitNavigationType type) {
  switch (type) {
    case WEBKIT_NAVIGATION_TYPE_LINK_CLICKED:
      return NavigationType::LinkActivated;
    case WEBKIT_NAVIGATION_TYPE_FORM_SUBMITTED:
      return NavigationType::FormSubmitted;
    case WEBKIT_NAVIGATION_TYPE_BACK_FORWARD:
      return NavigationType::BackForward;
    case WEBKIT_NAVIGATION_TYPE_RELOAD:
      return NavigationType::Reload;
    case WEBKIT_NAVIGATION_TYPE_FORM_RESUBMITTED:
      return NavigationType::FormResubmitted;
    case WEBKIT_NAVIGATION_TYPE_OTHER:
      break;
  }
  return NavigationType::Other;
}

NavigationAction actionFrom(WebKitNavigationAction* webKitAction, bool newWindow) {
  WebKitURIRequest* webKitRequest = webkit_navigation_action_get_request(webKitAction);
  URLRequest request(urlFrom(webkit_uri_request_get_uri(webKitRequest)));
  if (const char* method = webkit_uri_request_get_http_method(webKitRequest)) {
    request.HTTPMethod = method;
  }
  NavigationAction action{
      std::move(request),
      navigationTypeFrom(webkit_navigation_action_get_navigation_type(webKitAction)),
      FrameInfo{true}};
  if (newWindow) action.targetFrame.reset();
  return action;
}

// A whole number keeps an integer form, as the platform's script results give it.
Value numberValue(double number) {
  if (std::isfinite(number) && number == std::trunc(number) && std::fabs(number) < 9.0e15) {
    return Value(static_cast<std::int64_t>(number));
  }
  return Value(number);
}

struct ScriptResult {
  std::optional<Value> value;
  std::optional<Error> error;
};

ScriptResult scriptResultFrom(JSCValue* value) {
  if (jsc_value_is_undefined(value)) return {};
  if (jsc_value_is_null(value)) return {Value(nullptr), std::nullopt};
  if (jsc_value_is_boolean(value)) return {Value(jsc_value_to_boolean(value) != FALSE), {}};
  if (jsc_value_is_number(value)) return {numberValue(jsc_value_to_double(value)), {}};
  if (jsc_value_is_string(value)) {
    char* text = jsc_value_to_string(value);
    Value result(text ? text : "");
    g_free(text);
    return {std::move(result), std::nullopt};
  }
  if (jsc_value_is_array(value) || (jsc_value_is_object(value) && !jsc_value_is_function(value))) {
    char* json = jsc_value_to_json(value, 0);
    // A cyclic object leaves an exception in the context; the next script must not see it.
    jsc_context_clear_exception(jsc_value_get_context(value));
    if (json) {
      // The page's object, read as any JSON the process reads: in linear time, depth bounded.
      auto parsed =
          JSONSerialization::JSONObjectWithData(json, JSONSerialization::FragmentsAllowed, nullptr);
      g_free(json);
      if (parsed) return {std::move(*parsed), std::nullopt};
    }
  }
  return {std::nullopt,
          Error::withDescription(WebKitWebEngine::kErrorDomain,
                                 WebKitWebEngine::kScriptResultUnsupportedCode,
                                 "JavaScript execution returned a result of an unsupported type")};
}

std::uint32_t packed(const Color& color) {
  auto channel = [](double c) {
    return static_cast<std::uint32_t>(std::lround(std::clamp(c, 0.0, 1.0) * 255));
  };
  return channel(color.red) << 24 | channel(color.green) << 16 | channel(color.blue) << 8 |
         channel(color.alpha);
}

int pixels(double points) { return std::max(1, static_cast<int>(std::lround(points))); }

}  // namespace

/// A web view that is never shown and never loads: every engine's view is made related to it,
/// which puts them all in its web process (WebKit otherwise starts one process per view), and
/// WebKit keeps a related page there when it navigates to another site. Kept while any engine
/// lives, so the process ends with the app's last web view.
struct WebKitWebEngine::ProcessAnchor {
  WebKitWebView* view = WEBKIT_WEB_VIEW(g_object_ref_sink(webkit_web_view_new()));
  ProcessAnchor() = default;
  ProcessAnchor(const ProcessAnchor&) = delete;
  ProcessAnchor& operator=(const ProcessAnchor&) = delete;
  ~ProcessAnchor() { g_object_unref(view); }

  static std::shared_ptr<ProcessAnchor> shared() {
    static std::weak_ptr<ProcessAnchor> current;  // main thread only
    auto anchor = current.lock();
    if (!anchor) current = anchor = std::make_shared<ProcessAnchor>();
    return anchor;
  }
};

/// Where a script dialog waits for the client's answer. WebKit's dialog refers to its web view,
/// so every open one is closed before the view goes.
struct WebKitWebEngine::DialogSlot {
  WebKitScriptDialog* dialog = nullptr;
  /// Still inside WebKit's signal, where the dialog must not be closed by hand.
  bool inSignal = false;
};

/// GLib signal handlers and async callbacks. A signal's `data` is the engine (the destructor
/// disconnects its handlers); an async call's is a heap record that never refers to the engine.
struct WebKitWebEngine::Callbacks {
  static gboolean decidePolicy(WebKitWebView*, WebKitPolicyDecision* decision,
                               WebKitPolicyDecisionType type, gpointer data) {
    auto& engine = *static_cast<WebKitWebEngine*>(data);
    if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) return FALSE;  // WebKit's own rules
    auto keep = engine.shared_from_this();
    auto client = engine.client();
    if (!client) {
      webkit_policy_decision_ignore(decision);
      return TRUE;
    }
    const bool newWindow = type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION;
    WebKitNavigationAction* webKitAction = webkit_navigation_policy_decision_get_navigation_action(
        WEBKIT_NAVIGATION_POLICY_DECISION(decision));
    NavigationAction action = actionFrom(webKitAction, newWindow);
    std::shared_ptr<Navigation> navigation;
    if (!newWindow) {
      const char* uri =
          webkit_uri_request_get_uri(webkit_navigation_action_get_request(webKitAction));
      if (engine.awaitingPolicy_ && sameAddress(engine.awaitingPolicy_->request().url, uri)) {
        navigation = std::exchange(engine.awaitingPolicy_, nullptr);
        action.request = navigation->request();
      } else {
        navigation = Navigation::create(action.request);
      }
    }
    // The answer may come later: the decision stays alive until the handler runs.
    std::shared_ptr<WebKitPolicyDecision> held(
        static_cast<WebKitPolicyDecision*>(g_object_ref(decision)), g_object_unref);
    client->decidePolicyForNavigationAction(
        action, [weak = engine.weak_from_this(), held, navigation, action,
                 answered = false](NavigationActionPolicy policy) mutable {
          if (std::exchange(answered, true)) return;
          auto self = weak.lock();
          const bool allow = policy == NavigationActionPolicy::Allow && self;
          if (allow && navigation) {
            self->allowed_.push_back(navigation);
            webkit_policy_decision_use(held.get());
            return;
          }
          // A new window never opens in WebKit: the client's web view, if any, takes the load.
          webkit_policy_decision_ignore(held.get());
          if (allow) {
            MainQueue::shared().post([weak, action] {
              if (auto self = weak.lock()) self->openNewWindow(action);
            });
          }
        });
    return TRUE;
  }

  static GtkWidget* create(WebKitWebView*, WebKitNavigationAction* webKitAction, gpointer data) {
    // Script-opened windows (window.open) skip the new-window policy: ask it here, later, so the
    // client never runs inside WebKit's signal.
    auto& engine = *static_cast<WebKitWebEngine*>(data);
    MainQueue::shared().post(
        [weak = engine.weak_from_this(), action = actionFrom(webKitAction, true)] {
          auto self = weak.lock();
          auto client = self ? self->client() : nullptr;
          if (!client) return;
          client->decidePolicyForNavigationAction(
              action, [weak, action, answered = false](NavigationActionPolicy policy) mutable {
                if (std::exchange(answered, true) || policy != NavigationActionPolicy::Allow)
                  return;
                if (auto self = weak.lock()) self->openNewWindow(action);
              });
        });
    return nullptr;
  }

  static void loadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer data) {
    auto& engine = *static_cast<WebKitWebEngine*>(data);
    auto keep = engine.shared_from_this();
    switch (event) {
      case WEBKIT_LOAD_STARTED: {
        const char* uri = webkit_web_view_get_uri(view);
        engine.current_ = engine.navigationForStart(uri ? uri : "");
        engine.phase_ = LoadPhase::Provisional;
        break;
      }
      case WEBKIT_LOAD_REDIRECTED:
        break;
      case WEBKIT_LOAD_COMMITTED:
        if (!engine.current_) {
          engine.current_ = Navigation::create(URLRequest(urlFrom(webkit_web_view_get_uri(view))));
        }
        engine.phase_ = LoadPhase::Committed;
        if (auto client = engine.client()) client->didCommitNavigation(engine.current_);
        break;
      case WEBKIT_LOAD_FINISHED: {
        // WebKit also finishes a failed load; that one was already reported as failed.
        if (engine.phase_ != LoadPhase::Committed) break;
        engine.phase_ = LoadPhase::Idle;
        auto navigation = std::exchange(engine.current_, nullptr);
        if (auto client = engine.client()) client->didFinishNavigation(navigation);
        break;
      }
    }
  }

  static gboolean loadFailed(WebKitWebView*, WebKitLoadEvent, gchar*, GError* error,
                             gpointer data) {
    auto& engine = *static_cast<WebKitWebEngine*>(data);
    auto keep = engine.shared_from_this();
    const LoadPhase phase = std::exchange(engine.phase_, LoadPhase::Idle);
    auto navigation = std::exchange(engine.current_, nullptr);
    auto client = engine.client();
    // A load the policy interrupted is the page's own decision, never a failed ad.
    const bool byPolicy = g_error_matches(
        error, WEBKIT_POLICY_ERROR, WEBKIT_POLICY_ERROR_FRAME_LOAD_INTERRUPTED_BY_POLICY_CHANGE);
    if (client && navigation) {
      if (phase == LoadPhase::Committed && !byPolicy) {
        client->didFailNavigation(navigation, errorFrom(error));
      } else if (phase == LoadPhase::Provisional) {
        client->didFailProvisionalNavigation(navigation, errorFrom(error));
      }
    }
    return TRUE;  // no error page of WebKit's own
  }

  static void processTerminated(WebKitWebView*, WebKitWebProcessTerminationReason, gpointer data) {
    // WebKit reports no failure for the load the process was running: it is failed here, once,
    // as the platform fails a load whose content process ended. A page already shown stays
    // blank until its next load (reloading an ad would run its script and count it again).
    auto& engine = *static_cast<WebKitWebEngine*>(data);
    auto keep = engine.shared_from_this();
    const LoadPhase phase = std::exchange(engine.phase_, LoadPhase::Idle);
    auto navigation = std::exchange(engine.current_, nullptr);
    auto awaiting = std::exchange(engine.awaitingPolicy_, nullptr);
    engine.allowed_.clear();
    auto client = engine.client();
    if (!client) return;
    const Error error = Error::withDescription(kErrorDomain, kWebProcessTerminatedCode,
                                               "The web content process ended");
    if (phase == LoadPhase::Committed) {
      client->didFailNavigation(navigation, error);
    } else if (auto failed = navigation ? navigation : awaiting) {
      client->didFailProvisionalNavigation(failed, error);
    }
  }

  static gboolean scriptDialog(WebKitWebView*, WebKitScriptDialog* dialog, gpointer data) {
    auto& engine = *static_cast<WebKitWebEngine*>(data);
    auto keep = engine.shared_from_this();
    auto client = engine.client();
    if (!client) return TRUE;  // closed at once, with WebKit's default answer
    auto slot = std::make_shared<DialogSlot>(DialogSlot{dialog, true});
    const std::string message = webkit_script_dialog_get_message(dialog);
    auto finish = [weak = engine.weak_from_this(), slot](auto&& answer) {
      if (!slot->dialog) return;
      answer(slot->dialog);
      if (slot->inSignal) {
        slot->dialog = nullptr;  // WebKit closes it when the signal returns
      } else if (auto self = weak.lock()) {
        self->finishDialog(slot);
      }
    };
    switch (webkit_script_dialog_get_dialog_type(dialog)) {
      case WEBKIT_SCRIPT_DIALOG_ALERT:
        client->runJavaScriptAlertPanel(message, [finish] { finish([](auto*) {}); });
        break;
      case WEBKIT_SCRIPT_DIALOG_CONFIRM:
        client->runJavaScriptConfirmPanel(message, [finish](bool ok) {
          finish(
              [ok](WebKitScriptDialog* d) { webkit_script_dialog_confirm_set_confirmed(d, ok); });
        });
        break;
      case WEBKIT_SCRIPT_DIALOG_PROMPT: {
        const char* defaultText = webkit_script_dialog_prompt_get_default_text(dialog);
        client->runJavaScriptTextInputPanel(
            message, defaultText ? std::optional<std::string>(defaultText) : std::nullopt,
            [finish](std::optional<std::string> text) {
              // No text is a cancelled prompt: the page gets null.
              finish([&text](WebKitScriptDialog* d) {
                if (text) webkit_script_dialog_prompt_set_text(d, text->c_str());
              });
            });
        break;
      }
      case WEBKIT_SCRIPT_DIALOG_BEFORE_UNLOAD_CONFIRM:
        // The platform has no such panel: the page may always be left.
        finish([](WebKitScriptDialog* d) { webkit_script_dialog_confirm_set_confirmed(d, TRUE); });
        break;
    }
    slot->inSignal = false;
    if (slot->dialog) {
      // Answered later: the page waits until then.
      webkit_script_dialog_ref(dialog);
      engine.dialogs_.push_back(slot);
    }
    return TRUE;
  }

  struct ScriptCall {
    JavaScriptCompletion completion;
  };

  static void scriptEnded(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<ScriptCall> call(static_cast<ScriptCall*>(data));
    GError* error = nullptr;
    JSCValue* value =
        webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result, &error);
    ScriptResult outcome;
    if (error) {
      outcome.error = errorFrom(error);
      g_error_free(error);
    } else {
      outcome = scriptResultFrom(value);
      g_object_unref(value);
    }
    if (!call->completion) return;
    MainQueue::shared().post(
        [completion = std::move(call->completion), outcome = std::move(outcome)]() mutable {
          completion(std::move(outcome.value), std::move(outcome.error));
        });
  }

  struct SnapshotCall {
    std::string path;
    std::function<void(std::optional<Error>)> completion;
  };

  static void snapshotTaken(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<SnapshotCall> call(static_cast<SnapshotCall*>(data));
    GError* error = nullptr;
    cairo_surface_t* surface =
        webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(source), result, &error);
    std::optional<Error> failure;
    if (error) {
      failure = errorFrom(error);
      g_error_free(error);
    } else {
      const cairo_status_t status = cairo_surface_write_to_png(surface, call->path.c_str());
      cairo_surface_destroy(surface);
      if (status != CAIRO_STATUS_SUCCESS) {
        failure = Error::withDescription(
            kErrorDomain, kSnapshotFailedCode,
            std::string("Could not write the snapshot: ") + cairo_status_to_string(status));
      }
    }
    if (!call->completion) return;
    MainQueue::shared().post(
        [completion = std::move(call->completion), failure] { completion(failure); });
  }
};

bool WebKitWebEngine::install(std::string* whyNot) {
  if (!MainQueue::shared().isCurrent()) {
    if (whyNot) *whyNot = "WebKit must be started on the main thread";
    return false;
  }
  if (!gtk_init_check(nullptr, nullptr)) {
    if (whyNot) *whyNot = "GTK could not open a display (is DISPLAY set?)";
    return false;
  }
  GLibMainLoopBridge::install();
  WebEngine::setFactory(
      [](std::weak_ptr<WebEngineClient> client,
         const WebViewConfiguration& configuration) -> std::shared_ptr<WebEngine> {
        return create(std::move(client), configuration);
      });
  return true;
}

std::shared_ptr<WebKitWebEngine> WebKitWebEngine::create(
    std::weak_ptr<WebEngineClient> client, const WebViewConfiguration& configuration) {
  if (!gtk_init_check(nullptr, nullptr)) return nullptr;
  auto engine =
      std::shared_ptr<WebKitWebEngine>(new WebKitWebEngine(std::move(client), configuration));
  engine->syncWithView();
  return engine;
}

WebKitWebEngine::WebKitWebEngine(std::weak_ptr<WebEngineClient> client,
                                 const WebViewConfiguration& configuration)
    : client_(std::move(client)), anchor_(ProcessAnchor::shared()) {
  WebKitSettings* settings = webkit_settings_new();
  // One knob for every media type: a gesture is waived only when the configuration waives it
  // for all of them (through the media-type bits or the older flag).
  const bool gestureRequired =
      configuration.mediaTypesRequiringUserActionForPlayback != kAudiovisualMediaTypeNone &&
      configuration.requiresUserActionForMediaPlayback;
  webkit_settings_set_media_playback_requires_user_gesture(settings, gestureRequired);
  webkit_settings_set_media_playback_allows_inline(settings,
                                                   configuration.allowsInlineMediaPlayback);
  paintsWhole(settings);
  webView_ = WEBKIT_WEB_VIEW(g_object_ref_sink(g_object_new(
      WEBKIT_TYPE_WEB_VIEW, "settings", settings, "related-view", anchor_->view, nullptr)));
  g_object_unref(settings);
  cancellable_ = g_cancellable_new();

  window_ = gtk_offscreen_window_new();
  gtk_container_add(GTK_CONTAINER(window_), GTK_WIDGET(webView_));
  gtk_widget_show_all(window_);

  g_signal_connect(webView_, "decide-policy", G_CALLBACK(Callbacks::decidePolicy), this);
  g_signal_connect(webView_, "create", G_CALLBACK(Callbacks::create), this);
  g_signal_connect(webView_, "load-changed", G_CALLBACK(Callbacks::loadChanged), this);
  g_signal_connect(webView_, "load-failed", G_CALLBACK(Callbacks::loadFailed), this);
  g_signal_connect(webView_, "script-dialog", G_CALLBACK(Callbacks::scriptDialog), this);
  g_signal_connect(webView_, "web-process-terminated", G_CALLBACK(Callbacks::processTerminated),
                   this);
}

GtkWidget* WebKitWebEngine::createSharedProcessWebView() {
  WebKitSettings* settings = webkit_settings_new();
  paintsWhole(settings);
  auto* page = GTK_WIDGET(g_object_new(WEBKIT_TYPE_WEB_VIEW, "settings", settings, "related-view",
                                       ProcessAnchor::shared()->view, nullptr));
  g_object_unref(settings);
  return page;
}

WebKitWebEngine::~WebKitWebEngine() {
  g_signal_handlers_disconnect_by_data(webView_, this);
  // Answers that arrive later find no engine; open dialogs close before their web view goes.
  for (const auto& slot : dialogs_) {
    if (auto* dialog = std::exchange(slot->dialog, nullptr)) {
      webkit_script_dialog_close(dialog);
      webkit_script_dialog_unref(dialog);
    }
  }
  g_cancellable_cancel(cancellable_);
  g_object_unref(cancellable_);
  // The last owner may let go from inside one of WebKit's signals (a failed load that ends the
  // ad): the widgets go on a later turn of the loop, once WebKit has returned.
  g_object_set_data_full(G_OBJECT(window_), "zorva-web-view", webView_, g_object_unref);
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer window) {
        gtk_widget_destroy(GTK_WIDGET(window));
        return G_SOURCE_REMOVE;
      },
      window_, nullptr);
}

void WebKitWebEngine::finishDialog(const std::shared_ptr<DialogSlot>& slot) {
  std::erase(dialogs_, slot);
  if (auto* dialog = std::exchange(slot->dialog, nullptr)) {
    webkit_script_dialog_close(dialog);
    webkit_script_dialog_unref(dialog);
  }
}

void WebKitWebEngine::syncWithView() {
  auto c = client();
  auto view = c ? c->clientWebView() : nullptr;
  if (!view) return;
  const Size size = view->frame().size;
  if (size != renderedSize_) {
    renderedSize_ = size;
    gtk_widget_set_size_request(GTK_WIDGET(webView_), pixels(size.width), pixels(size.height));
    gtk_window_resize(GTK_WINDOW(window_), pixels(size.width), pixels(size.height));
    // Allocated now, not at GTK's next layout pass, so WebKit hears the size before any request
    // that follows (a snapshot would otherwise have the old one).
    gtk_container_check_resize(GTK_CONTAINER(window_));
  }
  const Color background = view->backgroundColor().value_or(view->isOpaque() ? Color::whiteColor()
                                                                             : Color::clearColor());
  if (background_ != packed(background)) {
    background_ = packed(background);
    GdkRGBA rgba{background.red, background.green, background.blue, background.alpha};
    webkit_web_view_set_background_color(webView_, &rgba);
  }
}

void WebKitWebEngine::loadHTMLString(const std::shared_ptr<Navigation>& navigation,
                                     const std::string& html, const std::optional<URL>& baseURL) {
  startLoad(navigation);
  webkit_web_view_load_html(webView_, html.c_str(),
                            baseURL ? baseURL->absoluteString().c_str() : nullptr);
}

void WebKitWebEngine::loadRequest(const std::shared_ptr<Navigation>& navigation) {
  const URLRequest& request = navigation->request();
  if (!request.url) {
    MainQueue::shared().post([weak = weak_from_this(), navigation] {
      auto self = weak.lock();
      if (auto c = self ? self->client() : nullptr) {
        c->didFailProvisionalNavigation(
            navigation, Error::withDescription(kBadURLDomain, kBadURLCode, "bad URL"));
      }
    });
    return;
  }
  startLoad(navigation);
  WebKitURIRequest* webKitRequest = webkit_uri_request_new(request.url->absoluteString().c_str());
  if (SoupMessageHeaders* headers = webkit_uri_request_get_http_headers(webKitRequest)) {
    for (const auto& [field, value] : request.allHTTPHeaderFields) {
      soup_message_headers_replace(headers, field.c_str(), value.c_str());
    }
  }
  webkit_web_view_load_request(webView_, webKitRequest);
  g_object_unref(webKitRequest);
}

void WebKitWebEngine::startLoad(const std::shared_ptr<Navigation>& navigation) {
  syncWithView();
  awaitingPolicy_ = navigation;
}

std::shared_ptr<Navigation> WebKitWebEngine::navigationForStart(const std::string& uri) {
  auto allowed = std::exchange(allowed_, {});
  auto match = std::find_if(allowed.rbegin(), allowed.rend(), [&](const auto& navigation) {
    return sameAddress(navigation->request().url, uri.c_str());
  });
  if (match != allowed.rend()) return *match;
  // Addresses that do not compare equal still belong to the latest allowed main-frame load.
  if (!allowed.empty()) return allowed.back();
  return Navigation::create(URLRequest(urlFrom(uri.c_str())));
}

void WebKitWebEngine::openNewWindow(const NavigationAction& action) {
  auto keep = shared_from_this();
  auto c = client();
  if (!c) return;
  if (auto opened = c->createWebView(action)) opened->loadRequest(action.request);
}

void WebKitWebEngine::evaluateJavaScript(const std::string& script,
                                         JavaScriptCompletion completion) {
  syncWithView();
  auto* call = new Callbacks::ScriptCall{std::move(completion)};
  webkit_web_view_evaluate_javascript(webView_, script.c_str(), static_cast<gssize>(script.size()),
                                      nullptr, nullptr, cancellable_, Callbacks::scriptEnded, call);
}

std::string WebKitWebEngine::userAgent() const {
  const char* agent = webkit_settings_get_user_agent(webkit_web_view_get_settings(webView_));
  return agent ? agent : "";
}

void WebKitWebEngine::snapshot(const std::string& pngPath,
                               std::function<void(std::optional<Error>)> completion) {
  syncWithView();
  auto* call = new Callbacks::SnapshotCall{pngPath, std::move(completion)};
  webkit_web_view_get_snapshot(webView_, WEBKIT_SNAPSHOT_REGION_VISIBLE,
                               WEBKIT_SNAPSHOT_OPTIONS_NONE, cancellable_, Callbacks::snapshotTaken,
                               call);
}

}  // namespace zorva::platform
