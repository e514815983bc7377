#include "zorva/platform/View.h"

#include <algorithm>

#include "zorva/platform/Window.h"

namespace zorva::platform {

namespace {

struct Span {
  std::optional<double> start, end, length, center;
};

// Where `attribute` of a view with bounds `bounds` lies, in those bounds' coordinates.
double edge(const Rect& bounds, LayoutAttribute attribute) {
  switch (attribute) {
    case LayoutAttribute::Right:
    case LayoutAttribute::Trailing:
    case LayoutAttribute::Width:
      return bounds.size.width;
    case LayoutAttribute::Bottom:
    case LayoutAttribute::Height:
      return bounds.size.height;
    case LayoutAttribute::CenterX:
      return bounds.size.width / 2;
    case LayoutAttribute::CenterY:
      return bounds.size.height / 2;
    default:
      return 0;
  }
}

// Solves one axis from what the constraints fixed, keeping the old values where they say nothing.
void solve(const Span& span, double& origin, double& length) {
  if (span.length) length = *span.length;
  if (span.start && span.end && !span.length) length = *span.end - *span.start;
  if (span.start) {
    origin = *span.start;
  } else if (span.end) {
    origin = *span.end - length;
  } else if (span.center) {
    origin = *span.center - length / 2;
  }
}

}  // namespace

std::shared_ptr<View> View::create(const Rect& frame) {
  return std::shared_ptr<View>(new View(frame));
}

View::View(const Rect& frame) : frame_(frame), layer_(Layer::create()) { layer_->setFrame(frame); }

void View::setFrame(const Rect& frame) {
  if (frame.size != frame_.size) needsLayout_ = true;
  frame_ = frame;
  layer_->setFrame(frame);
}

std::shared_ptr<View> View::rootView() const {
  auto root = std::const_pointer_cast<View>(shared_from_this());
  while (auto parent = root->superview()) root = parent;
  return root;
}

std::shared_ptr<Window> View::window() const {
  auto root = rootView();
  return std::dynamic_pointer_cast<Window>(root);
}

void View::addSubview(const std::shared_ptr<View>& view) { insertSubview(view, subviews_.size()); }

void View::insertSubview(const std::shared_ptr<View>& view, std::size_t index) {
  if (!view || view.get() == this || isDescendantOfView(*view)) return;
  auto keep = view;
  auto before = keep->window();
  if (keep->superview()) {
    auto oldParent = keep->superview();
    auto& siblings = oldParent->subviews_;
    siblings.erase(std::remove(siblings.begin(), siblings.end(), keep), siblings.end());
    keep->superview_.reset();
  }
  index = std::min(index, subviews_.size());
  subviews_.insert(subviews_.begin() + static_cast<std::ptrdiff_t>(index), keep);
  keep->superview_ = weak_from_this();
  // Subview layers follow the subview order; hand-inserted layers keep their places below.
  std::size_t layerIndex = layer_->sublayers().size();
  if (index + 1 < subviews_.size()) {
    const auto& sublayers = layer_->sublayers();
    auto above = std::find(sublayers.begin(), sublayers.end(), subviews_[index + 1]->layer_);
    layerIndex = static_cast<std::size_t>(above - sublayers.begin());
  }
  layer_->insertSublayer(keep->layer_, layerIndex);
  needsLayout_ = true;
  keep->notifyWindowChange(before);
}

void View::removeFromSuperview() {
  auto parent = superview();
  if (!parent) return;
  auto keep = shared_from_this();
  auto before = window();
  auto& siblings = parent->subviews_;
  siblings.erase(std::remove(siblings.begin(), siblings.end(), keep), siblings.end());
  superview_.reset();
  layer_->removeFromSuperlayer();
  notifyWindowChange(before);
}

bool View::isDescendantOfView(const View& view) const {
  for (const View* v = this; v; v = v->superview_.lock().get()) {
    if (v == &view) return true;
  }
  return false;
}

void View::notifyWindowChange(const std::shared_ptr<Window>& before) {
  if (window() == before) return;
  // A copy: a hook may rearrange the tree it is told about.
  std::vector<std::shared_ptr<View>> tree{shared_from_this()};
  for (std::size_t i = 0; i < tree.size(); ++i) {
    for (const auto& sub : tree[i]->subviews_) tree.push_back(sub);
  }
  for (const auto& view : tree) view->didMoveToWindow();
}

void View::setBackgroundColor(std::optional<Color> color) {
  backgroundColor_ = color;
  layer_->setNeedsDisplay();
}

void View::setHidden(bool hidden) {
  hidden_ = hidden;
  layer_->setNeedsDisplay();
}

std::shared_ptr<View> View::hitTest(const Point& point) {
  if (hidden_ || alpha() < 0.01) return nullptr;
  if (point.x < 0 || point.y < 0 || point.x >= frame_.size.width || point.y >= frame_.size.height) {
    return nullptr;
  }
  for (auto it = subviews_.rbegin(); it != subviews_.rend(); ++it) {
    const Rect& sub = (*it)->frame_;
    if (auto hit = (*it)->hitTest(Point{point.x - sub.origin.x, point.y - sub.origin.y})) {
      return hit;
    }
  }
  return shared_from_this();
}

Point View::convertPointToWindow(const Point& point) const {
  Point result = point;
  for (auto view = superview(), child = std::const_pointer_cast<View>(shared_from_this()); view;
       child = view, view = view->superview()) {
    result.x += child->frame_.origin.x;
    result.y += child->frame_.origin.y;
  }
  return result;
}

void View::touchesEnded() {
  if (auto parent = superview()) parent->touchesEnded();
}

void View::installConstraint(const std::shared_ptr<LayoutConstraint>& constraint) {
  constraints_.push_back(constraint);
  if (auto parent = superview()) parent->setNeedsLayout();
}

void View::uninstallConstraint(const LayoutConstraint& constraint) {
  std::erase_if(constraints_, [&](const auto& c) { return c.get() == &constraint; });
  if (auto parent = superview()) parent->setNeedsLayout();
}

void View::layoutIfNeeded() {
  auto keep = shared_from_this();
  if (needsLayout_) {
    needsLayout_ = false;
    applyConstraintsToSubviews();
    layoutSubviews();
  }
  // A copy: layoutSubviews may add or remove subviews.
  auto subviews = subviews_;
  for (const auto& sub : subviews) sub->layoutIfNeeded();
}

void View::applyConstraintsToSubviews() {
  const Rect area = bounds();
  for (const auto& sub : subviews_) {
    // A view that still translates its frame into constraints keeps the frame it was given.
    if (sub->translatesAutoresizingMask_ || sub->constraints_.empty()) continue;
    Span horizontal, vertical;
    for (const auto& c : sub->constraints_) {
      auto second = c->secondItem();
      if (c->relation() != LayoutRelation::Equal || (second && second.get() != this)) continue;
      const double value =
          (second ? edge(area, c->secondAttribute()) * c->multiplier() : 0) + c->constant();
      switch (c->firstAttribute()) {
        case LayoutAttribute::Left:
        case LayoutAttribute::Leading:
          horizontal.start = value;
          break;
        case LayoutAttribute::Right:
        case LayoutAttribute::Trailing:
          horizontal.end = value;
          break;
        case LayoutAttribute::Width:
          horizontal.length = value;
          break;
        case LayoutAttribute::CenterX:
          horizontal.center = value;
          break;
        case LayoutAttribute::Top:
          vertical.start = value;
          break;
        case LayoutAttribute::Bottom:
          vertical.end = value;
          break;
        case LayoutAttribute::Height:
          vertical.length = value;
          break;
        case LayoutAttribute::CenterY:
          vertical.center = value;
          break;
        case LayoutAttribute::NotAnAttribute:
          break;
      }
    }
    Rect frame = sub->frame_;
    solve(horizontal, frame.origin.x, frame.size.width);
    solve(vertical, frame.origin.y, frame.size.height);
    sub->setFrame(frame);
  }
}

}  // namespace zorva::platform
