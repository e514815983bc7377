#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct sqlite3;

namespace zorva {

/// The tracking transport's durable queue: one SQLite file in WAL mode holding every URL handed
/// over and not yet finally answered. Times are seconds since the Unix epoch, so a queue left by
/// one process is read alike by the next. Not thread-safe: its owner serialises the calls.
class ZVTrackingQueue {
 public:
  struct Entry {
    std::int64_t id = 0;
    std::string url;
    double createdAt = 0;
    int attempts = 0;
  };

  /// Opens (or makes) the file at `path`, its folder included. A file that is not a readable
  /// queue is logged, removed and replaced by a new one; where no file can be made the queue
  /// lives in memory. Keeps at most `capacity` URLs.
  ZVTrackingQueue(const std::string& path, std::size_t capacity);
  ~ZVTrackingQueue();
  ZVTrackingQueue(const ZVTrackingQueue&) = delete;
  ZVTrackingQueue& operator=(const ZVTrackingQueue&) = delete;

  /// Stores `urls` in one transaction, due at once. Beyond the capacity the oldest URLs are
  /// dropped, each with a warning.
  void append(const std::vector<std::string>& urls, double now);
  /// Up to `limit` URLs due at `now`, oldest first, leaving out the ids in `busy`.
  std::vector<Entry> due(double now, std::size_t limit, const std::set<std::int64_t>& busy);
  /// When the earliest URL outside `busy` is due; nothing when there is none.
  std::optional<double> nextDue(const std::set<std::int64_t>& busy);
  void retryAt(std::int64_t id, int attempts, double at);
  void remove(std::int64_t id);
  std::size_t size();

 private:
  bool open(const std::string& path);
  /// Finalises the statements, then closes the connection.
  void close();

  struct Statements;
  sqlite3* db_ = nullptr;
  std::unique_ptr<Statements> statements_;
  std::size_t capacity_;
};

}  // namespace zorva
