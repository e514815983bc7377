#include "zorva/platform/LayoutConstraint.h"

#include "zorva/platform/View.h"

namespace zorva::platform {

std::shared_ptr<LayoutConstraint> LayoutConstraint::constraintWithItem(
    const std::shared_ptr<View>& firstItem, LayoutAttribute firstAttribute, LayoutRelation relation,
    const std::shared_ptr<View>& secondItem, LayoutAttribute secondAttribute, double multiplier,
    double constant) {
  auto constraint = std::shared_ptr<LayoutConstraint>(new LayoutConstraint());
  constraint->firstItem_ = firstItem;
  constraint->firstAttribute_ = firstAttribute;
  constraint->relation_ = relation;
  constraint->secondItem_ = secondItem;
  constraint->secondAttribute_ = secondAttribute;
  constraint->multiplier_ = multiplier;
  constraint->constant_ = constant;
  return constraint;
}

void LayoutConstraint::activateConstraints(
    const std::vector<std::shared_ptr<LayoutConstraint>>& constraints) {
  for (const auto& constraint : constraints) {
    if (constraint) constraint->setActive(true);
  }
}

void LayoutConstraint::deactivateConstraints(
    const std::vector<std::shared_ptr<LayoutConstraint>>& constraints) {
  for (const auto& constraint : constraints) {
    if (constraint) constraint->setActive(false);
  }
}

void LayoutConstraint::setActive(bool active) {
  if (active == active_) return;
  auto first = firstItem_.lock();
  if (!first) return;
  active_ = active;
  // The first item keeps the constraint while it is active, as the platform's views do.
  if (active) {
    first->installConstraint(shared_from_this());
  } else {
    first->uninstallConstraint(*this);
  }
}

}  // namespace zorva::platform
