#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "zorva/platform/Color.h"
#include "zorva/platform/Geometry.h"
#include "zorva/platform/Layer.h"
#include "zorva/platform/LayoutConstraint.h"

namespace zorva::platform {

class Window;

/// A rectangle of the interface tree. Plain data a host renders and a test inspects: frame,
/// subviews, layer, colour, visibility; plus the hooks subclasses override (`layoutSubviews`,
/// `didMoveToWindow`, `touchesEnded`). Views are main-thread objects.
///
/// Subclasses are made through a static `create` of their own that constructs with `new` and
/// only then adds subviews (a view finds itself through `shared_from_this`).
class View : public std::enable_shared_from_this<View> {
 public:
  static std::shared_ptr<View> create(const Rect& frame = Rect());
  virtual ~View() = default;
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  Rect frame() const { return frame_; }
  /// Moves and resizes the view; a new size asks for a layout pass.
  void setFrame(const Rect& frame);
  /// The view in its own coordinates: origin (0, 0), the frame's size.
  Rect bounds() const { return Rect(0, 0, frame_.size.width, frame_.size.height); }

  std::shared_ptr<View> superview() const { return superview_.lock(); }
  const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
  /// The window at the root of this view's tree, or null when the tree hangs in no window.
  virtual std::shared_ptr<Window> window() const;

  /// Appends `view` on top of the subviews (taking it from its former superview). `didMoveToWindow`
  /// runs on every view of the moved tree whose window changed.
  void addSubview(const std::shared_ptr<View>& view);
  void insertSubview(const std::shared_ptr<View>& view, std::size_t index);
  void removeFromSuperview();
  /// True when `view` is this view or lies beneath it.
  bool isDescendantOfView(const View& view) const;

  const std::shared_ptr<Layer>& layer() const { return layer_; }

  const std::optional<Color>& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(std::optional<Color> color);
  /// The view's opacity, 0...1 (the layer's opacity).
  double alpha() const { return layer_->opacity(); }
  void setAlpha(double alpha) { layer_->setOpacity(static_cast<float>(alpha)); }
  bool isOpaque() const { return opaque_; }
  void setOpaque(bool opaque) { opaque_ = opaque; }
  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden);
  /// Whether subviews are cut at the view's bounds (the layer's `masksToBounds`; off by default).
  bool clipsToBounds() const { return layer_->masksToBounds(); }
  void setClipsToBounds(bool clips) { layer_->setMasksToBounds(clips); }

  /// The deepest view under `point` (in this view's coordinates) that can take a touch: this
  /// view or one of its subviews, the topmost first. Hidden views, nearly transparent ones
  /// (alpha below 0.01) and everything outside a view's bounds — its subviews included — take
  /// none. Null when this view takes none.
  std::shared_ptr<View> hitTest(const Point& point);
  /// `point`, given in this view's coordinates, in the coordinates of its window (unchanged
  /// when the view hangs in none).
  Point convertPointToWindow(const Point& point) const;

  /// True (the default) when the frame is set by hand; false when constraints place the view.
  bool translatesAutoresizingMaskIntoConstraints() const { return translatesAutoresizingMask_; }
  void setTranslatesAutoresizingMaskIntoConstraints(bool flag) {
    translatesAutoresizingMask_ = flag;
  }
  bool autoresizesSubviews() const { return autoresizesSubviews_; }
  void setAutoresizesSubviews(bool flag) { autoresizesSubviews_ = flag; }

  /// The active constraints whose first item is this view.
  const std::vector<std::shared_ptr<LayoutConstraint>>& constraints() const { return constraints_; }

  /// Asks for a layout pass at the next `layoutIfNeeded`.
  void setNeedsLayout() {
    needsLayout_ = true;
    layer_->setNeedsDisplay();
  }
  bool needsLayout() const { return needsLayout_; }
  /// Runs the pending layout of this tree, top down: a view that needs layout first places the
  /// subviews that constraints govern (constraints between a subview and this view, or a subview
  /// and a constant), then runs `layoutSubviews`; then its subviews do the same.
  void layoutIfNeeded();

  /// Hook: the view's size or constraints changed. Overrides call the base first.
  virtual void layoutSubviews() {}
  /// Hook: the view entered a window or left one (`window()` tells which).
  virtual void didMoveToWindow() {}
  /// Hook: a finger was lifted on the view. The default passes the touch to the superview, as a
  /// responder chain would. Hosts and tests call it to tap.
  virtual void touchesEnded();

 protected:
  explicit View(const Rect& frame);

 private:
  friend class LayoutConstraint;
  void installConstraint(const std::shared_ptr<LayoutConstraint>& constraint);
  void uninstallConstraint(const LayoutConstraint& constraint);
  void applyConstraintsToSubviews();
  void notifyWindowChange(const std::shared_ptr<Window>& before);
  std::shared_ptr<View> rootView() const;

  Rect frame_;
  std::weak_ptr<View> superview_;
  std::vector<std::shared_ptr<View>> subviews_;
  std::shared_ptr<Layer> layer_;
  std::optional<Color> backgroundColor_;
  bool opaque_ = true;
  bool hidden_ = false;
  bool translatesAutoresizingMask_ = true;
  bool autoresizesSubviews_ = true;
  bool needsLayout_ = true;
  std::vector<std::shared_ptr<LayoutConstraint>> constraints_;
};

}  // namespace zorva::platform
