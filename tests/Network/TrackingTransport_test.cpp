// The opt-in tracking transport against the loopback server: what an ad played to the end sends,
// retries, processes killed or sharing a queue, faults of the queue's file and what it finds at
// its path.
#include <gtest/gtest.h>

#include <zorva/ZVInterstitialAd.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/TimeZone.h>
#include <zorva/platform/Window.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <thread>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"
#include "Network/ZVNetworkHandler.h"
#include "Network/ZVTrackingQueue.h"
#include "Network/ZVTrackingTransport.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/AdFormatTesting.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

extern char** environ;

namespace zorva {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;

// The paths the server was asked for, bid requests left out, sorted.
std::vector<std::string> paths(const LoopbackServer& server) {
  std::vector<std::string> list;
  for (const auto& request : server.requests()) {
    if (request.path != test::kServadPath) list.push_back(request.path);
  }
  std::sort(list.begin(), list.end());
  return list;
}

class TrackingTransportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char folder[] = "/tmp/zorva-tracking-XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    folder_ = folder;
    queuePath_ = folder_ + "/queue/tracking.sqlite";
    ZorvaSDK::shared()->setTrackingQueuePath(queuePath_);
    options_.firstDelay = 20ms;
    options_.maxDelay = 50ms;
    options_.timeout = 5;
    options_.lease = 2s;
    ZVTrackingTransport::setOptionsForTesting(options_);
    ZVLog::setLevel(4);
  }
  void TearDown() override {
    ZorvaSDK::shared()->setTrackingTransport(false);
    std::filesystem::remove_all(folder_);
  }
  // Waits (10 s at most) until `done`.
  static bool waitFor(const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(5ms);
    }
    return true;
  }
  // Waits until every stored URL has had its final answer.
  static bool drained() {
    return waitFor([] { return ZVTrackingTransport::running()->pending() == 0; });
  }

  ZVTrackingTransport::Options options_;
  std::string folder_;
  std::string queuePath_;
  LoopbackServer server_;
};

// An interstitial whose linear ad's every tracker points at the loopback server, played to the
// end on the headless media engine; then one whose only media file cannot be played. With the
// transport on, the start is reported, and with it the impression.
class TrackedInterstitialTest : public TrackingTransportTest {
 protected:
  std::string vast(const std::string& mime) const {
    std::string trackers;
    for (const char* event : {"start", "firstQuartile", "midpoint", "thirdQuartile", "complete"}) {
      trackers += std::string("<Tracking event=\"") + event + "\"><![CDATA[" +
                  server_.url(std::string("/") + event) + "?cb=[CACHEBUSTING]]]></Tracking>";
    }
    return R"(<VAST version="3.0"><Ad id="a"><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>)"
           "<Error><![CDATA[" +
           server_.url("/error") + "?code=[ERRORCODE]&other=[UNKNOWN]]]></Error><Impression>" +
           server_.url("/impression") +
           "?cb=[CACHEBUSTING]&amp;ts=[TIMESTAMP]</Impression><Creatives><Creative><Linear>"
           "<Duration>00:00:15</Duration><TrackingEvents>" +
           trackers + "</TrackingEvents><MediaFiles><MediaFile type=\"" + mime +
           "\">http://media/ad.mp4</MediaFile></MediaFiles></Linear></Creative></Creatives>"
           "</InLine></Ad></VAST>";
  }
  // Loads a video interstitial with `markup`, shows it and lets 16 s of playback pass.
  void play(const std::string& markup) {
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(markup)});
    auto root = platform::ViewController::create();
    auto window = platform::DeviceProfile::phone().makeKeyWindow(root);
    test::Recorder recorder;
    auto delegate = test::recordingInterstitialDelegate(recorder);
    auto ad = ZVInterstitialAd::create(test::requestFor(server_));
    ad->setDelegate(delegate);
    ad->setSwitchToVideo(true);
    ad->loadAd();
    ASSERT_TRUE(test::runMainQueueUntil([&] { return !recorder.heard().empty(); }));
    ad->showFromViewController(root);
    platform::MainQueue::shared().advanceBy(16s);
  }
  const std::vector<std::string> expected_{"/complete",   "/complete", "/error", "/firstQuartile",
                                           "/impression", "/midpoint", "/start", "/thirdQuartile"};
};

