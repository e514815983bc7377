#pragma once

#include <memory>
#include <vector>

#include "zorva/platform/Geometry.h"

namespace zorva::platform {

/// The drawing node behind every view. A view's layer holds the layers of its subviews as
/// sublayers, in the same order, so layers inserted by hand (a video layer at index 0) sit
/// below or between them exactly as they would on screen. Main thread only.
class Layer : public std::enable_shared_from_this<Layer> {
 public:
  static std::shared_ptr<Layer> create();
  virtual ~Layer() = default;

  Rect frame() const { return frame_; }
  void setFrame(const Rect& frame) { frame_ = frame; }
  double cornerRadius() const { return cornerRadius_; }
  void setCornerRadius(double radius) { cornerRadius_ = radius; }
  float opacity() const { return opacity_; }
  void setOpacity(float opacity) { opacity_ = opacity; }

  const std::vector<std::shared_ptr<Layer>>& sublayers() const { return sublayers_; }
  std::shared_ptr<Layer> superlayer() const { return superlayer_.lock(); }

  /// Appends `layer` on top (taking it from its former superlayer).
  void addSublayer(const std::shared_ptr<Layer>& layer);
  /// Inserts `layer` at `index` (clamped to the number of sublayers); index 0 is the lowest.
  void insertSublayer(const std::shared_ptr<Layer>& layer, std::size_t index);
  void removeFromSuperlayer();

 protected:
  Layer() = default;

 private:
  Rect frame_;
  double cornerRadius_ = 0;
  float opacity_ = 1;
  std::vector<std::shared_ptr<Layer>> sublayers_;
  std::weak_ptr<Layer> superlayer_;
};

}  // namespace zorva::platform
