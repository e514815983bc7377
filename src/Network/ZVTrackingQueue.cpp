#include "Network/ZVTrackingQueue.h"

#include <sqlite3.h>

#include <ctime>
#include <filesystem>
#include <system_error>

#include "Common/ZVLog.h"

namespace zorva {

namespace {

constexpr const char* kOpen = "-[ZVTrackingQueue open]";

// The table as files before versioning hold it (version 0), then each step to the next version.
constexpr const char* kTableV0 =
    "CREATE TABLE urls(id INTEGER PRIMARY KEY AUTOINCREMENT, url TEXT NOT NULL, "
    "created REAL NOT NULL, attempts INTEGER NOT NULL, due REAL NOT NULL)";
constexpr const char* kMigrations[ZVTrackingQueue::kVersion] = {
    // 0 → 1: the lease of the process sending a URL, and the index claims walk.
    "ALTER TABLE urls ADD COLUMN lease REAL NOT NULL DEFAULT 0;"
    "CREATE INDEX urls_ready ON urls(max(due, lease), id)",
};

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
    ~Use() {
      sqlite3_reset(stmt_);
      sqlite3_clear_bindings(stmt_);
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    Use& bind(int index, std::int64_t value) {
      sqlite3_bind_int64(stmt_, index, value);
      return *this;
    }
    Use& bind(int index, double value) {
      sqlite3_bind_double(stmt_, index, value);
      return *this;
    }
    Use& bind(int index, const std::string& value) {
      sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()),
                        SQLITE_TRANSIENT);
      return *this;
    }
    /// Steps to the next row; false at the end or on an error (`failed` tells them apart).
    bool row() {
      result_ = sqlite3_step(stmt_);
      return result_ == SQLITE_ROW;
    }
    bool failed() const { return result_ != SQLITE_ROW && result_ != SQLITE_DONE; }
    /// Runs a statement that returns no row, and resets it for the next row of a batch.
    bool run() {
      result_ = sqlite3_step(stmt_);
      sqlite3_reset(stmt_);
      return result_ == SQLITE_DONE;
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(stmt_, column); }
    double real(int column) const { return sqlite3_column_double(stmt_, column); }
    std::string text(int column) const {
      const auto* text = sqlite3_column_text(stmt_, column);
      return text ? reinterpret_cast<const char*>(text) : "";
    }

   private:
    sqlite3_stmt* stmt_;
    int result_ = SQLITE_DONE;
  };
  Use use() const { return Use(stmt_); }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

bool exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// The first column of the first row of `sql`; nothing on an error.
std::optional<std::string> single(sqlite3* db, const char* sql) {
  Statement statement(db, sql);
  if (!statement) return std::nullopt;
  auto use = statement.use();
  if (use.row()) return use.text(0);
  if (use.failed()) return std::nullopt;
  return std::string();
}

bool damaged(sqlite3* db) {
  const int code = sqlite3_errcode(db);
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

// What opening found: a usable connection, a file to set aside, or one to leave alone.
enum class Verdict { ready, damaged, unusable };

// Checks the file, upgrades its layout and sets the connection up; logs why it is not ready.
Verdict prepare(sqlite3* db, const std::string& path) {
  const auto refuse = [&](const char* why) {
    ZV_LOG(1, kOpen, "Tracking queue %s not usable (%s): kept as it is, URLs held in memory",
           path.c_str(), why);
    return Verdict::unusable;
  };
  const auto failed = [&] { return damaged(db) ? Verdict::damaged : refuse(sqlite3_errmsg(db)); };
  if (sqlite3_db_readonly(db, "main") == 1) return refuse("read-only");
  sqlite3_busy_timeout(db, 1000);
  int found = 0;
  bool empty = true;
  const auto inspect = [&]() -> std::optional<Verdict> {
    const auto version = single(db, "PRAGMA user_version");
    const auto tables =
        single(db, "SELECT count(*) FROM sqlite_master WHERE name <> 'sqlite_sequence'");
    if (!version || !tables) return failed();
    found = std::stoi(*version);
    empty = *tables == "0";
    if (found > ZVTrackingQueue::kVersion) return refuse("written by a newer version");
    if (found > 0 || empty) return std::nullopt;
    // A file of version 0 holds our table and nothing else; anything more is another program's.
    const auto ours = single(db, "SELECT sql FROM sqlite_master WHERE name = 'urls'");
    if (!ours) return failed();
    if (*ours != kTableV0 || *tables != "1") return refuse("not a tracking queue");
    return std::nullopt;
  };
  if (const auto verdict = inspect()) return *verdict;
  // In WAL mode with normal synchronisation a commit is an append to the log, durable against
  // the process being killed; checkpoints take the syncs off the committing thread's path.
  const auto mode = single(db, "PRAGMA journal_mode=WAL");
  if (!mode) return failed();
  if (*mode != (path == ":memory:" ? "memory" : "wal")) return refuse("no write-ahead log");
  if (!exec(db, "PRAGMA synchronous=NORMAL")) return failed();
  if (found < ZVTrackingQueue::kVersion) {
    if (!exec(db, "BEGIN IMMEDIATE")) return failed();
    // Another process may have made or upgraded the file meanwhile.
    auto verdict = inspect();
    bool done = !verdict;
    if (done && empty) done = exec(db, kTableV0);
    for (int step = found; done && step < ZVTrackingQueue::kVersion; ++step) {
      done = exec(db, kMigrations[step]);
    }
    const std::string stamp = "PRAGMA user_version=" + std::to_string(ZVTrackingQueue::kVersion);
    if (!done || !exec(db, stamp.c_str()) || !exec(db, "COMMIT")) {
      if (!verdict) verdict = failed();
      exec(db, "ROLLBACK");
      return *verdict;
    }
  }
  const auto check = single(db, "PRAGMA quick_check");
  if (!check) return failed();
  return *check == "ok" ? Verdict::ready : Verdict::damaged;
}

}  // namespace

