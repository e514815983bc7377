#include "Scene.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>

#include "zorva/engines/WebKitWebEngine.h"
#include "zorva/platform/Button.h"
#include "zorva/platform/ProgressView.h"
#include "zorva/platform/SafariViewController.h"
#include "zorva/platform/StoreProductViewController.h"
#include "zorva/platform/WebView.h"
#include "zorva/platform/Window.h"

namespace zorva::gtk {

using platform::Color;
using platform::Rect;

namespace {

// The phone platform's defaults where a control has no colour of its own.
constexpr Color kTintColor{0.0, 122.0 / 255.0, 1.0, 1.0};
constexpr Color kTrackColor{229.0 / 255.0, 229.0 / 255.0, 234.0 / 255.0, 1.0};
constexpr double kTitlePoints = 15;
// The keyboard's focus ring: a line this wide, this far outside the control's edge.
constexpr Color kFocusColor{0.2, 0.52, 0.89, 1.0};
constexpr double kFocusWidth = 3, kFocusGap = 2;

Rect offset(const Rect& rect, const platform::Point& by) {
  return Rect(rect.origin.x + by.x, rect.origin.y + by.y, rect.size.width, rect.size.height);
}

class SceneBuilder {
 public:
  SceneBuilder(const platform::Window& window, const platform::View* focused) : focused_(focused) {
    // Presented controllers whose views the host shows as panels of its own.
    auto root = window.rootViewController();
    if (root) rootView_ = root->viewIfLoaded().get();
    for (auto controller = root; controller; controller = controller->presentedViewController()) {
      if (auto view = controller->viewIfLoaded()) controllers_[view.get()] = controller;
    }
  }

  Scene build(const std::shared_ptr<platform::Window>& window) {
    const Rect bounds = window->bounds();
    visit(window, platform::Point{0, 0}, bounds, 1.0, -1);
    return std::move(scene_);
  }

 private:
  void visit(const std::shared_ptr<platform::View>& view, const platform::Point& origin,
             const Rect& clip, double alpha, int parent) {
    if (view->isHidden()) return;
    const double opacity = alpha * view->alpha();
    if (opacity <= 0) return;
    // The window is the root: its frame is where it is, not where its contents are drawn.
    const auto superview = view->superview();
    const Rect frame = superview ? offset(view->frame(), origin) : view->bounds();
    if (native(view, frame, clip, opacity, parent)) return;

    parent = element(view, superview.get(), intersect(clip, frame), parent);
    drawOwn(*view, frame, clip, opacity);
    const Rect inner = view->clipsToBounds() ? intersect(clip, frame) : clip;
    std::map<const platform::Layer*, std::shared_ptr<platform::View>> subviews;
    for (const auto& sub : view->subviews()) subviews[sub->layer().get()] = sub;
    for (const auto& layer : view->layer()->sublayers()) {
      if (auto it = subviews.find(layer.get()); it != subviews.end()) {
        visit(it->second, frame.origin, inner, opacity, parent);
      } else if (auto video = std::dynamic_pointer_cast<platform::PlayerLayer>(layer)) {
        DrawOp op = base(DrawOp::Kind::Video, offset(video->frame(), frame.origin), inner,
                         opacity * video->opacity());
        op.video = video;
        op.gravity = video->videoGravity();
        op.takesPointer = true;
        scene_.items.emplace_back(std::move(op));
      }
    }
  }

  // The element `view` is, if any; returns the element its subviews lie in.
  int element(const std::shared_ptr<platform::View>& view, const platform::View* superview,
              const Rect& shown, int parent) {
    Element element{Element::Role::Ad, view, view.get(), {}, "Advertisement", shown, parent, false};
    if (auto it = controllers_.find(view.get());
        it != controllers_.end() && view.get() != rootView_) {
      element.role = Element::Role::Dialog;
      element.controller = it->second;
    } else if (const auto* button = dynamic_cast<const platform::Button*>(view.get())) {
      element.role = Element::Role::Button;
      // A presented controller's own button, over its content, is its way out.
      element.closes = superview && superview != rootView_ && controllers_.count(superview);
      element.name = element.closes
                         ? "Close ad"
                         : button->titleForState(platform::kControlStateNormal).value_or("");
    } else if (!rootView_ || superview != rootView_) {
      return parent;
    }
    scene_.elements.push_back(std::move(element));
    return static_cast<int>(scene_.elements.size()) - 1;
  }

