#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "zorva/platform/Color.h"
#include "zorva/platform/Geometry.h"

namespace zorva::platform {

/// The drawing node behind every view. A view's layer holds the layers of its subviews as
/// sublayers, in the same order, so layers inserted by hand (a video layer at index 0) sit
/// below or between them exactly as they would on screen. Main thread only.
///
/// Every setter that changes what is seen calls `setNeedsDisplay`, which tells the root of the
/// layer tree's display handler (a host showing the tree on a screen registers one on its
/// window, see `Window::setNeedsDisplayHandler`). Without a handler nothing happens.
class Layer : public std::enable_shared_from_this<Layer> {
 public:
  static std::shared_ptr<Layer> create();
  virtual ~Layer() = default;

  Rect frame() const { return frame_; }
  void setFrame(const Rect& frame);
  double cornerRadius() const { return cornerRadius_; }
  void setCornerRadius(double radius);
  float opacity() const { return opacity_; }
  void setOpacity(float opacity);
  /// A line drawn along the inside of the layer's (rounded) edge; none while the width is 0.
  double borderWidth() const { return borderWidth_; }
  void setBorderWidth(double width);
  /// Black when never set.
  const std::optional<Color>& borderColor() const { return borderColor_; }
  void setBorderColor(std::optional<Color> color);
  /// Whether sublayers are cut at the layer's bounds (off by default).
  bool masksToBounds() const { return masksToBounds_; }
  void setMasksToBounds(bool masks);

  /// Something this layer or a layer below it shows has changed: the display handler of the
  /// tree's root, if any, is called. Walks up the tree; allocates nothing.
  void setNeedsDisplay() const;
  /// Called on every change below this layer while it is the root of its tree.
  void setDisplayHandler(std::function<void()> handler) { displayHandler_ = std::move(handler); }

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
  double borderWidth_ = 0;
  std::optional<Color> borderColor_;
  bool masksToBounds_ = false;
  std::function<void()> displayHandler_;
  std::vector<std::shared_ptr<Layer>> sublayers_;
  std::weak_ptr<Layer> superlayer_;
};

}  // namespace zorva::platform