// Every statement the queue runs after opening, prepared once against the schema.
struct ZVTrackingQueue::Statements {
  explicit Statements(sqlite3* db)
      : begin(db, "BEGIN IMMEDIATE"),
        commit(db, "COMMIT"),
        rollback(db, "ROLLBACK"),
        insert(db, "INSERT INTO urls(url, created, attempts, due) VALUES(?1, ?2, ?3, ?4)"),
        trim(db,
             "DELETE FROM urls WHERE id IN (SELECT id FROM urls ORDER BY id LIMIT "
             "max(0, (SELECT count(*) FROM urls) - ?1)) RETURNING url"),
        claim(db,
              "UPDATE urls SET lease = ?2 WHERE id IN (SELECT id FROM urls WHERE max(due, lease) "
              "<= ?1 ORDER BY max(due, lease), id LIMIT ?3) RETURNING id, url, created, attempts"),
        earliest(db, "SELECT max(due, lease) FROM urls ORDER BY max(due, lease), id LIMIT 1"),
        retry(db, "UPDATE urls SET attempts = ?2, due = ?3, lease = 0 WHERE id = ?1"),
        erase(db, "DELETE FROM urls WHERE id = ?1"),
        count(db, "SELECT count(*) FROM urls"),
        idle(db, "SELECT id, url, created, attempts, due FROM urls WHERE lease <= ?1 ORDER BY id") {
  }

  bool prepared() const {
    return begin && commit && rollback && insert && trim && claim && earliest && retry && erase &&
           count && idle;
  }

  Statement begin, commit, rollback, insert, trim, claim, earliest, retry, erase, count, idle;
};

ZVTrackingQueue::ZVTrackingQueue(std::size_t capacity) : capacity_(capacity) {
  sqlite3* db = nullptr;
  if (sqlite3_open(":memory:", &db) == SQLITE_OK && prepare(db, ":memory:") == Verdict::ready) {
    db_ = db;
    statements_ = std::make_unique<Statements>(db_);
    if (statements_->prepared()) return;
  }
  ZV_LOG(1, kOpen, "Tracking queue in memory failed: %s", sqlite3_errmsg(db));
  statements_.reset();
  sqlite3_close(db);
  db_ = nullptr;
}

ZVTrackingQueue::ZVTrackingQueue(sqlite3* db, std::size_t capacity)
    : db_(db), statements_(std::make_unique<Statements>(db)), capacity_(capacity) {}

ZVTrackingQueue::~ZVTrackingQueue() {
  // A connection with unfinalised statements does not close.
  statements_.reset();
  sqlite3_close(db_);
}

std::string ZVTrackingQueue::error() const { return error_.empty() ? sqlite3_errmsg(db_) : error_; }

std::unique_ptr<ZVTrackingQueue> ZVTrackingQueue::open(const std::string& path,
                                                       std::size_t capacity, bool* fresh) {
  namespace fs = std::filesystem;
  if (fresh) *fresh = false;
  std::error_code error;
  // Whatever a symbolic link points at counts: only a regular file, or nothing, is opened.
  const auto status = fs::status(path, error);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    ZV_LOG(1, kOpen, "Tracking queue %s is not a regular file: left alone, URLs held in memory",
           path.c_str());
    return nullptr;
  }
  const auto folder = fs::path(path).parent_path();
  if (!folder.empty()) fs::create_directories(folder, error);
  for (int round = 0; round < 2; ++round) {
    sqlite3* db = nullptr;
    const int opened =
        sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    const Verdict verdict = opened == SQLITE_OK ? prepare(db, path) : Verdict::unusable;
    if (opened != SQLITE_OK) {
      ZV_LOG(1, kOpen, "Tracking queue %s cannot be opened (%s): URLs held in memory", path.c_str(),
             sqlite3_errmsg(db));
    }
    if (verdict == Verdict::ready) {
      std::unique_ptr<ZVTrackingQueue> queue(new ZVTrackingQueue(db, capacity));
      if (queue->statements_->prepared()) return queue;
      ZV_LOG(1, kOpen, "Tracking queue %s not usable (%s): URLs held in memory", path.c_str(),
             sqlite3_errmsg(db));
      return nullptr;
    }
    sqlite3_close(db);
    if (verdict == Verdict::unusable || round == 1) return nullptr;
    // Set aside with its log, which belongs to it and must not be replayed into a new file.
    const std::string aside = path + ".corrupt-" + std::to_string(std::time(nullptr));
    ZV_LOG(1, kOpen, "Tracking queue %s damaged or no database: set aside as %s", path.c_str(),
           aside.c_str());
    fs::rename(path, aside, error);
    if (error) return nullptr;
    if (fs::is_regular_file(fs::symlink_status(path + "-wal", error))) {
      fs::rename(path + "-wal", aside + "-wal", error);
    }
    if (fresh) *fresh = true;
  }
  return nullptr;
}

