#include "SystemPanels.h"

#include <webkit2/webkit2.h>

#include "zorva/platform/SafariViewController.h"
#include "zorva/platform/StoreProductViewController.h"

namespace zorva::gtk {

namespace {

constexpr const char* kPanelStyle =
    ".zorva-panel { background-color: #ffffff; }"
    ".zorva-panel-bar { background-color: #f2f2f7; padding: 6px; }";

GtkWidget* styled(GtkWidget* widget, const char* className) {
  static GtkCssProvider* provider = [] {
    GtkCssProvider* css = gtk_css_provider_new();
    gtk_css_provider_load_from_data(css, kPanelStyle, -1, nullptr);
    return css;
  }();
  GtkStyleContext* context = gtk_widget_get_style_context(widget);
  gtk_style_context_add_provider(context, GTK_STYLE_PROVIDER(provider),
                                 GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  gtk_style_context_add_class(context, className);
  return widget;
}

// A bar with a button that plays the user closing the controller, and a title.
template <typename Controller>
GtkWidget* closingBar(const char* buttonLabel, const std::string& title,
                      const std::shared_ptr<Controller>& controller) {
  GtkWidget* bar = styled(gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8), "zorva-panel-bar");
  GtkWidget* button = gtk_button_new_with_label(buttonLabel);
  auto* weak = new std::weak_ptr<Controller>(controller);
  g_signal_connect_data(
      button, "clicked", G_CALLBACK(+[](GtkButton*, gpointer data) {
        if (auto c = static_cast<std::weak_ptr<Controller>*>(data)->lock()) c->finish();
      }),
      weak, [](gpointer data, GClosure*) { delete static_cast<std::weak_ptr<Controller>*>(data); },
      GConnectFlags(0));
  GtkWidget* label = gtk_label_new(title.c_str());
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  gtk_box_pack_start(GTK_BOX(bar), button, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(bar), label, TRUE, TRUE, 0);
  return bar;
}

std::string describe(const platform::Value& parameters) {
  std::string text;
  if (!parameters.is_object()) return text;
  for (const auto& [key, value] : parameters.items()) {
    if (!text.empty()) text += "\n";
    text += key + ": " + (value.is_string() ? value.get<std::string>() : value.dump());
  }
  return text;
}

}  // namespace

void paintsWhole(GtkWidget* page) {
  WebKitSettings* settings = webkit_web_view_get_settings(WEBKIT_WEB_VIEW(page));
  if (webkit_settings_get_hardware_acceleration_policy(settings) ==
      WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER) {
    return;
  }
  webkit_settings_set_hardware_acceleration_policy(settings,
                                                   WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
}

std::unique_ptr<SystemPanel> SystemPanel::browser(
    std::shared_ptr<platform::SafariViewController> controller) {
  std::unique_ptr<SystemPanel> panel(new SystemPanel());
  const std::string url = controller->url().absoluteString();
  GtkWidget* box = styled(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0), "zorva-panel");
  gtk_box_pack_start(GTK_BOX(box), closingBar("Done", url, controller), FALSE, FALSE, 0);
  GtkWidget* page = webkit_web_view_new();
  paintsWhole(page);
  webkit_web_view_load_uri(WEBKIT_WEB_VIEW(page), url.c_str());
  gtk_box_pack_start(GTK_BOX(box), page, TRUE, TRUE, 0);
  gtk_widget_show_all(box);
  panel->widget_ = GTK_WIDGET(g_object_ref_sink(box));
  return panel;
}

std::unique_ptr<SystemPanel> SystemPanel::storeSheet(
    std::shared_ptr<platform::StoreProductViewController> controller) {
  std::unique_ptr<SystemPanel> panel(new SystemPanel());
  GtkWidget* box = styled(gtk_box_new(GTK_ORIENTATION_VERTICAL, 12), "zorva-panel");
  gtk_box_pack_start(GTK_BOX(box), closingBar("Close", "App Store", controller), FALSE, FALSE, 0);
  panel->details_ = gtk_label_new("");
  gtk_label_set_selectable(GTK_LABEL(panel->details_), TRUE);
  gtk_label_set_line_wrap(GTK_LABEL(panel->details_), TRUE);
  // A signature has no break point of its own: it wraps anywhere rather than widen the sheet.
  gtk_label_set_line_wrap_mode(GTK_LABEL(panel->details_), PANGO_WRAP_WORD_CHAR);
  gtk_label_set_xalign(GTK_LABEL(panel->details_), 0);
  gtk_widget_set_margin_start(panel->details_, 16);
  gtk_widget_set_margin_end(panel->details_, 16);
  gtk_box_pack_start(GTK_BOX(box), panel->details_, FALSE, FALSE, 0);
  gtk_widget_show_all(box);
  panel->widget_ = GTK_WIDGET(g_object_ref_sink(box));
  panel->sheet_ = controller;
  panel->update();
  return panel;
}

SystemPanel::~SystemPanel() {
  gtk_widget_destroy(widget_);
  g_object_unref(widget_);
}

void SystemPanel::update() {
  auto sheet = sheet_.lock();
  if (!sheet) return;
  const auto& parameters = sheet->productParameters();
  std::string text = parameters ? describe(*parameters) : "";
  if (text == shown_) return;
  shown_ = std::move(text);
  gtk_label_set_text(GTK_LABEL(details_), shown_.c_str());
}

}  // namespace zorva::gtk