// Off, nothing is stored or sent, and no start is reported, so no impression is handed over. On,
// each tracker is sent once, its macros expanded.
TEST_F(TrackedInterstitialTest, AnAdPlayedToTheEndSendsEachTrackerOnceOnlyWithTheTransportOn) {
  test::useVirtualClock();
  ZorvaSDK::shared()->setVastCdataText(true);
  auto handler = test::ObservingNetworkHandler::install();
  play(vast("video/mp4"));
  play(vast("video/x-unplayable"));
  for (const auto& list : handler->handedOverUrls()) {
    for (const auto& url : list) EXPECT_EQ(url.find("/impression"), std::string::npos);
  }
  std::this_thread::sleep_for(200ms);
  EXPECT_TRUE(paths(server_).empty());
  EXPECT_FALSE(ZVTrackingTransport::running());
  EXPECT_FALSE(std::filesystem::exists(queuePath_));

  ZorvaSDK::shared()->setTrackingTransport(true);
  for (const auto& path : expected_) server_.respond(path, {.status = 204, .body = ""});
  play(vast("video/mp4"));
  play(vast("video/x-unplayable"));
  ASSERT_TRUE(drained());
  EXPECT_EQ(paths(server_), expected_);
  // The expansion itself is TrackingMacros' concern: here, that it happens on the way out.
  for (const auto& request : server_.requests()) {
    if (request.path == test::kServadPath) continue;
    if (request.path == "/error") {
      EXPECT_EQ(request.params,
                (std::multimap<std::string, std::string>{{"code", "403"}, {"other", "[UNKNOWN]"}}));
      continue;
    }
    for (const auto& [key, value] : request.params) {
      EXPECT_EQ(value.find('['), std::string::npos) << request.path << " " << key << "=" << value;
    }
  }
}

TEST_F(TrackingTransportTest, AClickOnALinearAdSendsItsClickTrackersOnlyWithTheTransportOn) {
  server_.respond("/click", {.status = 204, .body = ""});
  std::string markup = test::linearVast("video/mp4", "https://example.com/landing");
  markup.insert(markup.find("</VideoClicks>"),
                "<ClickTracking>" + server_.url("/click") + "</ClickTracking>");
  for (const bool on : {false, true}) {
    ZorvaSDK::shared()->setTrackingTransport(on);
    auto handler = test::ObservingNetworkHandler::install();
    ZVPlayerConfig config;
    config.isExpectingVideoAd = true;
    config.ad = std::make_shared<ZorvaAd>();
    config.ad->creative = markup;
    auto player = ZVVastPlayer::create(config);
    player->play();
    platform::MainQueue::shared().runUntilIdle();
    auto linear = std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(player->vastAdPlayer());
    ASSERT_TRUE(linear);
    linear->touchesEnded();
    EXPECT_EQ(handler->handedOverUrls(),
              on ? std::vector<std::vector<std::string>>{{server_.url("/click")}}
                 : std::vector<std::vector<std::string>>{});
  }
  ASSERT_TRUE(drained());
  EXPECT_EQ(paths(server_), std::vector<std::string>{"/click"});
}

