#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zorva/platform/View.h"

namespace zorva::platform {

enum class ButtonType : long { Custom = 0, System = 1 };

/// Control states (bits; normal is none of them).
using ControlState = std::uint64_t;
inline constexpr ControlState kControlStateNormal = 0;
inline constexpr ControlState kControlStateHighlighted = 1u << 0;
inline constexpr ControlState kControlStateDisabled = 1u << 1;
inline constexpr ControlState kControlStateSelected = 1u << 2;

/// Control events (bits).
using ControlEvents = std::uint64_t;
inline constexpr ControlEvents kControlEventTouchDown = 1u << 0;
inline constexpr ControlEvents kControlEventTouchUpInside = 1u << 6;

/// A tappable view with a title per state. Actions receive the button as sender; an action that
/// must not keep its target alive captures it weakly. A lifted finger (`touchesEnded`) sends the
/// touch-up-inside actions. Main thread only.
class Button : public View {
 public:
  using Action = std::function<void(Button& sender)>;

  static std::shared_ptr<Button> buttonWithType(ButtonType type);

  ButtonType buttonType() const { return type_; }

  void setTitle(std::optional<std::string> title, ControlState state);
  /// The title for `state`, falling back to the normal state's.
  std::optional<std::string> titleForState(ControlState state) const;

  /// Runs `action` whenever one of `events` happens.
  void addTarget(Action action, ControlEvents events);
  /// Runs the actions registered for any of `events`, in registration order.
  void sendActionsForControlEvents(ControlEvents events);
  /// The union of events that have actions.
  ControlEvents allControlEvents() const;

  void touchesEnded() override;

 private:
  explicit Button(ButtonType type) : View(Rect()), type_(type) {}

  ButtonType type_;
  std::map<ControlState, std::string> titles_;
  std::vector<std::pair<ControlEvents, Action>> actions_;
};

}  // namespace zorva::platform
