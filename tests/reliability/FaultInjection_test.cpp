// Hostile servers end to end: every mode of zorva-adserver's HostileServer against a banner's and
// an interstitial's bid request and a video interstitial's VAST wrapper fetch, over real libcurl.
// Each load must end in one callback on the thread the SDK documents, within the deadline, and
// leave the ad object able to load again from a good server.
#include <gtest/gtest.h>

#include <zorva/ZorvaSDK.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "Common/ZVInstanceFactory.h"
#include "support/AdWorld.h"
#include "support/ObservingNetworkHandler.h"
#include "support/VastDocuments.h"
#include "zorva-adserver/HostileServer.h"

namespace zorva {
namespace {

using Mode = tools::HostileServer::Mode;
using std::chrono::milliseconds;

// The time-out in seconds of bid requests made to a hostile server (their reloads too), and of
// every wrapper fetch in place of the platform's 60. Bids only the good server answers keep the
// usual 10 s, which a loaded machine does not reach.
constexpr unsigned long kTimeout = 1;
// Far above the time-out: only a hang misses it.
constexpr milliseconds kDeadline{15000};

// What the app hears first: a failure on the network thread (a transport error with curl's
// code; for a wrapper, the VAST error 303 "no VAST response"), a failure on the main queue (an
// empty or broken body is not JSON), or the ad, on the main queue.
enum class Heard { FailOnNetwork, FailOnMain, Ad };
struct Expected {
  Heard heard;
  long code = 0;
};
struct Case {
  Mode mode;
  Expected bid;
  Expected wrapper;
};

constexpr Expected kNoVast{Heard::FailOnNetwork, 303};
constexpr Expected kNotJson{Heard::FailOnMain};
constexpr Expected kAd{Heard::Ad};

const Case kCases[] = {
    {Mode::ResetMidBody, {Heard::FailOnNetwork, 56}, kNoVast},  // receive failure
    {Mode::Trickle, {Heard::FailOnNetwork, 28}, kNoVast},       // time-out
    {Mode::ShortBody, {Heard::FailOnNetwork, 18}, kNoVast},     // partial file
    // curl hands over what inflated before the stream broke off: half a bid, half a VAST.
    {Mode::TruncatedGzip, kNotJson, kNoVast},
    {Mode::CorruptGzip, {Heard::FailOnNetwork, 61}, kNoVast},  // bad content encoding
    // Content-Length is the compressed megabyte, so only the cap on the inflated bytes as they
    // arrive can give "file too large".
    {Mode::GzipBomb, {Heard::FailOnNetwork, 63}, kNoVast},
    {Mode::RedirectLoop, {Heard::FailOnNetwork, 47}, kNoVast},  // too many redirects
    // curl refuses a header field over 100 KiB as "out of memory".
    {Mode::HugeHeader, {Heard::FailOnNetwork, 27}, kNoVast},
    {Mode::Silent, {Heard::FailOnNetwork, 28}, kNoVast},
    // No status is an error to the SDK: an empty body is not JSON (nor VAST), and curl drops a
    // body sent with 204 or 304.
    {Mode::NoContent, kNotJson, kNoVast},
    {Mode::NoContentWithBody, kNotJson, kNoVast},
    {Mode::NotModified, kNotJson, kNoVast},
    {Mode::NotModifiedWithBody, kNotJson, kNoVast},
    {Mode::ServerError, kNotJson, kNoVast},
    {Mode::ServerErrorWithBody, kAd, kAd},
};

// A bid whose VAST is one Wrapper of `target`.
std::string wrapperTo(const std::string& target) {
  return test::bidWithMarkup(
      "<VAST version=\"3.0\"><Ad id=\"w\"><Wrapper><AdSystem>w</AdSystem><VASTAdTagURI>" + target +
      "</VASTAdTagURI></Wrapper></Ad></VAST>");
}

// The world every load here starts from, its server the good one, wrapper fetches timed out.
template <typename Param>
class AdLoads : public ::testing::TestWithParam<Param>, protected test::AdWorld {
 protected:
  void SetUp() override {
    handler_ = test::ObservingNetworkHandler::install();
    handler_->setDefaultTimeout(kTimeout);
    server_.respond("/inline.xml", {.body = test::linearVast(), .contentType = "application/xml"});
  }

