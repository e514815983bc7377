#pragma once

#include <memory>

#include "zorva/platform/View.h"

namespace zorva::platform {

enum class ScrollViewContentInsetAdjustmentBehavior : long {
  Automatic = 0,
  ScrollableAxes = 1,
  Never = 2,
  Always = 3,
};

/// Receives scroll reports. Every report is optional.
class ScrollViewDelegate {
 public:
  virtual ~ScrollViewDelegate() = default;
};

/// A view that scrolls its content. Only the flags the SDK sets are modelled. Main thread only.
class ScrollView : public View {
 public:
  static std::shared_ptr<ScrollView> create(const Rect& frame) {
    return std::shared_ptr<ScrollView>(new ScrollView(frame));
  }

  bool isScrollEnabled() const { return scrollEnabled_; }
  void setScrollEnabled(bool enabled) { scrollEnabled_ = enabled; }
  ScrollViewContentInsetAdjustmentBehavior contentInsetAdjustmentBehavior() const {
    return insetBehavior_;
  }
  void setContentInsetAdjustmentBehavior(ScrollViewContentInsetAdjustmentBehavior behavior) {
    insetBehavior_ = behavior;
  }
  std::shared_ptr<ScrollViewDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<ScrollViewDelegate> delegate) { delegate_ = std::move(delegate); }

 private:
  explicit ScrollView(const Rect& frame) : View(frame) {}

  bool scrollEnabled_ = true;
  ScrollViewContentInsetAdjustmentBehavior insetBehavior_ =
      ScrollViewContentInsetAdjustmentBehavior::Automatic;
  std::weak_ptr<ScrollViewDelegate> delegate_;
};

}  // namespace zorva::platform
