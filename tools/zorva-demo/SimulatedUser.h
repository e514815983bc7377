#pragma once

#include <zorva/platform/Value.h>

#include <memory>
#include <optional>
#include <string>

namespace zorva::platform {
class View;
class ViewController;
class WebView;
}  // namespace zorva::platform

namespace zorva::demo {

class Pointer;

/// Where a click-through went: the store sheet (with its product parameters) or the in-app
/// browser (with its URL).
struct ClickDestination {
  enum class Kind { StoreSheet, Browser, Other } kind = Kind::Other;
  /// The store sheet's parameters (an object), null for the browser.
  platform::Value parameters;
  std::string url;
  std::string describe() const;
};

/// Plays the person holding the phone: taps a link in an ad's page, taps a video, closes the
/// sheet or browser a click opened, presses an ad's close button. It reaches the screen only as
/// a host app can: through the view tree, the presented controllers, and the page itself (the
/// headless engine's markup, or script in a real one). Given a pointer (the demo in a window), its
/// taps and presses are real clicks on the screen instead. Main thread.
class SimulatedUser {
 public:
  /// The web view in `view`'s tree (the view itself included), or null.
  static std::shared_ptr<platform::WebView> webViewIn(const std::shared_ptr<platform::View>& view);
  /// The first link of the page shown in `view` (or below it), or nothing when there is no page
  /// or no link.
  static std::optional<std::string> firstLink(const std::shared_ptr<platform::View>& view);
  /// Taps the link to `url` in the page shown in `view`. False when there is no page (with a
  /// pointer: or no such link on the screen).
  static bool tapLink(const std::shared_ptr<platform::View>& view, const std::string& url,
                      Pointer* pointer = nullptr);
  /// Lifts a finger on the deepest view under `view` (the video surface of a video ad). False
  /// when there is no view.
  static bool tapContent(const std::shared_ptr<platform::View>& view);
  /// Presses the button titled `title` in `view`'s tree. False when there is none.
  static bool pressButton(const std::shared_ptr<platform::View>& view, const std::string& title,
                          Pointer* pointer = nullptr);

  /// The controller presented on top of everything above `root`, or null.
  static std::shared_ptr<platform::ViewController> topPresented(
      const std::shared_ptr<platform::ViewController>& root);
  /// What the controller on top is, when it is a store sheet or a browser.
  static std::optional<ClickDestination> destinationOnTop(
      const std::shared_ptr<platform::ViewController>& root);
  /// Closes the store sheet or browser on top (its Close or Done button). False when neither is.
  static bool closeSheetOnTop(const std::shared_ptr<platform::ViewController>& root,
                              Pointer* pointer = nullptr);

  /// Fraction of the first progress bar in `view`'s tree, or nothing.
  static std::optional<float> progressShown(const std::shared_ptr<platform::View>& view);
};

}  // namespace zorva::demo
