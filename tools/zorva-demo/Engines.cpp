#include "zorva-demo/Engines.h"

#include <zorva/platform/MainQueue.h>
#include <zorva/platform/WebEngine.h>
#include <zorva/platform/WebView.h>

#if ZORVA_DEMO_REAL_ENGINES
#include <zorva/engines/GStreamerMediaEngine.h>
#include <zorva/engines/WebKitWebEngine.h>
#endif

namespace zorva::demo {

#if ZORVA_DEMO_REAL_ENGINES

bool Engines::realEnginesBuilt() { return true; }

bool Engines::useRealEngines(std::string* whyNot) {
  // WebKit first: it is the one that needs a display, and nothing is installed without it.
  std::string reason;
  if (!platform::WebKitWebEngine::install(&reason)) {
    *whyNot = "WebKit cannot render here (" + reason + ")";
    return false;
  }
  if (!platform::GStreamerMediaEngine::install(&reason)) {
    platform::WebEngine::setFactory(nullptr);
    *whyNot = "GStreamer cannot play here (" + reason + ")";
    return false;
  }
  return true;
}

void Engines::snapshot(const std::shared_ptr<platform::WebView>& webView, const std::string& path,
                       std::function<void(std::optional<std::string> error)> done) {
  auto engine =
      webView ? std::dynamic_pointer_cast<platform::WebKitWebEngine>(webView->engine()) : nullptr;
  if (!engine) {
    platform::MainQueue::shared().post(
        [done = std::move(done)] { done("the banner is not rendered by WebKit"); });
    return;
  }
  engine->snapshot(path, [done = std::move(done)](std::optional<platform::Error> error) {
    if (error) {
      done(error->localizedDescription());
    } else {
      done(std::nullopt);
    }
  });
}

#else

bool Engines::realEnginesBuilt() { return false; }

bool Engines::useRealEngines(std::string* whyNot) {
  *whyNot =
      "this build has no real engines (configure with ZORVA_ENGINE_GSTREAMER and "
      "ZORVA_ENGINE_WEBKITGTK on)";
  return false;
}

void Engines::snapshot(const std::shared_ptr<platform::WebView>& /*webView*/,
                       const std::string& /*path*/,
                       std::function<void(std::optional<std::string> error)> done) {
  platform::MainQueue::shared().post(
      [done = std::move(done)] { done("this build has no WebKit engine"); });
}

#endif

}  // namespace zorva::demo