TEST_F(TrackingTransportTest, RetriesTransportErrorsAnd5xxUntilAnAnswerAndTakes4xxAsFinal) {
  options_.maxAge = 400ms;
  ZVTrackingTransport::setOptionsForTesting(options_);
  test::LogCapture log;
  ZorvaSDK::shared()->setTrackingTransport(true);
  for (const char* path : {"/a", "/b"}) {
    server_.respondInTurn(
        path,
        {{.status = 500, .body = ""}, {.status = 503, .body = ""}, {.status = 200, .body = ""}});
  }
  server_.respond("/gone", {.status = 404, .body = ""});
  const std::string unreachable =
      "http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/x";
  ZVInstanceFactory::sharedNetworkhandler()->fetchUrls(
      {server_.url("/a"), server_.url("/b"), server_.url("/gone"), unreachable, "not a url"},
      nullptr);
  ASSERT_TRUE(drained());
  std::this_thread::sleep_for(100ms);

  EXPECT_EQ(paths(server_),
            (std::vector<std::string>{"/a", "/a", "/a", "/b", "/b", "/b", "/gone"}));
  EXPECT_EQ(log.entriesContaining("Tracking sent (200, attempt 3)").size(), 2u);
  EXPECT_EQ(log.entriesContaining("Tracking failed (status 50").size(), 4u);
  EXPECT_EQ(log.entriesContaining("Tracking refused (404, final)").size(), 1u);
  EXPECT_EQ(log.entriesContaining("Tracking given up").size(), 1u);
  EXPECT_EQ(log.entriesContaining("Tracking dropped (not a URL): not a url").size(), 1u);
  EXPECT_GE(log.entriesContaining("/x").size(), 2u) << "the unreachable URL is retried";
}

// The tracking child (TrackingChild.cpp) run with `args`; killed with SIGKILL at the latest when
// this ends.
class Child {
 public:
  explicit Child(std::vector<std::string> args) {
    args.insert(args.begin(), ZORVA_TRACKING_CHILD);
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, ZORVA_TRACKING_CHILD, nullptr, nullptr, argv.data(), environ) != 0) {
      pid_ = 0;
    }
  }
  ~Child() { kill(); }
  // True when the child was running until now.
  bool kill() {
    int status = 0;
    if (pid_ == 0 || ::kill(pid_, SIGKILL) != 0 || waitpid(pid_, &status, 0) != pid_) return false;
    pid_ = 0;
    return WIFSIGNALED(status);
  }

 private:
  pid_t pid_ = 0;
};

// The URLs of a claim; a failed claim fails the test.
std::vector<std::string> urlsOf(const std::optional<std::vector<ZVTrackingQueue::Entry>>& claim) {
  std::vector<std::string> urls;
  EXPECT_TRUE(claim);
  for (const auto& entry : claim.value_or(std::vector<ZVTrackingQueue::Entry>{})) {
    urls.push_back(entry.url);
  }
  return urls;
}

// How often each path was asked for.
std::map<std::string, int> arrivals(const LoopbackServer& server) {
  std::map<std::string, int> counts;
  for (const auto& path : paths(server)) ++counts[path];
  return counts;
}

TEST_F(TrackingTransportTest, AUrlAnsweredToAKilledProcessIsSentOnceMoreWhenItsLeaseEnds) {
  // The dead process's request is held unanswered; the next one's is answered.
  server_.respondInTurn("/kill", {{.body = "", .delay = 30s}, {.status = 200, .body = ""}});
  Child child({"send", queuePath_, server_.url("/kill")});
  ASSERT_TRUE(server_.waitForRequests(1, 10s));
  ASSERT_TRUE(child.kill());
  const auto killed = std::chrono::steady_clock::now();

  ZorvaSDK::shared()->setTrackingTransport(true);
  ASSERT_TRUE(server_.waitForRequests(2, 10s));
  EXPECT_GT(std::chrono::steady_clock::now() - killed, 1s) << "the child's 2 s lease";
  EXPECT_TRUE(drained());
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(paths(server_), (std::vector<std::string>{"/kill", "/kill"}));
}

TEST_F(TrackingTransportTest, TwoProcessesSharingAQueueSendEachHandOverOnce) {
  std::vector<std::string> first{"send", queuePath_}, second{"send", queuePath_};
  std::map<std::string, int> expected;
  for (int i = 0; i < 25; ++i) {
    // The last five are handed over by both.
    const std::string own = "/a" + std::to_string(i), shared = "/s" + std::to_string(i);
    const std::string a = i < 20 ? own : shared, b = i < 20 ? "/b" + std::to_string(i) : shared;
    for (const auto& path : {a, b}) {
      server_.respond(path, {.status = 204, .body = "", .delay = 100ms});
      ++expected[path];
    }
    first.push_back(server_.url(a));
    second.push_back(server_.url(b));
  }
  Child one(first), two(second);
  ASSERT_TRUE(server_.waitForRequests(50, 30s));
  std::this_thread::sleep_for(1s);
  EXPECT_EQ(arrivals(server_), expected);
}

