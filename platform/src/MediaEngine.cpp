#include "zorva/platform/MediaEngine.h"

#include <mutex>

#include "zorva/platform/HeadlessMediaEngine.h"

namespace zorva::platform {

namespace {
std::mutex factoryMutex;
MediaEngine::Factory factory;
}  // namespace

void MediaEngine::setFactory(Factory newFactory) {
  std::lock_guard lock(factoryMutex);
  factory = std::move(newFactory);
}

std::shared_ptr<MediaEngine> MediaEngine::make(std::weak_ptr<MediaEngineClient> client) {
  Factory chosen;
  {
    std::lock_guard lock(factoryMutex);
    chosen = factory;
  }
  if (chosen) {
    if (auto engine = chosen(client)) return engine;
  }
  return HeadlessMediaEngine::create(std::move(client));
}

}  // namespace zorva::platform
