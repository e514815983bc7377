#include "zorva/platform/Layer.h"

#include <algorithm>

namespace zorva::platform {

std::shared_ptr<Layer> Layer::create() { return std::shared_ptr<Layer>(new Layer()); }

void Layer::setNeedsDisplay() const {
  std::shared_ptr<const Layer> root;
  for (auto up = superlayer_.lock(); up; up = up->superlayer_.lock()) root = up;
  const Layer& top = root ? *root : *this;
  if (top.displayHandler_) top.displayHandler_();
}

void Layer::setFrame(const Rect& frame) {
  if (frame == frame_) return;
  frame_ = frame;
  setNeedsDisplay();
}

void Layer::setCornerRadius(double radius) {
  cornerRadius_ = radius;
  setNeedsDisplay();
}

void Layer::setOpacity(float opacity) {
  opacity_ = opacity;
  setNeedsDisplay();
}

void Layer::setBorderWidth(double width) {
  borderWidth_ = width;
  setNeedsDisplay();
}

void Layer::setBorderColor(std::optional<Color> color) {
  borderColor_ = color;
  setNeedsDisplay();
}

void Layer::setMasksToBounds(bool masks) {
  masksToBounds_ = masks;
  setNeedsDisplay();
}

void Layer::addSublayer(const std::shared_ptr<Layer>& layer) {
  insertSublayer(layer, sublayers_.size());
}

void Layer::insertSublayer(const std::shared_ptr<Layer>& layer, std::size_t index) {
  if (!layer || layer.get() == this) return;
  auto keep = layer;  // removal from the old superlayer may drop the last other reference
  keep->removeFromSuperlayer();
  index = std::min(index, sublayers_.size());
  sublayers_.insert(sublayers_.begin() + static_cast<std::ptrdiff_t>(index), keep);
  keep->superlayer_ = weak_from_this();
  setNeedsDisplay();
}

void Layer::removeFromSuperlayer() {
  auto parent = superlayer_.lock();
  superlayer_.reset();
  if (!parent) return;
  auto& siblings = parent->sublayers_;
  siblings.erase(std::remove_if(siblings.begin(), siblings.end(),
                                [this](const auto& layer) { return layer.get() == this; }),
                 siblings.end());
  parent->setNeedsDisplay();
}

}  // namespace zorva::platform