// Faults of the queue's file while two URLs stored earlier (/a1, /a2) and those handed over
// (/b1, /b2 at the start, /c1 during the fault) are to be sent: nothing is deleted, no URL arrives
// twice, during the fault or after it, and each arrives once the fault has gone. A small tmpfs
// gives a real read-only or full file system; SQLite's query_only gives what a file made
// read-only under an open connection answers (no file system turns read-only while a file on it
// is open for writing).
TEST_F(TrackingTransportTest, FileFaultsLoseNoUrlAndSendNoneTwice) {
  struct Fault {
    const char* name;
    bool tmpfs, afterSending;
    std::function<void(const std::string&folder)> apply, clear;
  };
  std::atomic<bool> readOnly = false;
  std::optional<Child> holder;
  const auto remount = [](const std::string& folder, unsigned long flags) {
    ASSERT_EQ(mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | flags, nullptr), 0);
  };
  const auto fill = [](const std::string& folder) {
    const int fd = ::open((folder + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
    const std::string block(4096, 'f');
    while (write(fd, block.data(), block.size()) > 0) continue;
    close(fd);
  };
  const auto unfill = [](const std::string& folder) {
    std::filesystem::remove(folder + "/filler");
  };
  const auto hold = [&](const std::string& folder) {
    holder.emplace(std::vector<std::string>{"hold", folder + "/tracking.sqlite"});
    ASSERT_TRUE(waitFor([&] {
      sqlite3* db = nullptr;
      sqlite3_open((folder + "/tracking.sqlite").c_str(), &db);
      const int result = sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
      sqlite3_close(db);
      return result == SQLITE_BUSY;
    }));
  };
  const Fault faults[] = {
      {"read-only folder", true, false, [&](auto& f) { remount(f, MS_RDONLY); },
       [&](auto& f) { remount(f, 0); }},
      {"read-only after opening", false, true, [&](auto&) { readOnly = true; },
       [&](auto&) { readOnly = false; }},
      {"full disk at start", true, false, fill, unfill},
      {"full disk after opening", true, true, fill, unfill},
      {"busy", false, false, hold, [&](auto&) { EXPECT_TRUE(holder->kill()); }},
  };
  options_.beforeFileUse = [&](sqlite3* db) {
    sqlite3_exec(db, readOnly ? "PRAGMA query_only=1" : "PRAGMA query_only=0", nullptr, nullptr,
                 nullptr);
  };
  ZVTrackingTransport::setOptionsForTesting(options_);
  int row = 0;
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.name);
    const std::string folder = folder_ + "/" + std::to_string(++row);
    std::filesystem::create_directories(folder);
    if (fault.tmpfs && mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=1m") != 0) {
      EXPECT_NE(geteuid(), 0u) << "root mounts a tmpfs";
      continue;
    }
    LoopbackServer server;
    std::map<std::string, int> expected;
    for (const char* path : {"/a1", "/a2", "/b1", "/b2", "/c1"}) {
      server.respond(path, {.status = 204, .body = "", .delay = 200ms});
      expected[path] = 1;
    }
    ZVTrackingQueue::open(folder + "/tracking.sqlite", 10)
        ->append({server.url("/a1"), server.url("/a2")}, 0);
    ZorvaSDK::shared()->setTrackingQueuePath(folder + "/tracking.sqlite");
    if (!fault.afterSending) fault.apply(folder);
    ZorvaSDK::shared()->setTrackingTransport(true);
    auto handler = ZVInstanceFactory::sharedNetworkhandler();
    handler->fetchUrls({server.url("/b1"), server.url("/b2")}, nullptr);
    if (fault.afterSending) {
      EXPECT_TRUE(server.waitForRequests(4, 10s));
      fault.apply(folder);
    }
    handler->fetchUrls({server.url("/c1")}, nullptr);
    // Dozens of the 20–50 ms back-offs.
    std::this_thread::sleep_for(1500ms);
    for (const auto& [path, count] : arrivals(server)) EXPECT_EQ(count, 1) << path;
    fault.clear(folder);
    EXPECT_TRUE(server.waitForRequests(5, 10s));
    EXPECT_TRUE(drained());
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(arrivals(server), expected);
    ZorvaSDK::shared()->setTrackingTransport(false);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      EXPECT_EQ(entry.path().string().find(".corrupt"), std::string::npos);
    }
    if (fault.tmpfs) umount2(folder.c_str(), MNT_DETACH);
  }
}

