#pragma once

#include <memory>

namespace zorva {

class ZVLocationManager;
class ZVNetworkHandler;

/// The process-wide instances of the SDK, each made on first use.
class ZVInstanceFactory {
 public:
  /// The one network handler every SDK request goes through.
  static std::shared_ptr<ZVNetworkHandler> sharedNetworkhandler();

  /// Test seam: replaces the shared network handler (nullptr: a fresh default one on next use).
  /// Production code never calls it.
  static void setSharedNetworkhandlerForTesting(std::shared_ptr<ZVNetworkHandler> handler);

  /// The one location manager of the process.
  static std::shared_ptr<ZVLocationManager> sharedLocationManager();

  /// Test seam: replaces the shared location manager (nullptr: a fresh one on next use).
  static void setSharedLocationManagerForTesting(std::shared_ptr<ZVLocationManager> manager);
};

}  // namespace zorva
