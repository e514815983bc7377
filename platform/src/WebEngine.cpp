#include "zorva/platform/WebEngine.h"

#include <mutex>

#include "zorva/platform/HeadlessWebEngine.h"

namespace zorva::platform {

namespace {
std::mutex factoryMutex;
WebEngine::Factory factory;
}  // namespace

void WebEngine::setFactory(Factory newFactory) {
  std::lock_guard lock(factoryMutex);
  factory = std::move(newFactory);
}

std::shared_ptr<WebEngine> WebEngine::make(std::weak_ptr<WebEngineClient> client,
                                           const WebViewConfiguration& configuration) {
  Factory chosen;
  {
    std::lock_guard lock(factoryMutex);
    chosen = factory;
  }
  if (chosen) {
    if (auto engine = chosen(client, configuration)) return engine;
  }
  return HeadlessWebEngine::create(std::move(client));
}

}  // namespace zorva::platform
