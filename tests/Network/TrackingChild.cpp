// A process that hands one tracking URL over with the tracking transport on and then waits to be
// killed: the tracking tests kill it with SIGKILL while its request is in flight. Arguments: the
// queue's file, the URL.
#include <zorva/ZorvaSDK.h>

#include <unistd.h>

#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  auto sdk = zorva::ZorvaSDK::shared();
  sdk->setTrackingQueuePath(argv[1]);
  sdk->setTrackingTransport(true);
  zorva::ZVInstanceFactory::sharedNetworkhandler()->fetchUrls({argv[2]}, nullptr);
  for (;;) pause();
}
