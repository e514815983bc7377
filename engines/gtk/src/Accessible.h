#pragma once

#include <atk/atk.h>
#include <gtk/gtk.h>

#include <functional>
#include <map>
#include <vector>

#include "Scene.h"

namespace zorva::gtk {

/// The host's area: a placement box whose accessible object holds the tree's elements (ads,
/// presented controllers, their buttons and pages) rather than the host's drawing layers.
GtkWidget* hostAreaNew();

/// The tree's elements as assistive technology meets them (ATK, and AT-SPI through GTK's
/// bridge): an ad is a panel named "Advertisement", a presented controller the host draws a
/// dialog, a button a push button named by its title ("Close ad" for a close control) whose
/// action is a tap; pages are WebKit's own accessible objects, the browser and the store sheet
/// dialogs whose buttons GTK exposes by their labels.
class AccessibleTree {
 public:
  explicit AccessibleTree(GtkWidget* area) : area_(area) {}
  ~AccessibleTree();
  AccessibleTree(const AccessibleTree&) = delete;
  AccessibleTree& operator=(const AccessibleTree&) = delete;

  /// Shows `elements`. `widgetFor` gives the widget a page or a sheet is shown by; `focused`
  /// is the button with the keyboard's focus.
  void update(const std::vector<Element>& elements,
              const std::function<GtkWidget*(const Element&)>& widgetFor,
              const platform::View* focused);

 private:
  GtkWidget* area_;
  /// The objects made for drawn elements, kept from one update to the next.
  std::map<const platform::View*, AtkObject*> made_;
};

}  // namespace zorva::gtk