// What the queue finds at its path: a file SQLite reads as damaged or as no database is set
// aside and a new queue made; a file of the layout before versions were recorded is upgraded
// with its URLs; anything else is left as it is and no queue opens.
TEST_F(TrackingTransportTest, AQueueFileIsOpenedUpgradedOrSetAsideNeverDestroyed) {
  const auto database = [](const char* sql) {
    return [sql](const std::string& path) {
      sqlite3* db = nullptr;
      sqlite3_open(path.c_str(), &db);
      EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
      sqlite3_close(db);
    };
  };
  const auto fifo = [](const std::string& path) { mkfifo(path.c_str(), 0600); };
  struct Found {
    const char* name;
    std::function<void(const std::string&)> make;
    // URLs the queue opens with; nothing when it does not open.
    std::optional<std::vector<std::string>> urls;
  };
  const Found found[] = {
      {"text", [](auto& p) { std::ofstream(p) << std::string(8192, 'x'); }, {{}}},
      {"version 0",
       database("CREATE TABLE IF NOT EXISTS urls(id INTEGER PRIMARY KEY AUTOINCREMENT, url TEXT "
                "NOT NULL, created REAL NOT NULL, attempts INTEGER NOT NULL, due REAL NOT NULL);"
                "INSERT INTO urls(url, created, attempts, due) VALUES('u1', 1, 0, 1), "
                "('u2', 2, 3, 2)"),
       {{"u1", "u2"}}},
      {"another program's",
       database("CREATE TABLE notes(text); INSERT INTO notes VALUES('n')"),
       {}},
      {"a newer version", database("CREATE TABLE urls(url); PRAGMA user_version=2"), {}},
      {"a FIFO", fifo, {}},
      {"a directory", [](auto& p) { std::filesystem::create_directory(p); }, {}},
      {"a link to a FIFO",
       [&](auto& p) {
         fifo(p + ".fifo");
         std::filesystem::create_symlink(p + ".fifo", p);
       },
       {}},
      {"a character device", [](auto& p) { mknod(p.c_str(), S_IFCHR | 0600, makedev(1, 3)); }, {}},
  };
  const auto content = [](const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  test::LogCapture log;
  int row = 0;
  for (const auto& [name, make, urls] : found) {
    SCOPED_TRACE(name);
    const std::string path = folder_ + "/" + std::to_string(++row) + "/tracking.sqlite";
    std::filesystem::create_directories(folder_ + "/" + std::to_string(row));
    make(path);
    const auto type = std::filesystem::status(path).type();
    const std::string before = type == std::filesystem::file_type::regular ? content(path) : "";
    auto queue = ZVTrackingQueue::open(path, 10);
    ASSERT_EQ(queue != nullptr, urls.has_value());
    if (!queue) {
      EXPECT_EQ(std::filesystem::status(path).type(), type);
      EXPECT_EQ(type == std::filesystem::file_type::regular ? content(path) : "", before);
      continue;
    }
    EXPECT_EQ(urlsOf(queue->claim(10, 20, 10)), *urls);
    EXPECT_TRUE(queue->append({"new"}, 10));
    EXPECT_EQ(queue->size(), urls->size() + 1);
  }
  EXPECT_EQ(log.entriesContaining("set aside as").size(), 1u);
  std::vector<std::string> aside;
  for (const auto& entry : std::filesystem::directory_iterator(folder_ + "/1")) {
    if (entry.path().string().find(".corrupt-") != std::string::npos) {
      aside.push_back(content(entry.path()));
    }
  }
  EXPECT_EQ(aside, std::vector<std::string>{std::string(8192, 'x')});
}

// Two connections stand for two processes: the capacity holds for the whole file, and a claimed
// URL is claimed by no one else until its lease ends or it is rescheduled.
TEST_F(TrackingTransportTest, TheQueueKeepsTheNewestUrlsAndLeasesEachToOneClaim) {
  test::LogCapture log;
  auto one = ZVTrackingQueue::open(queuePath_, 3), two = ZVTrackingQueue::open(queuePath_, 3);
  ASSERT_TRUE(one && two);
  ASSERT_TRUE(one->append({"u1", "u2"}, 100));
  ASSERT_TRUE(two->append({"u3", "u4", "u5"}, 101));
  const auto claim = [](ZVTrackingQueue& queue, double now, std::size_t limit) {
    return urlsOf(queue.claim(now, now + 100, limit));
  };
  EXPECT_EQ(claim(*one, 101, 1), std::vector<std::string>{"u3"});
  const auto entries = two->claim(101, 201, 5).value();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].url, "u4");
  EXPECT_TRUE(claim(*one, 150, 5).empty());
  EXPECT_TRUE(two->retryAt(entries[0].id, 1, 300));
  EXPECT_EQ(one->nextDue(), 201);
  EXPECT_EQ(claim(*one, 250, 5), (std::vector<std::string>{"u3", "u5"}));
  EXPECT_EQ(claim(*two, 300, 5), std::vector<std::string>{"u4"});
  EXPECT_EQ(log.entriesContaining("dropped the oldest URL u").size(), 2u);
  EXPECT_EQ(log.entriesContaining("dropped the oldest URL u1").size(), 1u);
}

