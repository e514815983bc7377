// The opt-in tracking transport against the loopback server: an ad's trackers, retries, processes
// killed or sharing a queue, faults of the queue's file and what the queue finds at its path.
#include <gtest/gtest.h>

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/ProcessInfo.h>
#include <zorva/platform/TimeZone.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <sqlite3.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <latch>
#include <map>
#include <regex>
#include <thread>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"
#include "Interstitial/ZVInterstitialAdImpl.h"
#include "Network/ZVTrackingQueue.h"
#include "Network/ZVTrackingTransport.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/AdWorld.h"
#include "support/ObservingNetworkHandler.h"
#include "support/VastDocuments.h"
#include "tools/Subprocess.h"

namespace zorva {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;

// How often each path was asked for, bid requests left out.
std::map<std::string, int> arrivals(const LoopbackServer& server) {
  std::map<std::string, int> counts;
  for (const auto& request : server.requests())
    counts[request.path] += request.path != test::kServadPath;
  std::erase_if(counts, [](const auto& count) { return count.second == 0; });
  return counts;
}

class TrackingTransportTest : public test::AdWorldTest {
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
    while (!done() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(5ms);
    return done();
  }
  // Waits until every stored URL has had its final answer.
  static bool drained() {
    return waitFor([] { return ZVTrackingTransport::running()->pending() == 0; });
  }

  ZVTrackingTransport::Options options_;
  std::string folder_;
  std::string queuePath_;
};

// A video interstitial whose linear ad's every tracker (a click tracker added) points at the
// loopback server with a macro, tapped and played to the end on the headless media engine; then
// one, tapped too, whose only media file cannot be played. Off, nothing is stored or sent, and no
// start is reported, so no impression is handed over. On, each tracker is sent once it has an
// answer, its macros expanded, and with the start the impression. A hand-over never calls back.
TEST_F(TrackingTransportTest, AnAdsTrackersAreSentUntilAnAnswerOnlyWithTheTransportOn) {
  const auto play = [&](const std::string& mime) {
    std::string xml = test::linearVast(mime);
    xml.insert(xml.find("<MediaFiles>"),
               "<VideoClicks><ClickTracking>http://track/click</ClickTracking></VideoClicks>");
    xml = std::regex_replace(xml, std::regex("http://(track|imp|err)/(\\w+)\\??"),
                             server_.url("/$1$2") + "?cb=[CACHEBUSTING]&amp;");
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(xml)});
    auto root = platform::ViewController::create();
    auto window = platform::DeviceProfile::phone().makeKeyWindow(root);
    auto ad = makeInterstitial();
    ad->setSwitchToVideo(true);
    recorder_.clear();
    ad->loadAd();
    ASSERT_TRUE(test::runMainQueueUntil([&] { return !recorder_.heard().empty(); }));
    ad->showFromViewController(root);
    auto vast = std::dynamic_pointer_cast<ZVVastPlayer>(
        ZVInterstitialAd::Impl::of(*ad).player()->playerView());
    ASSERT_TRUE(vast);
    if (auto linear = std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(vast->vastAdPlayer())) {
      linear->touchesEnded();
    }
    platform::MainQueue::shared().advanceBy(21s);
  };
  std::map<std::string, int> expected{{"/trackcomplete", 2},      {"/errinline", 1},
                                      {"/trackfirstQuartile", 1}, {"/impinline", 1},
                                      {"/trackmidpoint", 1},      {"/trackstart", 1},
                                      {"/trackclick", 2},         {"/trackthirdQuartile", 1}};
  test::useVirtualClock();
  ZorvaSDK::shared()->setVastCdataText(true);
  auto handler = test::ObservingNetworkHandler::install();
  play("video/mp4");
  play("video/x-unplayable");
  for (const auto& list : handler->handedOverUrls()) {
    EXPECT_FALSE(list.empty()) << "a tap without the transport hands over no click trackers";
    for (const auto& url : list) EXPECT_EQ(url.find("/imp"), std::string::npos);
  }
  handler->fetchUrls({server_.url("/trackstart")},
                     [](auto&&...) { ADD_FAILURE() << "called back"; });
  std::this_thread::sleep_for(200ms);
  EXPECT_TRUE(arrivals(server_).empty());
  EXPECT_FALSE(ZVTrackingTransport::running());
  EXPECT_FALSE(std::filesystem::exists(queuePath_));

  // On, 5xx answers and transport errors are retried until an answer or until too old; a 4xx is
  // final, and text that is no URL is dropped.
  options_.maxAge = 400ms;
  ZVTrackingTransport::setOptionsForTesting(options_);
  test::LogCapture log;
  ZorvaSDK::shared()->setTrackingTransport(true);
  for (const auto& [path, count] : expected) server_.respond(path, {.status = 204, .body = ""});
  server_.respondInTurn(
      "/trackstart",
      {{.status = 500, .body = ""}, {.status = 503, .body = ""}, {.status = 204, .body = ""}});
  server_.respond("/trackmidpoint", {.status = 404, .body = ""});
  play("video/mp4");
  play("video/x-unplayable");
  const std::string unreachable =
      "http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/x";
  handler->fetchUrls({unreachable, "not a url"}, [](auto&&...) { ADD_FAILURE() << "called back"; });
  ASSERT_TRUE(drained());
  expected["/trackstart"] = 3;
  EXPECT_EQ(arrivals(server_), expected);
  EXPECT_EQ(log.entriesContaining("Tracking given up").size(), 1u);
  EXPECT_EQ(log.entriesContaining("Tracking dropped (not a URL): not a url").size(), 1u);
  EXPECT_GE(log.entriesContaining("/x").size(), 2u) << "the unreachable URL is retried";
  // The expansion itself is TrackingMacros' concern: here, that it happens on the way out.
  for (const auto& request : server_.requests()) {
    for (const auto& [key, value] : request.params) {
      const std::regex form(key == "code" ? "403" : "[0-9]{8}");
      EXPECT_TRUE(request.path == test::kServadPath || std::regex_match(value, form)) << key;
    }
  }
}

