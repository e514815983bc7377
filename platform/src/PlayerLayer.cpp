#include "zorva/platform/PlayerLayer.h"

namespace zorva::platform {

std::shared_ptr<PlayerLayer> PlayerLayer::create(std::shared_ptr<Player> player) {
  return std::shared_ptr<PlayerLayer>(new PlayerLayer(std::move(player)));
}

void PlayerLayer::setVideoGravity(LayerVideoGravity gravity) {
  videoGravity_ = gravity;
  setNeedsDisplay();
}

}  // namespace zorva::platform