  std::shared_ptr<test::ObservingNetworkHandler> handler_;
};

class FaultInjection : public AdLoads<Case> {
 protected:
  void startHostile(std::string body, std::string type) {
    std::optional<Error> error;
    hostile_ = tools::HostileServer::start(
        {.mode = GetParam().mode, .body = std::move(body), .contentType = std::move(type)}, &error);
    ASSERT_TRUE(hostile_) << error->localizedDescription();
  }

  // Runs `load` of the `what` and checks the first callback against `expected`. After a failure
  // the object is back in its first state (where `state` is given) and, once `heal` has pointed it
  // at the good server, loads the ad.
  void failsThenLoadsAgain(const char* what, const Expected& expected,
                           const std::function<void()>& load, const std::function<int()>& state,
                           const std::function<void()>& heal) {
    SCOPED_TRACE(what);
    recorder_.clear();
    load();
    ASSERT_TRUE(test::runMainQueueUntil([&] { return !recorder_.heard().empty(); }, kDeadline));
    EXPECT_GE(hostile_->connections(), 1u);
    const test::Heard first = recorder_.heard()[0];
    EXPECT_EQ(first.name, expected.heard == Heard::Ad ? "receive" : "fail");
    EXPECT_EQ(first.onMainThread, expected.heard != Heard::FailOnNetwork);
    EXPECT_EQ(first.onNetworkThread, expected.heard == Heard::FailOnNetwork);
    if (expected.code != 0 && first.error) {
      EXPECT_EQ(first.error->code, expected.code) << first.error->localizedDescription();
    }
    if (expected.heard == Heard::Ad) return;
    if (state) {
      EXPECT_EQ(state(), 0);
    }
    heal();
    load();
    ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder_.heard().size() >= 2; }, kDeadline));
    platform::MainQueue::shared().runUntilIdle();
    const auto heard = recorder_.heard();
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[1].name, "receive");
  }

  std::unique_ptr<tools::HostileServer> hostile_;
};

TEST_P(FaultInjection, BidRequests) {
  startHostile(test::bidWithMarkup(test::kDisplayMarkup), "application/json");
  const std::string hostile = hostile_->baseUrl() + test::kServadPath;
  auto request = test::requestTo(hostile, kTimeout);
  auto banner = makeBanner(0, request);
  auto interstitial = makeInterstitial(request);
  const auto heal = [&] { request->serverUrl = server_.url(test::kServadPath); };
  failsThenLoadsAgain(
      "banner", GetParam().bid, [&] { banner->loadAd(); }, [&] { return banner->state(); }, heal);
  // The interstitial sets its state after starting the load, so a failure on the network thread
  // may come first and be overwritten, leaving it loading: only a failure told on the main queue
  // has a state to check, and the second load is a new interstitial's.
  request->serverUrl = hostile;
  const bool raced = GetParam().bid.heard == Heard::FailOnNetwork;
  std::function<int()> state;
  if (!raced) state = [&] { return interstitial->state(); };
  failsThenLoadsAgain(
      "interstitial", GetParam().bid, [&] { interstitial->loadAd(); }, state,
      [&] {
        heal();
        if (raced) interstitial = makeInterstitial(request);
      });
}

// The bid comes from the good server; its VAST is a Wrapper whose target is hostile.
TEST_P(FaultInjection, VideoInterstitialWrapperFetch) {
  startHostile(test::linearVast(), "application/xml");
  server_.respond(test::kServadPath, {.body = wrapperTo(hostile_->baseUrl() + "/vast.xml")});
  auto ad = makeInterstitial(test::requestFor(server_));
  ad->setSwitchToVideo(true);
  failsThenLoadsAgain(
      "video", GetParam().wrapper, [&] { ad->loadAd(); }, [&] { return ad->state(); },
      [&] { server_.respond(test::kServadPath, {.body = wrapperTo(server_.url("/inline.xml"))}); });
}

INSTANTIATE_TEST_SUITE_P(HostileServer, FaultInjection, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                           std::string name = tools::HostileServer::nameOf(info.param.mode);
                           std::replace(name.begin(), name.end(), '-', '_');
                           return "Mode_" + name;
                         });