// A process killed while its request is held unanswered, then two sharing its queue, each handing
// over its own URLs and five the same: the dead one's URL is sent once more when its lease ends,
// every other once per hand-over.
TEST_F(TrackingTransportTest, ProcessesSharingAQueueSendEachHandOverOnceAndADeadOnesOnceMore) {
  server_.respondInTurn("/kill", {{.body = "", .delay = 30s}, {.status = 200, .body = ""}});
  const auto spawned = std::chrono::steady_clock::now();
  test::Subprocess dead(ZORVA_TRACKING_CHILD, {queuePath_, server_.url("/kill")});
  ASSERT_TRUE(server_.waitForRequests(1, 10s));
  dead.signal(SIGKILL);
  ASSERT_EQ(dead.finish(), -1);
  std::vector<std::string> first{queuePath_}, second{queuePath_};
  std::map<std::string, int> expected{{"/kill", 2}};
  for (int i = 0; i < 50; ++i) {  // the last five of each handed over by both
    const std::string path = (i % 25 >= 20 ? "/s" : i < 25 ? "/a" : "/b") + std::to_string(i % 25);
    server_.respond(path, {.status = 204, .body = "", .delay = 100ms});
    ++expected[path];
    (i < 25 ? first : second).push_back(server_.url(path));
  }
  test::Subprocess one(ZORVA_TRACKING_CHILD, first), two(ZORVA_TRACKING_CHILD, second);
  ASSERT_TRUE(server_.waitForRequests(52, 30s));
  std::this_thread::sleep_for(1s);
  EXPECT_EQ(arrivals(server_), expected);
  const auto requests = server_.requests();
  const auto resent = std::find_if(requests.rbegin(), requests.rend(),
                                   [](const auto& request) { return request.path == "/kill"; });
  EXPECT_GE(resent->arrived - spawned, 2s) << "sent again within the dead one's lease";
}

