#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zorva::platform {
class WebView;
}

namespace zorva::demo {

/// The demo's choice of engines. The headless ones (the platform's default) decode and render
/// nothing; the real ones — GStreamer for video, WebKitGTK for HTML — exist when the build has
/// them.
struct Engines {
  /// True when this build links the GStreamer and WebKitGTK engines.
  static bool realEnginesBuilt();
  /// Makes every later player item decode with GStreamer and every later web view render with
  /// WebKit, both signalling through GLib on the main thread. False, with the reason in
  /// `*whyNot`, when they cannot run here (not built, no display).
  static bool useRealEngines(std::string* whyNot);
  /// Writes a PNG of what `webView` shows now; `done` runs on the main thread with an error
  /// message, or none. Real engines only: a headless page has no pixels.
  static void snapshot(const std::shared_ptr<platform::WebView>& webView, const std::string& path,
                       std::function<void(std::optional<std::string> error)> done);
};

}  // namespace zorva::demo