TEST_F(TrackingTransportTest, TheDefaultQueueIsPerAppAndRacingSwitchesEndAsTheSettingSays) {
  platform::Bundle::mainBundle().setInfoDictionary({{"CFBundleIdentifier", "com.example/app"}});
  setenv("XDG_CACHE_HOME", "/cache", 1);
  EXPECT_EQ(ZVTrackingTransport::defaultQueuePath(),
            "/cache/zorva/com.example_app/tracking.sqlite");
  unsetenv("XDG_CACHE_HOME");
  platform::Bundle::mainBundle().reset();
  for (int round = 0; round < 20; ++round) {
    std::thread on([] { ZorvaSDK::shared()->setTrackingTransport(true); });
    ZorvaSDK::shared()->setTrackingTransport(false);
    on.join();
    EXPECT_EQ(ZVTrackingTransport::running() != nullptr, ZorvaSDK::shared()->trackingTransport());
  }
}

TEST(TrackingMacros, CacheBustingAndTimestampAreExpandedAtSendTimeOthersLeftAsTheyAre) {
  platform::TimeZone::setSystemTimeZone(
      platform::TimeZone::timeZoneForSecondsFromGMT(-(3 * 3600 + 1800)));
  const auto at = std::chrono::system_clock::time_point(std::chrono::milliseconds(1772373909042));
  const auto url = ZVTrackingTransport::expandMacros(
      "http://t/?a=[CACHEBUSTING]&t=[TIMESTAMP]&e=[ERRORCODE]&b=[CACHEBUSTING]", at);
  const std::regex form(
      "http://t/"
      "\\?a=([0-9]{8})&t=2026-03-01T10%3A35%3A09\\.042-03%3A30&e=\\[ERRORCODE\\]&b=([0-9]{8})");
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(url, parts, form)) << url;
  EXPECT_NE(ZVTrackingTransport::expandMacros("[CACHEBUSTING]", at),
            ZVTrackingTransport::expandMacros("[CACHEBUSTING]", at));
}

}  // namespace
}  // namespace zorva
