// One tracking hand-over on the calling thread with the tracking transport on: the URL is stored
// in the queue (one committed insert, appended to SQLite's write-ahead log) before `fetchUrls`
// returns, while the transport's threads send what is stored to the loopback server. The
// baseline is the same insert and commit made directly through SQLite on a WAL database.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <zorva/ZorvaSDK.h>

#include <filesystem>
#include <string>

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
  for (auto _ : state) handler->fetchUrls(urls, nullptr);
  sdk->setTrackingTransport(false);
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_TrackingHandOver)->UseRealTime();

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

const bool kRatio =
    zorva::bench::reportRatio("BM_TrackingHandOver/real_time", "BM_BareSqliteWalInsert/real_time");

}  // namespace