template <typename Body>
bool ZVTrackingQueue::transaction(Body body) {
  if (!db_) return false;
  error_.clear();
  if (statements_->begin.use().run() && body() && statements_->commit.use().run()) return true;
  // The rollback's own message would hide the failure's.
  error_ = sqlite3_errmsg(db_);
  statements_->rollback.use().run();
  return false;
}

bool ZVTrackingQueue::append(const std::vector<std::string>& urls, double now) {
  std::vector<Row> rows;
  rows.reserve(urls.size());
  for (const auto& url : urls) rows.push_back({url, now, 0, now});
  return store(rows);
}

bool ZVTrackingQueue::store(const std::vector<Row>& rows) {
  if (rows.empty()) return true;
  std::vector<std::string> dropped;
  const bool stored = transaction([&] {
    auto insert = statements_->insert.use();
    for (const auto& row : rows) {
      if (!insert.bind(1, row.url)
               .bind(2, row.createdAt)
               .bind(3, static_cast<std::int64_t>(row.attempts))
               .bind(4, row.due)
               .run()) {
        return false;
      }
    }
    auto trim = statements_->trim.use();
    trim.bind(1, static_cast<std::int64_t>(capacity_));
    while (trim.row()) dropped.push_back(trim.text(0));
    return !trim.failed();
  });
  if (!stored) return false;
  for (const auto& url : dropped) {
    ZV_LOG(2, "-[ZVTrackingQueue append:]", "Tracking queue full (%zu): dropped the oldest URL %s",
           capacity_, url.c_str());
  }
  return true;
}

std::optional<std::vector<ZVTrackingQueue::Entry>> ZVTrackingQueue::claim(double now,
                                                                          double leaseEnd,
                                                                          std::size_t limit) {
  std::vector<Entry> entries;
  if (!db_) return std::nullopt;
  if (limit == 0) return entries;
  // One statement picks and leases the rows, atomically against every other connection.
  auto claim = statements_->claim.use();
  claim.bind(1, now).bind(2, leaseEnd).bind(3, static_cast<std::int64_t>(limit));
  while (claim.row()) {
    entries.push_back(
        {claim.integer(0), claim.text(1), claim.real(2), static_cast<int>(claim.integer(3))});
  }
  if (claim.failed()) return std::nullopt;
  return entries;
}

std::optional<double> ZVTrackingQueue::nextDue() {
  if (!db_) return std::nullopt;
  auto select = statements_->earliest.use();
  if (select.row()) return select.real(0);
  return std::nullopt;
}

bool ZVTrackingQueue::retryAt(std::int64_t id, int attempts, double at) {
  return db_ && statements_->retry.use()
                    .bind(1, id)
                    .bind(2, static_cast<std::int64_t>(attempts))
                    .bind(3, at)
                    .run();
}

bool ZVTrackingQueue::remove(std::int64_t id) {
  return db_ && statements_->erase.use().bind(1, id).run();
}

std::optional<std::size_t> ZVTrackingQueue::size() {
  if (!db_) return std::nullopt;
  auto count = statements_->count.use();
  if (!count.row()) return std::nullopt;
  return static_cast<std::size_t>(count.integer(0));
}

bool ZVTrackingQueue::moveInto(ZVTrackingQueue& other, double now) {
  if (!db_) return false;
  std::vector<Row> rows;
  std::vector<std::int64_t> ids;
  {
    auto idle = statements_->idle.use();
    idle.bind(1, now);
    while (idle.row()) {
      ids.push_back(idle.integer(0));
      rows.push_back({idle.text(1), idle.real(2), static_cast<int>(idle.integer(3)), idle.real(4)});
    }
    if (idle.failed()) return false;
  }
  if (rows.empty()) return true;
  if (!other.store(rows)) return false;
  return transaction([&] {
    auto erase = statements_->erase.use();
    for (auto id : ids) {
      if (!erase.bind(1, id).run()) return false;
    }
    return true;
  });
}

}  // namespace zorva
