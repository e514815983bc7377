#pragma once

#include <memory>
#include <optional>

#include "zorva/platform/URLRequest.h"

namespace zorva::platform {

/// Why a navigation happens, numbered as on the phone platform.
enum class NavigationType : long {
  LinkActivated = 0,
  FormSubmitted = 1,
  BackForward = 2,
  Reload = 3,
  FormResubmitted = 4,
  Other = -1,
};

enum class NavigationActionPolicy : long { Cancel = 0, Allow = 1 };

/// The frame a navigation or a script dialog belongs to.
struct FrameInfo {
  bool mainFrame = true;
};

/// What a page (or the app) asked to load. `targetFrame` is absent when the load asks for a new
/// window.
struct NavigationAction {
  URLRequest request;
  NavigationType navigationType = NavigationType::Other;
  std::optional<FrameInfo> targetFrame;
};

/// The features a page asked of a new window (none are modelled).
struct WindowFeatures {};

/// One main-frame load, from the policy decision to its finish or failure. Its identity ties
/// the reports of one load together.
class Navigation {
 public:
  static std::shared_ptr<Navigation> create(URLRequest request) {
    return std::shared_ptr<Navigation>(new Navigation(std::move(request)));
  }
  const URLRequest& request() const { return request_; }

 private:
  explicit Navigation(URLRequest request) : request_(std::move(request)) {}
  URLRequest request_;
};

}  // namespace zorva::platform
