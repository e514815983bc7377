#include "zorva/platform/Layer.h"

#include <algorithm>

namespace zorva::platform {

std::shared_ptr<Layer> Layer::create() { return std::shared_ptr<Layer>(new Layer()); }

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
}

void Layer::removeFromSuperlayer() {
  auto parent = superlayer_.lock();
  superlayer_.reset();
  if (!parent) return;
  auto& siblings = parent->sublayers_;
  siblings.erase(std::remove_if(siblings.begin(), siblings.end(),
                                [this](const auto& layer) { return layer.get() == this; }),
                 siblings.end());
}

}  // namespace zorva::platform
