// One tracking hand-over on the calling thread with the tracking transport on: `fetchUrls` hands
// the URL to the transport's worker, which stores it in the queue (one committed insert, appended
// to SQLite's write-ahead log) and sends what is stored to the loopback server meanwhile. With
// the argument 1 another connection holds the queue file's write lock throughout, as another
// process's transaction would: the worker waits for it, the calling thread must not. The
// baseline is one insert and commit made directly through SQLite on a WAL database.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <zorva/ZorvaSDK.h>

#include <filesystem>
#include <string>
#include <thread>

#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"
#include "support/LoopbackServer.h"
#include "support/Ratio.h"

namespace {

std::string temporaryFolder() {
  char folder[] = "/tmp/zorva-bench-tracking-XXXXXX";
  return mkdtemp(folder) ? folder : "/tmp";
}

void BM_TrackingHandOver(benchmark::State& state) {
  zorva::test::LoopbackServer server;
  server.respond("/t", {.status = 204, .body = ""});
  const auto folder = temporaryFolder();
  auto sdk = zorva::ZorvaSDK::shared();
  sdk->setTrackingQueuePath(folder + "/tracking.sqlite");
  sdk->setTrackingTransport(true);
  auto handler = zorva::ZVInstanceFactory::sharedNetworkhandler();
  const std::vector<std::string> urls{server.url("/t?cb=[CACHEBUSTING]")};
  sqlite3* holder = nullptr;
  if (state.range(0) == 1) {
    // Once the transport has made the file and sent a first URL.
    handler->fetchUrls(urls, nullptr);
    while (server.requests().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    sqlite3_open((folder + "/tracking.sqlite").c_str(), &holder);
    sqlite3_busy_timeout(holder, 5000);
    if (sqlite3_exec(holder, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
      state.SkipWithError("the write lock was not taken");
    }
  }
  for (auto _ : state) handler->fetchUrls(urls, nullptr);
  sqlite3_close(holder);
  sdk->setTrackingTransport(false);
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_TrackingHandOver)->Arg(0)->Arg(1)->UseRealTime();

void BM_BareSqliteWalInsert(benchmark::State& state) {
  const auto folder = temporaryFolder();
  sqlite3* db = nullptr;
  sqlite3_open((folder + "/bare.sqlite").c_str(), &db);
  sqlite3_exec(db,
               "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; CREATE TABLE urls(id "
               "INTEGER PRIMARY KEY AUTOINCREMENT, url TEXT, created REAL, attempts INTEGER, "
               "due REAL)",
               nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db, "INSERT INTO urls(url, created, attempts, due) VALUES(?1, 1, 0, 1)", -1,
                     &insert, nullptr);
  const std::string url = "http://127.0.0.1:1/t?cb=[CACHEBUSTING]";
  for (auto _ : state) {
    sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    sqlite3_bind_text(insert, 1, url.data(), static_cast<int>(url.size()), SQLITE_STATIC);
    sqlite3_step(insert);
    sqlite3_reset(insert);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  }
  sqlite3_finalize(insert);
  sqlite3_close(db);
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_BareSqliteWalInsert)->UseRealTime();

const bool kRatio = zorva::bench::reportRatio("BM_TrackingHandOver/0/real_time",
                                              "BM_BareSqliteWalInsert/real_time");
const bool kLockedRatio = zorva::bench::reportRatio("BM_TrackingHandOver/1/real_time",
                                                    "BM_BareSqliteWalInsert/real_time");

}  // namespace
