#pragma once

#include <memory>

#include "zorva/platform/Layer.h"
#include "zorva/platform/Player.h"

namespace zorva::platform {

/// How video fills its layer: fit inside keeping the aspect ratio (the default), fill keeping
/// the aspect ratio, or stretch.
enum class LayerVideoGravity { ResizeAspect, ResizeAspectFill, Resize };

/// The layer a player's video is drawn in (`AVPlayerLayer`). Main thread only.
class PlayerLayer : public Layer {
 public:
  /// `playerLayerWithPlayer`.
  static std::shared_ptr<PlayerLayer> create(std::shared_ptr<Player> player);

  const std::shared_ptr<Player>& player() const { return player_; }
  LayerVideoGravity videoGravity() const { return videoGravity_; }
  void setVideoGravity(LayerVideoGravity gravity);

 private:
  explicit PlayerLayer(std::shared_ptr<Player> player) : player_(std::move(player)) {}

  std::shared_ptr<Player> player_;
  LayerVideoGravity videoGravity_ = LayerVideoGravity::ResizeAspect;
};

}  // namespace zorva::platform
