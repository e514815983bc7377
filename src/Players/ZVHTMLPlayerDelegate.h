#pragma once

#include <zorva/ZVTypes.h>
#include <zorva/platform/Navigation.h>
#include <zorva/platform/URLRequest.h>

namespace zorva {

/// How the web-view wrapper reports to its owner (the display player, the non-linear VAST
/// player), on the main thread.
class ZVHTMLPlayerDelegate {
 public:
  virtual ~ZVHTMLPlayerDelegate() = default;

  /// The page finished loading.
  virtual void htmlPlayerDidPlayAd() = 0;
  virtual void htmlPlayerDidFailToPlayWithError(const Error& error) = 0;
  /// True lets the web view follow the navigation.
  virtual bool htmlPlayerShouldLoadRequest(const platform::URLRequest& request,
                                           platform::NavigationType navigationType) = 0;
};

}  // namespace zorva
