#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <string>

namespace zorva::platform {
class SafariViewController;
class StoreProductViewController;
}  // namespace zorva::platform

namespace zorva::gtk {

/// Makes a WebKit page on the screen paint itself whole in every redraw GTK asks of it. WebKit's
/// accelerated backing store paints a page only when a new frame of it arrives: a redraw of the
/// region for another reason (an app's widget below the page repainting: a caret blinking, a
/// button hovered) would leave there whatever was painted below, over the page. Without
/// accelerated compositing the page is painted from WebKit's own backing store every time.
void paintsWhole(GtkWidget* page);

/// The on-screen form of a controller the platform presents for the SDK but draws itself: the
/// in-app browser (a live page of its address under a bar with Done) and the store sheet (the
/// product and the attribution parameters it was given, with Close). Their buttons play the
/// user closing them (`finish`), so the SDK hears what it hears on the phone.
class SystemPanel {
 public:
  static std::unique_ptr<SystemPanel> browser(
      std::shared_ptr<platform::SafariViewController> controller);
  static std::unique_ptr<SystemPanel> storeSheet(
      std::shared_ptr<platform::StoreProductViewController> controller);
  ~SystemPanel();
  SystemPanel(const SystemPanel&) = delete;
  SystemPanel& operator=(const SystemPanel&) = delete;

  GtkWidget* widget() const { return widget_; }
  /// Shows what the controller holds now (a store sheet may be given new parameters).
  void update();

 private:
  SystemPanel() = default;
  GtkWidget* widget_ = nullptr;
  GtkWidget* details_ = nullptr;
  std::weak_ptr<platform::StoreProductViewController> sheet_;
  std::string shown_;
};

}  // namespace zorva::gtk