  bool native(const std::shared_ptr<platform::View>& view, const Rect& frame, const Rect& clip,
              double opacity, int parent) {
    NativeItem item{NativeItem::Kind::WebPage, view,   nullptr, frame,
                    intersect(clip, frame),    opacity};
    if (auto it = controllers_.find(view.get()); it != controllers_.end()) {
      if (std::dynamic_pointer_cast<platform::SafariViewController>(it->second)) {
        item.kind = NativeItem::Kind::Browser;
      } else if (std::dynamic_pointer_cast<platform::StoreProductViewController>(it->second)) {
        item.kind = NativeItem::Kind::StoreSheet;
      } else {
        return false;
      }
      item.controller = it->second;
    } else if (auto web = std::dynamic_pointer_cast<platform::WebView>(view)) {
      // A page rendered by WebKit shows in WebKit's widget; a headless page has no pixels, so
      // only its background is drawn.
      if (!std::dynamic_pointer_cast<platform::WebKitWebEngine>(web->engine())) {
        scene_.headlessPage = true;
        return false;
      }
    } else {
      return false;
    }
    if (isEmpty(item.clip)) return true;
    Element element{Element::Role::Page, view,   view.get(), item.controller, "",
                    item.clip,           parent, false};
    if (item.kind == NativeItem::Kind::Browser) {
      element.name = std::static_pointer_cast<platform::SafariViewController>(item.controller)
                         ->url()
                         .absoluteString();
    } else if (item.kind == NativeItem::Kind::StoreSheet) {
      element.name = "App Store";
    }
    if (item.controller) element.role = Element::Role::Sheet;
    scene_.elements.push_back(std::move(element));
    scene_.items.emplace_back(std::move(item));
    return true;
  }

  void drawOwn(const platform::View& view, const Rect& frame, const Rect& clip, double opacity) {
    const auto& layer = *view.layer();
    if (const auto& background = view.backgroundColor(); background && background->alpha > 0) {
      DrawOp op = base(DrawOp::Kind::Fill, frame, clip, opacity);
      op.color = *background;
      op.radius = layer.cornerRadius();
      op.takesPointer = true;
      scene_.items.emplace_back(std::move(op));
    }
    if (layer.borderWidth() > 0) {
      DrawOp op = base(DrawOp::Kind::Border, frame, clip, opacity);
      op.color = layer.borderColor().value_or(Color::blackColor());
      op.radius = layer.cornerRadius();
      op.amount = layer.borderWidth();
      scene_.items.emplace_back(std::move(op));
    }
    if (const auto* button = dynamic_cast<const platform::Button*>(&view)) {
      DrawOp op = base(DrawOp::Kind::Title, frame, clip, opacity);
      op.text = button->titleForState(platform::kControlStateNormal).value_or("");
      op.color =
          button->buttonType() == platform::ButtonType::Custom ? Color::whiteColor() : kTintColor;
      op.takesPointer = true;
      scene_.items.emplace_back(std::move(op));
      if (&view == focused_) {
        const double out = kFocusGap + kFocusWidth;
        DrawOp ring = base(DrawOp::Kind::Border,
                           Rect(frame.origin.x - out, frame.origin.y - out,
                                frame.size.width + 2 * out, frame.size.height + 2 * out),
                           clip, 1.0);
        ring.color = kFocusColor;
        ring.amount = kFocusWidth;
        ring.radius = layer.cornerRadius() > 0 ? layer.cornerRadius() + out : 0;
        scene_.items.emplace_back(std::move(ring));
      }
    } else if (const auto* bar = dynamic_cast<const platform::ProgressView*>(&view)) {
      DrawOp op = base(DrawOp::Kind::Progress, frame, clip, opacity);
      op.amount = bar->progress();
      op.color = bar->progressTintColor().value_or(kTintColor);
      op.track = bar->trackTintColor().value_or(kTrackColor);
      op.takesPointer = true;
      scene_.items.emplace_back(std::move(op));
    }
  }

