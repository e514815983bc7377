// A process the tracking tests run beside their own and kill with SIGKILL. Arguments:
//   send <queue file> <URL>...  hands the URLs over with the tracking transport on (leases of
//                               2 s, requests of at most 1 s), then waits
//   hold <queue file>           holds the file's write lock in an open transaction, then waits
#include <sqlite3.h>
#include <unistd.h>
#include <zorva/ZorvaSDK.h>

#include <string>

#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"
#include "Network/ZVTrackingTransport.h"

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string mode = argv[1];
  if (mode == "hold") {
    sqlite3* db = nullptr;
    if (sqlite3_open(argv[2], &db) != SQLITE_OK ||
        sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
      return 1;
    }
  } else {
    using namespace std::chrono_literals;
    zorva::ZVTrackingTransport::Options options;
    options.firstDelay = 20ms;
    options.maxDelay = 50ms;
    options.lease = 2s;
    zorva::ZVTrackingTransport::setOptionsForTesting(options);
    auto sdk = zorva::ZorvaSDK::shared();
    sdk->setTrackingQueuePath(argv[2]);
    sdk->setTrackingTransport(true);
    zorva::ZVInstanceFactory::sharedNetworkhandler()->fetchUrls({argv + 3, argv + argc}, nullptr);
  }
  for (;;) pause();
}
