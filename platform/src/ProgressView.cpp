#include "zorva/platform/ProgressView.h"

#include <algorithm>
#include <cmath>

namespace zorva::platform {

std::shared_ptr<ProgressView> ProgressView::create(ProgressViewStyle style) {
  return std::shared_ptr<ProgressView>(new ProgressView(style));
}

void ProgressView::setProgress(float progress) {
  const float clamped = std::isnan(progress) ? 0.0f : std::clamp(progress, 0.0f, 1.0f);
  if (clamped == progress_) return;
  progress_ = clamped;
  layer()->setNeedsDisplay();
}

void ProgressView::setProgressTintColor(std::optional<Color> color) {
  progressTint_ = color;
  layer()->setNeedsDisplay();
}

void ProgressView::setTrackTintColor(std::optional<Color> color) {
  trackTint_ = color;
  layer()->setNeedsDisplay();
}

}  // namespace zorva::platform
