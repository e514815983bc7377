#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace zorva {

/// The tracking transport's queue: one SQLite database holding every URL handed over and not yet
/// finally answered, either a file in WAL mode that several processes may share or an in-memory
/// database private to this process. Times are seconds since the Unix epoch, so a queue left by
/// one process is read alike by the next. A row is claimed by one process at a time: the
/// statement that picks it writes its lease, and until the lease ends no other claim picks it.
/// Every write reports whether it took effect. Not thread-safe: its owner serialises the calls.
class ZVTrackingQueue {
 public:
  struct Entry {
    std::int64_t id = 0;
    std::string url;
    double createdAt = 0;
    int attempts = 0;
  };

  /// The layout this build writes (`PRAGMA user_version`). Version 0 is a file written before
  /// versions were recorded: its table is kept and upgraded.
  static constexpr int kVersion = 1;

  /// An in-memory queue keeping at most `capacity` URLs.
  explicit ZVTrackingQueue(std::size_t capacity);
  ~ZVTrackingQueue();
  ZVTrackingQueue(const ZVTrackingQueue&) = delete;
  ZVTrackingQueue& operator=(const ZVTrackingQueue&) = delete;

  /// Opens (or makes) the queue file at `path`, its folder included, upgrading an older layout.
  /// Nothing when the file cannot be used now; the reason is logged at level 1 and the file is
  /// left as it is: a path that is no regular file, a database of another program or of a newer
  /// version, a read-only, busy or full one. Only a file SQLite reports as damaged or as no
  /// database is set aside (renamed "<path>.corrupt-<time>", with its log) and a new one made;
  /// `fresh` then says so.
  static std::unique_ptr<ZVTrackingQueue> open(const std::string& path, std::size_t capacity,
                                               bool* fresh = nullptr);

  /// Stores `urls` in one transaction, due at `now`. Beyond the capacity the oldest URLs of the
  /// whole queue are dropped, each with a warning. False when nothing was stored.
  bool append(const std::vector<std::string>& urls, double now);
  /// Claims up to `limit` URLs due at `now` and not leased, oldest first, leasing them until
  /// `leaseEnd`. Nothing when the claim failed.
  std::optional<std::vector<Entry>> claim(double now, double leaseEnd, std::size_t limit);
  /// When the earliest URL is due or its lease ends; nothing when there is none or on an error.
  std::optional<double> nextDue();
  /// Makes the URL due at `at` after `attempts` attempts and ends its lease.
  bool retryAt(std::int64_t id, int attempts, double at);
  bool remove(std::int64_t id);
  /// URLs stored; nothing on an error.
  std::optional<std::size_t> size();
  /// Moves the URLs not leased at `now` into `other` with their age, attempts and due times.
  bool moveInto(ZVTrackingQueue& other, double now);

  /// Why the last failed transaction failed, else the connection's last error.
  std::string error() const;

 private:
  struct Row {
    std::string url;
    double createdAt;
    int attempts;
    double due;
  };
  struct Statements;

  ZVTrackingQueue(sqlite3* db, std::size_t capacity);
  bool store(const std::vector<Row>& rows);
  /// Runs `body` between BEGIN IMMEDIATE and COMMIT, rolling back when either fails.
  template <typename Body>
  bool transaction(Body body);

  sqlite3* db_ = nullptr;
  std::unique_ptr<Statements> statements_;
  std::size_t capacity_;
  std::string error_;
};

}  // namespace zorva
