#pragma once

#include <memory>
#include <optional>

#include "zorva/platform/View.h"

namespace zorva::platform {

enum class ProgressViewStyle : long { Default = 0, Bar = 1 };

/// A bar that fills from the left with `progress` (0...1). Main thread only.
class ProgressView : public View {
 public:
  static std::shared_ptr<ProgressView> create(ProgressViewStyle style = ProgressViewStyle::Default);

  ProgressViewStyle progressViewStyle() const { return style_; }
  float progress() const { return progress_; }
  /// Clamped to 0...1; a NaN counts as 0.
  void setProgress(float progress);
  const std::optional<Color>& progressTintColor() const { return progressTint_; }
  void setProgressTintColor(std::optional<Color> color);
  const std::optional<Color>& trackTintColor() const { return trackTint_; }
  void setTrackTintColor(std::optional<Color> color);

 private:
  explicit ProgressView(ProgressViewStyle style) : View(Rect()), style_(style) {}

  ProgressViewStyle style_;
  float progress_ = 0;
  std::optional<Color> progressTint_;
  std::optional<Color> trackTint_;
};

}  // namespace zorva::platform