// Faults of the queue's file (a small tmpfs, files made immutable, another process's transaction)
// while two URLs stored earlier and three handed over (two at the start, one during the fault) are
// to be sent: none arrives twice, during the fault or after it, and each arrives once it has gone.
TEST_F(TrackingTransportTest, FileFaultsLoseNoUrlAndSendNoneTwice) {
  const auto tmpfs = [](const std::string& at) {
    const bool mounted = mount("tmpfs", at.c_str(), "tmpfs", 0, "size=1m") == 0;
    EXPECT_TRUE(mounted || geteuid() != 0) << "root mounts a tmpfs";
    return mounted;
  };
  const auto remount = [](unsigned long flags) {
    return [flags](const std::string& at) {
      mount(nullptr, at.c_str(), nullptr, MS_REMOUNT | flags, nullptr);
    };
  };
  const auto fill = [](const std::string& at) {
    const int fd = ::open((at + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
    while (write(fd, std::string(4096, 'f').data(), 4096) > 0) continue;
    close(fd);
  };
  const auto unfill = [](const std::string& at) { std::filesystem::remove(at + "/filler"); };
  // The database and its log made immutable: writes through descriptors already open are refused,
  // root's too, where the filesystem enforces it (ext4 does, tmpfs does not: `enforced`).
  const auto immutable = [](bool on) {
    return [on](const std::string& at) {
      bool set = true;
      for (const char* name : {"/tracking.sqlite", "/tracking.sqlite-wal"}) {
        const int fd = ::open((at + name).c_str(), O_RDONLY | O_CREAT, 0600);
        int flags = 0;
        set = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && set;
        flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
        set = ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0 && set;
        close(fd);
      }
      return set;
    };
  };
  const auto enforced = [&](const std::string& at) {
    const int fd = ::open((at + "/tracking.sqlite").c_str(), O_WRONLY | O_CREAT, 0600);
    const bool refused = immutable(true)(at) && write(fd, "x", 1) < 0;
    return immutable(false)(at) && close(fd) == 0 && refused &&
           std::filesystem::remove(at + "/tracking.sqlite") &&
           std::filesystem::remove(at + "/tracking.sqlite-wal");
  };
  std::optional<test::Subprocess> holder;
  const auto hold = [&](const std::string& at) {
    holder.emplace(ZORVA_TRACKING_CHILD, std::vector<std::string>{"hold", at + "/tracking.sqlite"});
    EXPECT_TRUE(waitFor([&] { return std::filesystem::exists(at + "/tracking.sqlite.held"); }));
  };
  const struct {
    const char* name;
    std::function<bool(const std::string&)> setUp;  // false: this machine cannot make the fault
    bool afterSending;
    std::function<void(const std::string&)> apply, clear;
  } faults[] = {
      {"read-only folder", tmpfs, false, remount(MS_RDONLY), remount(0)},
      {"full disk after opening", tmpfs, true, fill, unfill},
      {"read-only files after opening", enforced, true, immutable(true), immutable(false)},
      {"busy in another process", nullptr, true, hold, [&](auto&) { holder.reset(); }},
  };
  int row = 0;
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.name);
    const std::string folder = folder_ + "/" + std::to_string(++row);
    std::filesystem::create_directories(folder);
    if (fault.setUp && !fault.setUp(folder)) {
      std::cerr << "Skipped, not possible here: " << fault.name << "\n";
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
    if (fault.afterSending) {  // their answers come after the fault
      EXPECT_TRUE(server.waitForRequests(4, 10s));
      fault.apply(folder);
    }
    handler->fetchUrls({server.url("/c1")}, nullptr);
    std::this_thread::sleep_for(2500ms);  // past the leases, the busy time-out, many back-offs
    for (const auto& [path, count] : arrivals(server)) EXPECT_EQ(count, 1) << path;
    fault.clear(folder);
    const auto emptied = [&] {  // the file's rows too: the transport may have it closed
      auto file = ZVTrackingQueue::open(folder + "/tracking.sqlite", 10);
      return file && file->size() == 0u;
    };
    EXPECT_TRUE(server.waitForRequests(5, 10s) && waitFor(emptied) && drained());
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(arrivals(server), expected);
    ZorvaSDK::shared()->setTrackingTransport(false);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      EXPECT_EQ(entry.path().string().find(".corrupt"), std::string::npos);
    }
    umount2(folder.c_str(), MNT_DETACH);  // a tmpfs row's
  }
}

