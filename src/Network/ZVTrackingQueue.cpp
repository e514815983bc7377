#include "Network/ZVTrackingQueue.h"

#include <sqlite3.h>

#include <filesystem>
#include <system_error>

#include "Common/ZVLog.h"

namespace zorva {

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS urls(id INTEGER PRIMARY KEY AUTOINCREMENT, url TEXT NOT NULL, "
    "created REAL NOT NULL, attempts INTEGER NOT NULL, due REAL NOT NULL)";

// One prepared statement, finalised with its scope.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) stmt_ = nullptr;
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  explicit operator bool() const { return stmt_ != nullptr; }
  sqlite3_stmt* get() const { return stmt_; }
  Statement& bind(int index, std::int64_t value) {
    sqlite3_bind_int64(stmt_, index, value);
    return *this;
  }
  Statement& bind(int index, double value) {
    sqlite3_bind_double(stmt_, index, value);
    return *this;
  }
  Statement& bind(int index, const std::string& value) {
    sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    return *this;
  }
  /// Steps to the next row; false at the end or on an error.
  bool row() { return stmt_ && sqlite3_step(stmt_) == SQLITE_ROW; }
  /// Runs a statement that returns no row.
  bool run() {
    const bool done = stmt_ && sqlite3_step(stmt_) == SQLITE_DONE;
    if (stmt_) sqlite3_reset(stmt_);
    return done;
  }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

bool exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// The busy ids as an SQL list, to leave them out of a query.
std::string idList(const std::set<std::int64_t>& ids) {
  std::string list;
  for (auto id : ids) list += (list.empty() ? "" : ",") + std::to_string(id);
  return list;
}

}  // namespace

ZVTrackingQueue::ZVTrackingQueue(const std::string& path, std::size_t capacity)
    : capacity_(capacity) {
  std::error_code error;
  const auto folder = std::filesystem::path(path).parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder, error);
  if (open(path)) return;
  ZV_LOG(2, "-[ZVTrackingQueue open]", "Tracking queue %s unreadable (%s): starting a new one",
         path.c_str(), db_ ? sqlite3_errmsg(db_) : "cannot open");
  close();
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    std::filesystem::remove(path + suffix, error);
  }
  if (open(path)) return;
  ZV_LOG(1, "-[ZVTrackingQueue open]",
         "Tracking queue %s cannot be made: URLs are kept in memory only", path.c_str());
  close();
  if (!open(":memory:")) close();
}

ZVTrackingQueue::~ZVTrackingQueue() { close(); }

bool ZVTrackingQueue::open(const std::string& path) {
  if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
      SQLITE_OK) {
    return false;
  }
  sqlite3_busy_timeout(db_, 2000);
  // In WAL mode with normal synchronisation a commit is an append to the log, durable against
  // the process being killed; checkpoints take the syncs off the committing thread's path.
  // A file that is not a database fails the first of these.
  if (!exec(db_, "PRAGMA journal_mode=WAL") || !exec(db_, "PRAGMA synchronous=NORMAL") ||
      !exec(db_, kSchema)) {
    return false;
  }
  Statement check(db_, "PRAGMA quick_check");
  return check.row() &&
         std::string(reinterpret_cast<const char*>(sqlite3_column_text(check.get(), 0))) == "ok";
}

void ZVTrackingQueue::close() {
  sqlite3_close(db_);
  db_ = nullptr;
}

void ZVTrackingQueue::append(const std::vector<std::string>& urls, double now) {
  if (!db_ || urls.empty()) return;
  exec(db_, "BEGIN IMMEDIATE");
  Statement insert(db_, "INSERT INTO urls(url, created, attempts, due) VALUES(?1, ?2, 0, ?2)");
  for (const auto& url : urls) insert.bind(1, url).bind(2, now).run();
  Statement over(
      db_, "SELECT id, url FROM urls ORDER BY id LIMIT max(0, (SELECT count(*) FROM urls) - ?1)");
  over.bind(1, static_cast<std::int64_t>(capacity_));
  std::vector<std::int64_t> dropped;
  while (over.row()) {
    ZV_LOG(2, "-[ZVTrackingQueue append:]", "Tracking queue full (%zu): dropped the oldest URL %s",
           capacity_, reinterpret_cast<const char*>(sqlite3_column_text(over.get(), 1)));
    dropped.push_back(sqlite3_column_int64(over.get(), 0));
  }
  Statement drop(db_, "DELETE FROM urls WHERE id = ?1");
  for (auto id : dropped) drop.bind(1, id).run();
  if (!exec(db_, "COMMIT")) {
    ZV_LOG(1, "-[ZVTrackingQueue append:]", "Tracking queue: storing failed (%s)",
           sqlite3_errmsg(db_));
    exec(db_, "ROLLBACK");
  }
}

std::vector<ZVTrackingQueue::Entry> ZVTrackingQueue::due(double now, std::size_t limit,
                                                         const std::set<std::int64_t>& busy) {
  std::vector<Entry> entries;
  if (!db_ || limit == 0) return entries;
  const std::string sql =
      "SELECT id, url, created, attempts FROM urls WHERE due <= ?1 AND id NOT IN (" + idList(busy) +
      ") ORDER BY id LIMIT ?2";
  Statement select(db_, sql.c_str());
  select.bind(1, now).bind(2, static_cast<std::int64_t>(limit));
  while (select.row()) {
    entries.push_back({sqlite3_column_int64(select.get(), 0),
                       reinterpret_cast<const char*>(sqlite3_column_text(select.get(), 1)),
                       sqlite3_column_double(select.get(), 2),
                       sqlite3_column_int(select.get(), 3)});
  }
  return entries;
}

std::optional<double> ZVTrackingQueue::nextDue(const std::set<std::int64_t>& busy) {
  if (!db_) return std::nullopt;
  const std::string sql = "SELECT min(due) FROM urls WHERE id NOT IN (" + idList(busy) + ")";
  Statement select(db_, sql.c_str());
  if (!select.row() || sqlite3_column_type(select.get(), 0) == SQLITE_NULL) return std::nullopt;
  return sqlite3_column_double(select.get(), 0);
}

void ZVTrackingQueue::retryAt(std::int64_t id, int attempts, double at) {
  if (!db_) return;
  Statement update(db_, "UPDATE urls SET attempts = ?2, due = ?3 WHERE id = ?1");
  update.bind(1, id).bind(2, static_cast<std::int64_t>(attempts)).bind(3, at).run();
}

void ZVTrackingQueue::remove(std::int64_t id) {
  if (!db_) return;
  Statement erase(db_, "DELETE FROM urls WHERE id = ?1");
  erase.bind(1, id).run();
}

std::size_t ZVTrackingQueue::size() {
  if (!db_) return 0;
  Statement count(db_, "SELECT count(*) FROM urls");
  return count.row() ? static_cast<std::size_t>(sqlite3_column_int64(count.get(), 0)) : 0;
}

}  // namespace zorva
