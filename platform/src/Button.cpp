#include "zorva/platform/Button.h"

namespace zorva::platform {

std::shared_ptr<Button> Button::buttonWithType(ButtonType type) {
  return std::shared_ptr<Button>(new Button(type));
}

void Button::setTitle(std::optional<std::string> title, ControlState state) {
  if (title) {
    titles_[state] = std::move(*title);
  } else {
    titles_.erase(state);
  }
  layer()->setNeedsDisplay();
}

std::optional<std::string> Button::titleForState(ControlState state) const {
  if (auto it = titles_.find(state); it != titles_.end()) return it->second;
  if (auto it = titles_.find(kControlStateNormal); it != titles_.end()) return it->second;
  return std::nullopt;
}

void Button::addTarget(Action action, ControlEvents events) {
  if (action && events) actions_.emplace_back(events, std::move(action));
}

void Button::sendActionsForControlEvents(ControlEvents events) {
  auto keep = shared_from_this();
  // A copy: an action may add actions, or drop the last reference to the button's owner.
  auto actions = actions_;
  for (auto& [mask, action] : actions) {
    if (mask & events) action(*this);
  }
}

ControlEvents Button::allControlEvents() const {
  ControlEvents all = 0;
  for (const auto& entry : actions_) all |= entry.first;
  return all;
}

void Button::touchesEnded() { sendActionsForControlEvents(kControlEventTouchUpInside); }

}  // namespace zorva::platform
