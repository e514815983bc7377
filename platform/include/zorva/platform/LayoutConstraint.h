#pragma once

#include <memory>
#include <vector>

namespace zorva::platform {

class View;

/// Attributes, numbered as on the phone platform. Leading and trailing are left and right (the
/// layer lays out left to right).
enum class LayoutAttribute {
  NotAnAttribute = 0,
  Left = 1,
  Right = 2,
  Top = 3,
  Bottom = 4,
  Leading = 5,
  Trailing = 6,
  Width = 7,
  Height = 8,
  CenterX = 9,
  CenterY = 10,
};

enum class LayoutRelation { LessThanOrEqual = -1, Equal = 0, GreaterThanOrEqual = 1 };

/// One linear relation "first.attribute relation second.attribute × multiplier + constant".
/// Items are held weakly: a view keeps its constraints, a constraint never keeps a view.
/// Activating a constraint installs it on its first item, whose superview's next layout pass
/// applies it (see `View::layoutIfNeeded`). Main thread only.
class LayoutConstraint : public std::enable_shared_from_this<LayoutConstraint> {
 public:
  /// A constraint; `secondItem` may be null for a constant (width = 32).
  static std::shared_ptr<LayoutConstraint> constraintWithItem(
      const std::shared_ptr<View>& firstItem, LayoutAttribute firstAttribute,
      LayoutRelation relation, const std::shared_ptr<View>& secondItem,
      LayoutAttribute secondAttribute, double multiplier, double constant);

  /// Activates every constraint of `constraints` together.
  static void activateConstraints(
      const std::vector<std::shared_ptr<LayoutConstraint>>& constraints);
  static void deactivateConstraints(
      const std::vector<std::shared_ptr<LayoutConstraint>>& constraints);

  std::shared_ptr<View> firstItem() const { return firstItem_.lock(); }
  LayoutAttribute firstAttribute() const { return firstAttribute_; }
  LayoutRelation relation() const { return relation_; }
  std::shared_ptr<View> secondItem() const { return secondItem_.lock(); }
  LayoutAttribute secondAttribute() const { return secondAttribute_; }
  double multiplier() const { return multiplier_; }
  double constant() const { return constant_; }
  void setConstant(double constant) { constant_ = constant; }
  bool isActive() const { return active_; }
  void setActive(bool active);

 private:
  LayoutConstraint() = default;

  std::weak_ptr<View> firstItem_;
  LayoutAttribute firstAttribute_ = LayoutAttribute::NotAnAttribute;
  LayoutRelation relation_ = LayoutRelation::Equal;
  std::weak_ptr<View> secondItem_;
  LayoutAttribute secondAttribute_ = LayoutAttribute::NotAnAttribute;
  double multiplier_ = 1;
  double constant_ = 0;
  bool active_ = false;
};

}  // namespace zorva::platform