  static DrawOp base(DrawOp::Kind kind, const Rect& rect, const Rect& clip, double alpha) {
    DrawOp op;
    op.kind = kind;
    op.rect = rect;
    op.clip = clip;
    op.alpha = alpha;
    return op;
  }

  const platform::View* focused_;
  const platform::View* rootView_ = nullptr;
  std::map<const platform::View*, std::shared_ptr<platform::ViewController>> controllers_;
  Scene scene_;
};

void roundedRect(cairo_t* cr, const Rect& r, double radius) {
  radius = std::min({radius, r.size.width / 2, r.size.height / 2});
  if (radius <= 0) {
    cairo_rectangle(cr, r.origin.x, r.origin.y, r.size.width, r.size.height);
    return;
  }
  const double x = r.origin.x, y = r.origin.y, w = r.size.width, h = r.size.height;
  cairo_new_sub_path(cr);
  cairo_arc(cr, x + w - radius, y + radius, radius, -M_PI / 2, 0);
  cairo_arc(cr, x + w - radius, y + h - radius, radius, 0, M_PI / 2);
  cairo_arc(cr, x + radius, y + h - radius, radius, M_PI / 2, M_PI);
  cairo_arc(cr, x + radius, y + radius, radius, M_PI, 3 * M_PI / 2);
  cairo_close_path(cr);
}

void setColor(cairo_t* cr, const Color& color, double alpha) {
  cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha * alpha);
}

void paintTitle(cairo_t* cr, const DrawOp& op) {
  if (op.text.empty()) return;
  PangoLayout* layout = pango_cairo_create_layout(cr);
  PangoFontDescription* font = pango_font_description_from_string("Sans");
  pango_font_description_set_absolute_size(font, kTitlePoints * PANGO_SCALE);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  pango_layout_set_text(layout, op.text.c_str(), static_cast<int>(op.text.size()));
  int width = 0, height = 0;
  pango_layout_get_pixel_size(layout, &width, &height);
  setColor(cr, op.color, op.alpha);
  cairo_move_to(cr, op.rect.origin.x + (op.rect.size.width - width) / 2,
                op.rect.origin.y + (op.rect.size.height - height) / 2);
  pango_cairo_show_layout(cr, layout);
  g_object_unref(layout);
}

// The latest frame in the layer's rectangle, scaled as its gravity says: fitted inside with
// what is below showing in the bars, filling it with the overflow cut off, or stretched.
void paintVideo(cairo_t* cr, const DrawOp& op) {
  op.frames->withLatestFrame([&](const unsigned char* pixels, int width, int height, int stride) {
    cairo_surface_t* frame = cairo_image_surface_create_for_data(
        const_cast<unsigned char*>(pixels), CAIRO_FORMAT_RGB24, width, height, stride);
    const Rect& r = op.rect;
    const Rect picture = videoPicture(op, width, height);
    cairo_rectangle(cr, r.origin.x, r.origin.y, r.size.width, r.size.height);
    cairo_clip(cr);
    cairo_translate(cr, picture.origin.x, picture.origin.y);
    cairo_scale(cr, picture.size.width / width, picture.size.height / height);
    cairo_set_source_surface(cr, frame, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint_with_alpha(cr, op.alpha);
    cairo_surface_destroy(frame);
  });
}

}  // namespace

Rect intersect(const Rect& a, const Rect& b) {
  const double left = std::max(a.origin.x, b.origin.x);
  const double top = std::max(a.origin.y, b.origin.y);
  const double right = std::min(a.origin.x + a.size.width, b.origin.x + b.size.width);
  const double bottom = std::min(a.origin.y + a.size.height, b.origin.y + b.size.height);
  if (right <= left || bottom <= top) return Rect(left, top, 0, 0);
  return Rect(left, top, right - left, bottom - top);
}

bool isEmpty(const Rect& rect) { return rect.size.width <= 0 || rect.size.height <= 0; }

Scene buildScene(const std::shared_ptr<platform::Window>& window, const platform::View* focused) {
  return SceneBuilder(*window, focused).build(window);
}

Rect videoPicture(const DrawOp& op, int width, int height) {
  const Rect& r = op.rect;
  double sx = r.size.width / width, sy = r.size.height / height;
  if (op.gravity == platform::LayerVideoGravity::ResizeAspect) sx = sy = std::min(sx, sy);
  if (op.gravity == platform::LayerVideoGravity::ResizeAspectFill) sx = sy = std::max(sx, sy);
  return Rect(r.origin.x + (r.size.width - width * sx) / 2,
              r.origin.y + (r.size.height - height * sy) / 2, width * sx, height * sy);
}

Rect paintedArea(const DrawOp& op) {
  return op.kind == DrawOp::Kind::Title ? op.clip : intersect(op.rect, op.clip);
}

bool samePaint(const DrawOp& a, const DrawOp& b) {
  const bool sameVideo = !a.video.owner_before(b.video) && !b.video.owner_before(a.video);
  return a.kind == b.kind && a.rect == b.rect && a.clip == b.clip && a.alpha == b.alpha &&
         a.radius == b.radius && a.color == b.color && a.amount == b.amount && a.track == b.track &&
         a.text == b.text && sameVideo && a.gravity == b.gravity && a.frames == b.frames;
}

void paint(cairo_t* cr, const std::vector<DrawOp>& ops) {
  double left = 0, top = 0, right = 0, bottom = 0;
  cairo_clip_extents(cr, &left, &top, &right, &bottom);
  const Rect dirty(left, top, right - left, bottom - top);
  for (const DrawOp& op : ops) {
    if (isEmpty(intersect(paintedArea(op), dirty))) continue;
    cairo_save(cr);
    cairo_rectangle(cr, op.clip.origin.x, op.clip.origin.y, op.clip.size.width,
                    op.clip.size.height);
    cairo_clip(cr);
    switch (op.kind) {
      case DrawOp::Kind::Fill:
        roundedRect(cr, op.rect, op.radius);
        setColor(cr, op.color, op.alpha);
        cairo_fill(cr);
        break;
      case DrawOp::Kind::Border: {
        // Along the inside of the edge, as the platform draws a layer's border.
        const double half = op.amount / 2;
        const Rect inset(op.rect.origin.x + half, op.rect.origin.y + half,
                         op.rect.size.width - op.amount, op.rect.size.height - op.amount);
        roundedRect(cr, inset, std::max(0.0, op.radius - half));
        cairo_set_line_width(cr, op.amount);
        setColor(cr, op.color, op.alpha);
        cairo_stroke(cr);
        break;
      }
      case DrawOp::Kind::Title:
        paintTitle(cr, op);
        break;
      case DrawOp::Kind::Progress: {
        const Rect& r = op.rect;
        cairo_rectangle(cr, r.origin.x, r.origin.y, r.size.width, r.size.height);
        setColor(cr, op.track, op.alpha);
        cairo_fill(cr);
        cairo_rectangle(cr, r.origin.x, r.origin.y, r.size.width * op.amount, r.size.height);
        setColor(cr, op.color, op.alpha);
        cairo_fill(cr);
        break;
      }
      case DrawOp::Kind::Video:
        if (op.frames) paintVideo(cr, op);
        break;
    }
    cairo_restore(cr);
  }
}

cairo_rectangle_int_t pixelRect(const Rect& r) {
  const int x = static_cast<int>(std::floor(r.origin.x));
  const int y = static_cast<int>(std::floor(r.origin.y));
  return {x, y, static_cast<int>(std::ceil(r.origin.x + r.size.width)) - x,
          static_cast<int>(std::ceil(r.origin.y + r.size.height)) - y};
}

cairo_region_t* changedArea(const std::vector<DrawOp>& before, const std::vector<DrawOp>& after) {
  cairo_region_t* changed = cairo_region_create();
  for (std::size_t i = 0; i < std::max(before.size(), after.size()); ++i) {
    const DrawOp* old = i < before.size() ? &before[i] : nullptr;
    const DrawOp* now = i < after.size() ? &after[i] : nullptr;
    if (old && now && samePaint(*old, *now)) continue;
    for (const DrawOp* op : {old, now}) {
      if (!op) continue;
      const cairo_rectangle_int_t r = pixelRect(paintedArea(*op));
      cairo_region_union_rectangle(changed, &r);
    }
  }
  return changed;
}

}  // namespace zorva::gtk
