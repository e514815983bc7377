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

// A statement prepared once for the connection's life. Each use binds all of its parameters and
// is reset when it ends (`Use`), so a statement left half-stepped holds no read lock.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) {
      sqlite3_finalize(stmt_);
      stmt_ = nullptr;
    }
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  explicit operator bool() const { return stmt_ != nullptr; }

  class Use {
   public:
    explicit Use(sqlite3_stmt* stmt) : stmt_(stmt) {}
    ~Use() { sqlite3_reset(stmt_); }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    sqlite3_stmt* get() const { return stmt_; }
    Use& bind(int index, std::int64_t value) {
      sqlite3_bind_int64(stmt_, index, value);
      return *this;
    }
    Use& bind(int index, double value) {
      sqlite3_bind_double(stmt_, index, value);
      return *this;
    }
    Use& bind(int index, const std::string& value) {
      sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
      return *this;
    }
    /// Steps to the next row; false at the end or on an error.
    bool row() { return sqlite3_step(stmt_) == SQLITE_ROW; }
    /// Runs a statement that returns no row, and resets it for the next row of a batch.
    bool run() {
      const bool done = sqlite3_step(stmt_) == SQLITE_DONE;
      sqlite3_reset(stmt_);
      return done;
    }

   private:
    sqlite3_stmt* stmt_;
  };
  Use use() const { return Use(stmt_); }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

bool exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace

// Every statement the queue runs after opening, prepared once against the schema. The busy ids
// are left out while stepping: they are at most the transport's concurrency, so a query steps
// over no more rows than that.
struct ZVTrackingQueue::Statements {
  explicit Statements(sqlite3* db)
      : begin(db, "BEGIN IMMEDIATE"),
        commit(db, "COMMIT"),
        rollback(db, "ROLLBACK"),
        insert(db, "INSERT INTO urls(url, created, attempts, due) VALUES(?1, ?2, 0, ?2)"),
        over(db,
             "SELECT id, url FROM urls ORDER BY id LIMIT max(0, (SELECT count(*) FROM urls) - ?1)"),
        due(db, "SELECT id, url, created, attempts FROM urls WHERE due <= ?1 ORDER BY id"),
        earliest(db, "SELECT id, due FROM urls ORDER BY due LIMIT ?1"),
        retry(db, "UPDATE urls SET attempts = ?2, due = ?3 WHERE id = ?1"),
        erase(db, "DELETE FROM urls WHERE id = ?1"),
        count(db, "SELECT count(*) FROM urls") {}

  bool prepared() const {
    return begin && commit && rollback && insert && over && due && earliest && retry && erase &&
           count;
  }

  Statement begin, commit, rollback, insert, over, due, earliest, retry, erase, count;
};

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
  {
    Statement check(db_, "PRAGMA quick_check");
    auto result = check.use();
    if (!check || !result.row() ||
        std::string(reinterpret_cast<const char*>(sqlite3_column_text(result.get(), 0))) != "ok") {
      return false;
    }
  }
  statements_ = std::make_unique<Statements>(db_);
  return statements_->prepared();
}

void ZVTrackingQueue::close() {
  // A connection with unfinalised statements does not close.
  statements_.reset();
  sqlite3_close(db_);
  db_ = nullptr;
}

void ZVTrackingQueue::append(const std::vector<std::string>& urls, double now) {
  if (!db_ || urls.empty()) return;
  auto& statements = *statements_;
  statements.begin.use().run();
  {
    auto insert = statements.insert.use();
    for (const auto& url : urls) insert.bind(1, url).bind(2, now).run();
  }
  std::vector<std::int64_t> dropped;
  {
    auto over = statements.over.use();
    over.bind(1, static_cast<std::int64_t>(capacity_));
    while (over.row()) {
      ZV_LOG(2, "-[ZVTrackingQueue append:]",
             "Tracking queue full (%zu): dropped the oldest URL %s", capacity_,
             reinterpret_cast<const char*>(sqlite3_column_text(over.get(), 1)));
      dropped.push_back(sqlite3_column_int64(over.get(), 0));
    }
  }
  {
    auto drop = statements.erase.use();
    for (auto id : dropped) drop.bind(1, id).run();
  }
  if (!statements.commit.use().run()) {
    ZV_LOG(1, "-[ZVTrackingQueue append:]", "Tracking queue: storing failed (%s)",
           sqlite3_errmsg(db_));
    statements.rollback.use().run();
  }
}

std::vector<ZVTrackingQueue::Entry> ZVTrackingQueue::due(double now, std::size_t limit,
                                                         const std::set<std::int64_t>& busy) {
  std::vector<Entry> entries;
  if (!db_ || limit == 0) return entries;
  auto select = statements_->due.use();
  select.bind(1, now);
  while (entries.size() < limit && select.row()) {
    const std::int64_t id = sqlite3_column_int64(select.get(), 0);
    if (busy.contains(id)) continue;
    entries.push_back({id, reinterpret_cast<const char*>(sqlite3_column_text(select.get(), 1)),
                       sqlite3_column_double(select.get(), 2),
                       sqlite3_column_int(select.get(), 3)});
  }
  return entries;
}

std::optional<double> ZVTrackingQueue::nextDue(const std::set<std::int64_t>& busy) {
  if (!db_) return std::nullopt;
  // Of the busy ids plus one earliest URLs, at least one is not busy.
  auto select = statements_->earliest.use();
  select.bind(1, static_cast<std::int64_t>(busy.size() + 1));
  while (select.row()) {
    if (!busy.contains(sqlite3_column_int64(select.get(), 0))) {
      return sqlite3_column_double(select.get(), 1);
    }
  }
  return std::nullopt;
}

void ZVTrackingQueue::retryAt(std::int64_t id, int attempts, double at) {
  if (!db_) return;
  statements_->retry.use()
      .bind(1, id)
      .bind(2, static_cast<std::int64_t>(attempts))
      .bind(3, at)
      .run();
}

void ZVTrackingQueue::remove(std::int64_t id) {
  if (!db_) return;
  statements_->erase.use().bind(1, id).run();
}

std::size_t ZVTrackingQueue::size() {
  if (!db_) return 0;
  auto count = statements_->count.use();
  return count.row() ? static_cast<std::size_t>(sqlite3_column_int64(count.get(), 0)) : 0;
}

}  // namespace zorva