// Only http and https leave the process, whatever a server names: a VAST Wrapper's tag URI, a
// redirect of a wrapper fetch or of the bid request, a tracking URL. Each foreign URL points at a
// canary that shows whether it was used: a FIFO, whose opener would block until a writer came,
// and a silent server, which counts the connections it accepts.
class ForeignScheme : public AdLoads<const char*> {
 protected:
  void SetUp() override {
    AdLoads::SetUp();
    fifo_ = std::filesystem::temp_directory_path() / ("zorva-canary-" + std::to_string(getpid()));
    ASSERT_EQ(mkfifo(fifo_.c_str(), 0600), 0);
    listener_ = tools::HostileServer::start({.mode = Mode::Silent}, nullptr);
    ASSERT_TRUE(listener_);
    url_ = GetParam();
    for (auto [mark, value] : {std::pair<std::string, std::string>{"FIFO", fifo_.string()},
                               {"PORT", std::to_string(listener_->port())}}) {
      if (auto at = url_.find(mark); at != std::string::npos) url_.replace(at, mark.size(), value);
    }
  }
  void TearDown() override {
    // Nobody opened the FIFO to read, nobody connected.
    const int writer = open(fifo_.c_str(), O_WRONLY | O_NONBLOCK);
    EXPECT_TRUE(writer < 0 && errno == ENXIO) << url_;
    if (writer >= 0) close(writer);
    if (listener_) {
      EXPECT_EQ(listener_->connections(), 0u) << url_;
    }
    std::filesystem::remove(fifo_);
  }

  std::filesystem::path fifo_;
  std::unique_ptr<tools::HostileServer> listener_;
  std::string url_;
};

TEST_P(ForeignScheme, IsNeverFetched) {
  server_.respond("/moved", {.status = 302, .body = "", .location = url_});
  auto ad = makeInterstitial(test::requestFor(server_));
  ad->setSwitchToVideo(true);
  // Each load's first callback is a failure with `code`.
  const auto failsWith = [&](long code, const std::function<void()>& load) {
    const std::size_t before = recorder_.heard().size();
    load();
    ASSERT_TRUE(
        test::runMainQueueUntil([&] { return recorder_.heard().size() > before; }, kDeadline));
    const auto heard = recorder_.heard()[before];
    ASSERT_TRUE(heard.error) << heard.name;
    EXPECT_EQ(heard.error->code, code) << heard.error->localizedDescription();
  };
  // A Wrapper naming it, then a Wrapper whose target redirects to it: no VAST response.
  for (const auto& target : {url_, server_.url("/moved")}) {
    server_.respond(test::kServadPath, {.body = wrapperTo(target)});
    failsWith(303, [&] { ad->loadAd(); });
  }
  // The bid request redirected to it: curl's "unsupported protocol".
  auto redirected = makeInterstitial(test::requestTo(server_.url("/moved")));
  failsWith(1, [&] { redirected->loadAd(); });
  // A tracking URL: dropped, while the web URL handed over with it is sent.
  const auto queue = fifo_.string() + ".sqlite";
  ZorvaSDK::shared()->setTrackingQueuePath(queue);
  ZorvaSDK::shared()->setTrackingTransport(true);
  server_.respond("/tracked", {});
  ZVInstanceFactory::sharedNetworkhandler()->fetchUrls({url_, server_.url("/tracked")}, nullptr);
  EXPECT_TRUE(server_.waitForRequests(5, kDeadline));
  ZorvaSDK::shared()->setTrackingTransport(false);
  for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(queue + suffix);
}

// A Wrapper fetch that never ends holds nothing else up: a banner loads while it hangs, long
// before the fetch's own time-out.
using StalledFetch = AdLoads<int>;
TEST_F(StalledFetch, HoldsNoOtherLoad) {
  const auto silent = tools::HostileServer::start({.mode = Mode::Silent}, nullptr);
  ASSERT_TRUE(silent);
  handler_->setDefaultTimeout(600);
  server_.respond("/stalled", {.body = wrapperTo(silent->baseUrl() + "/vast.xml")});
  auto video = makeInterstitial(test::requestTo(server_.url("/stalled")));
  video->setSwitchToVideo(true);
  video->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return silent->connections() > 0; }, kDeadline));
  auto banner = makeBanner(0, test::requestFor(server_));
  banner->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return !recorder_.heard().empty(); }, kDeadline));
  EXPECT_EQ(recorder_.heard()[0].name, "receive");  // the banner's: the video still waits
}

INSTANTIATE_TEST_SUITE_P(
    Schemes, ForeignScheme,
    ::testing::Values("file://FIFO", "FILE://FIFO", "ftp://127.0.0.1:PORT/vast.xml",
                      "gopher://127.0.0.1:PORT/_GET%20/vast.xml", "dict://127.0.0.1:PORT/d:vast",
                      "telnet://127.0.0.1:PORT", "data:text/xml,%3CVAST%20version=%223.0%22/%3E"));

}  // namespace
}  // namespace zorva
