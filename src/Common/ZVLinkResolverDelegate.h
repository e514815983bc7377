#pragma once

namespace zorva {

class ZVLinkResolver;

/// Hears when a click-through covers the screen and when it has gone. Both reports are sent
/// unconditionally, on the main thread.
class ZVLinkResolverDelegate {
 public:
  virtual ~ZVLinkResolverDelegate() = default;

  virtual void resolverWillPresentModal(ZVLinkResolver& resolver) = 0;
  virtual void resolverDidDismissModal(ZVLinkResolver& resolver) = 0;
};

}  // namespace zorva
