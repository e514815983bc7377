// Hostile servers end to end: every mode of zorva-adserver's HostileServer against a banner's and
// an interstitial's bid request and a video interstitial's VAST wrapper fetch, over real libcurl.
// Each load must end in one callback on the thread the SDK documents, within the deadline, and
// leave the ad object able to load again from a good server.
#include <gtest/gtest.h>

#include <zorva/ZVBannerView.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/Window.h>

#include <algorithm>
#include <functional>
#include <ostream>

#include "support/AdFormatTesting.h"
#include "support/ObservingNetworkHandler.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"
#include "zorva-adserver/HostileServer.h"

namespace zorva {
namespace {

using Mode = tools::HostileServer::Mode;
using std::chrono::milliseconds;

// The bid requests' time-out in seconds, and the wrapper fetches' in place of the platform's 60.
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

// Read in the logs as the mode's name.
void PrintTo(const Case& c, std::ostream* os) { *os << tools::HostileServer::nameOf(c.mode); }

class FaultInjection : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    handler_ = test::ObservingNetworkHandler::install();
    handler_->setDefaultTimeout(kTimeout);
    good_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
    good_.respond("/inline.xml", {.body = test::linearVast(), .contentType = "application/xml"});
    window_ = platform::DeviceProfile::phone().makeKeyWindow(root_);
  }

  void startHostile(std::string body, std::string type) {
    std::optional<Error> error;
    hostile_ = tools::HostileServer::start(
        {.mode = GetParam().mode, .body = std::move(body), .contentType = std::move(type)}, &error);
    ASSERT_TRUE(hostile_) << error->localizedDescription();
  }

  std::shared_ptr<ZVInterstitialAd> makeInterstitial(std::shared_ptr<ZVAdRequest> request) {
    auto ad = ZVInterstitialAd::create(std::move(request));
    ad->setDelegate(interstitialDelegate_);
    return ad;
  }

  // Runs `load` and checks the first callback against `expected`; true when it was a failure, so
  // the object should load again.
  bool firstCallbackIs(const Expected& expected, const std::function<void()>& load) {
    const auto began = std::chrono::steady_clock::now();
    load();
    EXPECT_TRUE(test::runMainQueueUntil([&] { return !recorder_.heard().empty(); }, kDeadline));
    const auto took = std::chrono::steady_clock::now() - began;
    RecordProperty("callback_ms",
                   static_cast<int>(std::chrono::duration_cast<milliseconds>(took).count()));
    EXPECT_GE(hostile_->connections(), 1u);
    if (recorder_.heard().empty()) return false;
    const test::Heard first = recorder_.heard()[0];
    EXPECT_EQ(first.name, expected.heard == Heard::Ad ? "receive" : "fail");
    EXPECT_EQ(first.onMainThread, expected.heard != Heard::FailOnNetwork);
    EXPECT_EQ(first.onNetworkThread, expected.heard == Heard::FailOnNetwork);
    if (expected.code != 0 && first.error) {
      EXPECT_EQ(first.error->code, expected.code) << first.error->localizedDescription();
    }
    return expected.heard != Heard::Ad;
  }

  // Runs `load` against a good server: the ad arrives and nothing else was heard.
  void loadsAgain(const std::function<void()>& load) {
    load();
    ASSERT_TRUE(test::runMainQueueUntil([&] { return recorder_.heard().size() >= 2; }, kDeadline));
    platform::MainQueue::shared().runUntilIdle();
    const auto heard = recorder_.heard();
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[1].name, "receive");
  }

  std::shared_ptr<test::ObservingNetworkHandler> handler_;
  test::LoopbackServer good_;
  std::unique_ptr<tools::HostileServer> hostile_;
  std::shared_ptr<platform::ViewController> root_ = platform::ViewController::create();
  std::shared_ptr<platform::Window> window_;
  test::Recorder recorder_;
  std::shared_ptr<ZVInterstitialAdDelegate> interstitialDelegate_ =
      test::recordingInterstitialDelegate(recorder_);
};

TEST_P(FaultInjection, BannerBidRequest) {
  startHostile(test::bidWithMarkup(test::kDisplayMarkup), "application/json");
  auto request = test::requestTo(hostile_->baseUrl() + test::kServadPath, kTimeout);
  auto banner = ZVBannerView::create(request, ZVAdSize{320, 50});
  auto delegate = test::recordingBannerDelegate<ZVBannerViewDelegate>(recorder_);
  banner->setDelegate(delegate);
  if (!firstCallbackIs(GetParam().bid, [&] { banner->loadAd(); })) return;
  EXPECT_EQ(banner->state(), 0);
  request->serverUrl = good_.url(test::kServadPath);
  loadsAgain([&] { banner->loadAd(); });
}

TEST_P(FaultInjection, InterstitialBidRequest) {
  startHostile(test::bidWithMarkup(test::kDisplayMarkup), "application/json");
  auto request = test::requestTo(hostile_->baseUrl() + test::kServadPath, kTimeout);
  auto ad = makeInterstitial(request);
  if (!firstCallbackIs(GetParam().bid, [&] { ad->loadAd(); })) return;
  EXPECT_EQ(ad->state(), 0);
  request->serverUrl = good_.url(test::kServadPath);
  loadsAgain([&] { ad->loadAd(); });
}

// The bid comes from the good server; its VAST is a Wrapper whose target is hostile.
TEST_P(FaultInjection, VideoInterstitialWrapperFetch) {
  startHostile(test::linearVast(), "application/xml");
  auto wrapperTo = [](const std::string& target) {
    return test::bidWithMarkup(
        "<VAST version=\"3.0\"><Ad id=\"w\"><Wrapper><AdSystem>w</AdSystem><VASTAdTagURI>" +
        target + "</VASTAdTagURI></Wrapper></Ad></VAST>");
  };
  good_.respond(test::kServadPath, {.body = wrapperTo(hostile_->baseUrl() + "/vast.xml")});
  auto ad = makeInterstitial(test::requestFor(good_, kTimeout));
  ad->setSwitchToVideo(true);
  if (!firstCallbackIs(GetParam().wrapper, [&] { ad->loadAd(); })) return;
  EXPECT_EQ(ad->state(), 0);
  good_.respond(test::kServadPath, {.body = wrapperTo(good_.url("/inline.xml"))});
  loadsAgain([&] { ad->loadAd(); });
}

INSTANTIATE_TEST_SUITE_P(HostileServer, FaultInjection, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                           std::string name = tools::HostileServer::nameOf(info.param.mode);
                           std::replace(name.begin(), name.end(), '-', '_');
                           return "Mode_" + name;
                         });

}  // namespace
}  // namespace zorva