// What the queue finds at its path: a file SQLite reads as damaged or as no database is set
// aside and a new queue made; one of the layout before versions were recorded is upgraded with
// its URLs; anything else is left as it is and no queue opens. A queue that opens leases what it
// claims, and keeps its newest URLs.
TEST_F(TrackingTransportTest, AQueueFileIsOpenedUpgradedOrSetAsideNeverDestroyed) {
  const auto database = [](std::string sql) {
    return [sql](const std::string& path) {
      sqlite3* db = nullptr;
      EXPECT_EQ(sqlite3_open(path.c_str(), &db) || sqlite3_exec(db, sql.c_str(), {}, {}, {}), 0);
      sqlite3_close(db);
    };
  };
  const struct {
    const char* name;
    std::function<void(const std::string&)> make;
    std::optional<std::vector<std::string>> urls;  // nothing: no queue opens
  } found[] = {
      {"text", [](auto& p) { std::ofstream(p) << std::string(8192, 'x'); }, {{}}},
      {"version 0 (the statement before versions)",
       database(
           "CREATE TABLE IF NOT EXISTS urls(id INTEGER PRIMARY KEY AUTOINCREMENT, url TEXT "
           "NOT NULL, created REAL NOT NULL, attempts INTEGER NOT NULL, due REAL NOT NULL);"
           "INSERT INTO urls(url, created, attempts, due) VALUES('u1', 1, 0, 1), ('u2', 2, 3, 2)"),
       {{"u1", "u2"}}},
      {"another program's",
       database("CREATE TABLE notes(text); INSERT INTO notes VALUES('n')"),
       {}},
      {"a newer version", database("CREATE TABLE urls(url); PRAGMA user_version=2"), {}},
      {"a link to a FIFO",
       [](auto& p) {
         mkfifo((p + ".fifo").c_str(), 0600);
         std::filesystem::create_symlink(p + ".fifo", p);
       },
       {}},
  };
  const auto content = [](const std::filesystem::path& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  test::LogCapture log;
  int row = 0;
  for (const auto& [name, make, urls] : found) {
    SCOPED_TRACE(name);
    const std::string path = folder_ + "/" + std::to_string(++row) + "/tracking.sqlite";
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    make(path);
    const auto type = std::filesystem::status(path).type();  // a link's target's
    const auto regular = [&] {
      return type == std::filesystem::file_type::regular ? content(path) : "";
    };
    const std::string before = regular();
    auto queue = ZVTrackingQueue::open(path, 2);
    ASSERT_EQ(queue != nullptr, urls.has_value());
    if (!queue) {
      EXPECT_EQ(std::filesystem::status(path).type(), type);
      EXPECT_EQ(regular(), before);
      continue;
    }
    std::vector<std::string> claimed;
    const auto entries = queue->claim(10, 20, 10).value();
    for (const auto& entry : entries) claimed.push_back(entry.url);
    EXPECT_EQ(claimed, *urls);
    EXPECT_TRUE(queue->claim(19, 30, 10)->empty()) << "leased until 20";
    EXPECT_TRUE(queue->append({"new"}, 10));
    EXPECT_EQ(queue->size(), std::min<std::size_t>(urls->size() + 1, 2));
  }
  EXPECT_EQ(log.entriesContaining("dropped the oldest URL u1").size(), 1u);
  const auto aside = log.entriesContaining("set aside as");
  ASSERT_EQ(aside.size(), 1u);
  std::smatch file;
  ASSERT_TRUE(std::regex_search(aside[0], file, std::regex("/\\S+\\.corrupt-[0-9]+")));
  EXPECT_EQ(content(file.str()), std::string(8192, 'x'));
}

TEST_F(TrackingTransportTest, OnAndOffFromTwoThreadsAtOnceLeaveTheTransportAsTheSettingSays) {
  auto sdk = ZorvaSDK::shared();
  for (int round = 0; round < 200; ++round) {
    std::latch ready(2);
    std::thread on([&] { ready.arrive_and_wait(), sdk->setTrackingTransport(true); });
    ready.arrive_and_wait();
    sdk->setTrackingTransport(false);
    on.join();
    ASSERT_EQ(sdk->trackingTransport(), ZVTrackingTransport::running() != nullptr) << round;
  }
}

// Unset, the queue's file is the app's own: `$XDG_CACHE_HOME/zorva/<app>/tracking.sqlite`, <app>
// the bundle's identifier, or the program's name without one, made one folder name.
TEST_F(TrackingTransportTest, TheDefaultQueueFileIsTheAppsOwn) {
  const char* cacheHome = std::getenv("XDG_CACHE_HOME");
  const auto saved = cacheHome ? std::optional<std::string>(cacheHome) : std::nullopt;
  setenv("XDG_CACHE_HOME", folder_.c_str(), 1);
  platform::ProcessInfo::setProcessName("a/../b");
  ZorvaSDK::shared()->setTrackingQueuePath(std::nullopt);
  for (const auto& [info, app] :
       {std::pair<Value, std::string>{{{"CFBundleIdentifier", "com.a.b"}}, "com.a.b"},
        {Value::object(), "a_.._b"}}) {
    platform::Bundle::mainBundle().setInfoDictionary(info);
    ZorvaSDK::shared()->setTrackingTransport(true);
    EXPECT_TRUE(waitFor([&] {
      return std::filesystem::exists(folder_ + "/zorva/" + app + "/tracking.sqlite");
    })) << app;
    ZorvaSDK::shared()->setTrackingTransport(false);
  }
  saved ? setenv("XDG_CACHE_HOME", saved->c_str(), 1) : unsetenv("XDG_CACHE_HOME");
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
  EXPECT_TRUE(std::regex_match(url, form)) << url;
  EXPECT_NE(ZVTrackingTransport::expandMacros("[CACHEBUSTING]", at),
            ZVTrackingTransport::expandMacros("[CACHEBUSTING]", at));
}

}  // namespace
}  // namespace zorva
