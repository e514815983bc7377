// The opt-in tracking transport against the loopback server: what an ad played to the end sends,
// retries, a process killed after its hand-over, the queue's bounds and a corrupt queue file.
#include <gtest/gtest.h>

#include <zorva/ZVInterstitialAd.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/TimeZone.h>
#include <zorva/platform/Window.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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
    ZVTrackingTransport::setOptionsForTesting(options_);
    ZVLog::setLevel(4);
  }
  void TearDown() override {
    ZorvaSDK::shared()->setTrackingTransport(false);
    std::filesystem::remove_all(folder_);
  }
  // Waits until every stored URL has had its final answer.
  static bool drained() {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (ZVTrackingTransport::running()->pending() != 0) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(5ms);
    }
    return true;
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

TEST_F(TrackingTransportTest, AUrlHandedOverByAKilledProcessIsSentByTheNextOne) {
  // The dead process's request is held unanswered; the next one's is answered.
  server_.respondInTurn("/kill", {{.body = "", .delay = 30s}, {.status = 200, .body = ""}});
  // The child's request reaching the server shows the URL stored.
  const std::string url = server_.url("/kill");
  char* argv[] = {const_cast<char*>(ZORVA_TRACKING_CHILD), queuePath_.data(),
                  const_cast<char*>(url.c_str()), nullptr};
  pid_t child = 0;
  ASSERT_EQ(posix_spawn(&child, ZORVA_TRACKING_CHILD, nullptr, nullptr, argv, environ), 0);
  EXPECT_TRUE(server_.waitForRequests(1, 10s));
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));

  ZorvaSDK::shared()->setTrackingTransport(true);
  ASSERT_TRUE(server_.waitForRequests(2, 10s));
  EXPECT_TRUE(drained());
  EXPECT_EQ(paths(server_), (std::vector<std::string>{"/kill", "/kill"}));
}

TEST_F(TrackingTransportTest, AFullQueueDropsTheOldestAndACorruptFileIsReplaced) {
  test::LogCapture log;
  {
    ZVTrackingQueue queue(queuePath_, 3);
    queue.append({"u1", "u2"}, 100);
    queue.append({"u3", "u4", "u5"}, 101);
    const auto entries = queue.due(101, 10, {});
    std::vector<std::string> kept;
    for (const auto& entry : entries) kept.push_back(entry.url);
    ASSERT_EQ(kept, (std::vector<std::string>{"u3", "u4", "u5"}));
    // URLs in flight are left out, and so is their due time.
    queue.retryAt(entries[1].id, 1, 200);
    EXPECT_EQ(queue.due(101, 1, {entries[0].id}).front().url, "u5");
    EXPECT_EQ(queue.nextDue({entries[0].id, entries[2].id}), 200);
  }
  EXPECT_EQ(log.entriesContaining("dropped the oldest URL u").size(), 2u);
  EXPECT_EQ(log.entriesContaining("dropped the oldest URL u1").size(), 1u);

  std::filesystem::remove(queuePath_ + "-wal");
  std::filesystem::remove(queuePath_ + "-shm");
  std::ofstream(queuePath_, std::ios::trunc) << std::string(8192, 'x');
  ZVTrackingQueue queue(queuePath_, 3);
  EXPECT_EQ(log.entriesContaining("unreadable").size(), 1u);
  EXPECT_EQ(queue.size(), 0u);
  queue.append({"u6"}, 102);
  EXPECT_EQ(queue.size(), 1u);
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
