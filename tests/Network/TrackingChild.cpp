// A process the tracking tests kill with SIGKILL. Given the queue's file and URLs: hands the URLs
// over with the tracking transport on (leases of 2 s), then waits. Given "hold" and a database:
// holds its write lock in a transaction, says so with "<database>.held", then waits.
#include <sqlite3.h>
#include <unistd.h>
#include <zorva/ZorvaSDK.h>

#include <fstream>
#include <string_view>

#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"
#include "Network/ZVTrackingTransport.h"

int main(int argc, char** argv) {
  using namespace std::chrono_literals;
  if (argc < 2) return 2;
  if (std::string_view(argv[1]) == "hold") {
    sqlite3* db = nullptr;
    sqlite3_open(argv[2], &db);
    sqlite3_busy_timeout(db, 5000);
    if (sqlite3_exec(db, "BEGIN IMMEDIATE", {}, {}, {}) != SQLITE_OK) return 1;
    std::ofstream(std::string(argv[2]) + ".held");
  } else {
    zorva::ZVTrackingTransport::Options options;
    options.firstDelay = 20ms;
    options.maxDelay = 50ms;
    options.lease = 2s;
    zorva::ZVTrackingTransport::setOptionsForTesting(options);
    auto sdk = zorva::ZorvaSDK::shared();
    sdk->setTrackingQueuePath(argv[1]);
    sdk->setTrackingTransport(true);
    zorva::ZVInstanceFactory::sharedNetworkhandler()->fetchUrls({argv + 2, argv + argc}, nullptr);
  }
  for (;;) pause();
}
