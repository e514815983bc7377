// A process the tracking tests kill with SIGKILL: hands the URLs over with the tracking
// transport on (leases of 2 s), then waits. Arguments: the queue's file, the URLs.
#include <unistd.h>
#include <zorva/ZorvaSDK.h>

#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"
#include "Network/ZVTrackingTransport.h"

int main(int argc, char** argv) {
  using namespace std::chrono_literals;
  if (argc < 2) return 2;
  zorva::ZVTrackingTransport::Options options;
  options.firstDelay = 20ms;
  options.maxDelay = 50ms;
  options.lease = 2s;
  zorva::ZVTrackingTransport::setOptionsForTesting(options);
  auto sdk = zorva::ZorvaSDK::shared();
  sdk->setTrackingQueuePath(argv[1]);
  sdk->setTrackingTransport(true);
  zorva::ZVInstanceFactory::sharedNetworkhandler()->fetchUrls({argv + 2, argv + argc}, nullptr);
  for (;;) pause();
}
