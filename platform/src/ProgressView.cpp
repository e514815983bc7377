#include "zorva/platform/ProgressView.h"

#include <algorithm>
#include <cmath>

namespace zorva::platform {

std::shared_ptr<ProgressView> ProgressView::create(ProgressViewStyle style) {
  return std::shared_ptr<ProgressView>(new ProgressView(style));
}

void ProgressView::setProgress(float progress) {
  progress_ = std::isnan(progress) ? 0.0f : std::clamp(progress, 0.0f, 1.0f);
}

}  // namespace zorva::platform
