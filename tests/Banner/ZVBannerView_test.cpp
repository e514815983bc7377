// The banner and the in-banner video end to end: the real loader, request builder and players,
// libcurl, the loopback server and the headless web and media engines; refresh, retry and
// playback on the virtual clock. Then many ads loading at once.
#include <gtest/gtest.h>

#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/SafariViewController.h>

#include <deque>
#include <future>

#include "Banner/ZVBannerViewImpl.h"
#include "Banner/ZVInBannerVideoImpl.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastPlayer.h"
#include "support/AdWorld.h"
#include "support/ObservingNetworkHandler.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::MainQueue;
using platform::seconds;

class BannerTest : public test::AdWorldTest {
 protected:
  std::shared_ptr<platform::VirtualClock> clock_ = test::useVirtualClock();
};

// Without a refresh interval, a failure (told on the main queue) makes the banner loadable again
// and schedules nothing; a click in the loaded ad is told around the browser it opens. With one,
// each session ends after it and the next load starts at once; no timer keeps its banner alive
// or does anything once it is gone. A delegate without callbacks hears nothing.
TEST_F(BannerTest, ALoadedAdsViewIsPinnedInsideAndOnlyWithRefreshDoSessionsEndAndFailuresRetry) {
  server_.respond(test::kServadPath, {.body = "not json"});
  auto banner = makeBanner();
  banner->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  EXPECT_TRUE(recorder_.heard()[0].onMainThread);
  EXPECT_EQ(banner->state(), 0);
  EXPECT_EQ(MainQueue::shared().nextFireDate(), std::nullopt);

  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
  banner->setFrame(platform::Rect(0, 0, 360, 60));  // not the ad's own size
  bannerDelegate_->bannerViewDidReceiveAd = [&](ZVBannerView& b) {
    recorder_.note("receive");
    EXPECT_FALSE(b.subviews().empty());  // the ad is in before the app hears of it
  };
  banner->loadAd();
  EXPECT_EQ(banner->state(), 1);
  banner->loadAd();  // refused while loading
  ASSERT_TRUE(waitFor("receive"));
  EXPECT_TRUE(recorder_.heard()[1].onMainThread);
  auto view = ZVBannerView::Impl::of(*banner).player()->playerView();
  ASSERT_EQ(banner->subviews(), std::vector<std::shared_ptr<platform::View>>{view});
  banner->layoutIfNeeded();
  EXPECT_EQ(view->frame(), platform::Rect(0, 0, 360, 60));
  // A display ad never reports a start, nor, without a refresh interval, an end: the banner stays
  // loading with no timer pending.
  EXPECT_EQ(banner->state(), 1);
  EXPECT_EQ(MainQueue::shared().nextFireDate(), std::nullopt);

  // The banner asked once more, for its slot, not its frame.
  ASSERT_EQ(server_.requests().size(), 2u);
  EXPECT_EQ(Value::parse(server_.requests()[1].body)["imp"][0]["banner"].dump(),
            R"({"w":320,"h":50})");

  auto page = std::dynamic_pointer_cast<platform::WebView>(view);
  ASSERT_TRUE(page);
  platform::HeadlessWebEngine::of(*page)->clickLink(
      platform::URLRequest(platform::URL::URLWithString("https://advertiser.example/")));
  auto browser =
      std::dynamic_pointer_cast<platform::SafariViewController>(root_->presentedViewController());
  ASSERT_TRUE(browser);
  browser->finish();
  EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"fail", "receive", "present", "dismiss"}));

  recorder_.clear();
  auto shown = makeBanner(30);
  shown->loadAd();
  ASSERT_TRUE(waitFor("receive"));
  auto& impl = ZVBannerView::Impl::of(*shown);
  auto firstView = impl.player()->playerView();
  MainQueue::shared().advanceBy(seconds(29.9));
  EXPECT_EQ(shown->state(), 1);
  MainQueue::shared().advanceBy(seconds(0.1));
  EXPECT_EQ(shown->state(), 3);
  ASSERT_TRUE(waitFor("receive", 2));
  // The new ad's view goes on top; the old one stays underneath.
  EXPECT_EQ(shown->subviews(),
            (std::vector<std::shared_ptr<platform::View>>{firstView, impl.player()->playerView()}));
  // The finished state refuses the app's loads (which would make it loading); the refresh
  // continues on its own.
  shown->loadAd();
  EXPECT_EQ(shown->state(), 3);

  auto silent = std::make_shared<ZVBannerViewDelegate>();
  shown->setDelegate(silent);
  impl.playerWillPresentModal();
  impl.playerDidDismissModal();
  impl.didFailToReceivedAd(Error("test", 1, {}));
  server_.respond(test::kServadPath, {.body = "not json"});
  auto failed = makeBanner(30);
  failed->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  std::weak_ptr<ZVBannerView> watchShown = shown, watchFailed = failed;
  shown.reset();
  failed.reset();
  EXPECT_TRUE(watchShown.expired());
  EXPECT_TRUE(watchFailed.expired());
  MainQueue::shared().advanceBy(seconds(60));
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"receive", "receive", "fail"}));
}

// A transport failure is told on the network thread, which also schedules the retry. A second
// failure replaces the retry tracker, but the first retry still comes.
TEST_F(BannerTest, WithRefreshEveryFailureIsToldAndRetriedAfterTheIntervalWithoutLoadAd) {
  auto banner = makeBanner(30, test::unreachableRequest());
  banner->loadAd();
  ASSERT_TRUE(waitFor("fail"));
  EXPECT_FALSE(recorder_.heard()[0].onMainThread);
  EXPECT_EQ(banner->state(), 1);
  EXPECT_EQ(MainQueue::shared().nextFireDate(), clock_->now() + seconds(30));
  MainQueue::shared().advanceBy(seconds(10));
  ZVBannerView::Impl::of(*banner).playerDidFailWithError(Error("WebKitErrorDomain", 102));
  MainQueue::shared().advanceBy(seconds(20));
  ASSERT_TRUE(waitFor("fail", 3));  // the first retry, due at 30 s
  EXPECT_FALSE(recorder_.heard()[2].onMainThread);
  MainQueue::shared().advanceBy(seconds(10));
  ASSERT_TRUE(waitFor("fail", 4));  // the second, due at 40 s
}

// The app lets go of the banner while its transport failure is being told on
// the network thread: the banner, and the views in it, must still be destroyed
// on the main thread.
TEST_F(BannerTest, ABannerReleasedDuringANetworkThreadFailureDiesOnTheMainThread) {
  auto banner = makeBanner(0, test::unreachableRequest());
  auto probe = std::make_shared<test::DestructionProbe::Record>();
  banner->addSubview(test::DestructionProbe::create(probe));
  auto inCallback = std::make_shared<std::atomic<bool>>(false);
  std::promise<void> released;
  bannerDelegate_->bannerViewDidFailToReceiveAdWithError =
      [inCallback, appLetGo = released.get_future().share()](ZVBannerView&, const Error&) {
        *inCallback = true;
        appLetGo.wait_for(std::chrono::seconds(10));
      };
  banner->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return inCallback->load(); }));
  banner.reset();
  released.set_value();
  EXPECT_FALSE(probe->destroyed);
  ASSERT_TRUE(test::runMainQueueUntil([&] { return probe->destroyed.load(); }));
  EXPECT_TRUE(probe->onMainThread);
}

using InBannerVideoTest = BannerTest;

// The request asks for a video impression; receipt shows nothing until playAd; the end is reported
// and further loads are refused. Another video, released during its playback, and one released
// during its load hear nothing more.
TEST_F(InBannerVideoTest, AVideoAdIsShownOnPlayAdAndReportedAtItsEndAReleasedOneHearsNothing) {
  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::linearVast(), 300, 250)});
  auto handler = test::ObservingNetworkHandler::install();
  auto video = makeVideo();
  auto playing = makeVideo();
  video->setFrame(platform::Rect(0, 0, 320, 180));  // not the ad's own size
  video->loadAd();
  playing->loadAd();
  ASSERT_TRUE(waitFor("receive", 2));
  EXPECT_TRUE(recorder_.heard()[0].onMainThread);
  EXPECT_TRUE(video->subviews().empty());
  const Value imp = Value::parse(server_.requests().at(0).body)["imp"][0];
  EXPECT_EQ(imp["video"]["w"], 300);
  EXPECT_EQ(imp["video"]["h"], 250);
  EXPECT_EQ(imp["instl"], 0);

  video->playAd();
  playing->playAd();
  auto view = ZVInBannerVideo::Impl::of(*video).player()->playerView();
  EXPECT_EQ(video->subviews(), std::vector<std::shared_ptr<platform::View>>{view});
  video->layoutIfNeeded();
  EXPECT_EQ(view->frame(), platform::Rect(0, 0, 320, 180));

  // A tap on the video is told around the browser it opens.
  auto vast = std::dynamic_pointer_cast<ZVVastPlayer>(view);
  ASSERT_TRUE(vast);
  ASSERT_TRUE(test::runMainQueueUntil([&] { return vast->vastAdPlayer() != nullptr; }));
  std::dynamic_pointer_cast<ZVVastLinearAdPlayer>(vast->vastAdPlayer())->touchesEnded();
  auto browser =
      std::dynamic_pointer_cast<platform::SafariViewController>(root_->presentedViewController());
  ASSERT_TRUE(browser);
  browser->finish();

  // VAST players never report a start, so the video stays "loading" until its end.
  MainQueue::shared().advanceBy(seconds(2));
  EXPECT_EQ(video->state(), 1);
  server_.respond(test::kServadPath, {.body = "not json", .delay = std::chrono::milliseconds(100)});
  auto loading = makeVideo();
  loading->loadAd();
  ASSERT_TRUE(test::runMainQueueUntil([&] { return server_.requests().size() == 3; }));
  std::weak_ptr<ZVInBannerVideo> watch = playing;
  for (auto* released : {&playing, &loading}) {
    (*released)->removeFromSuperview();
    released->reset();
  }
  EXPECT_TRUE(watch.expired());
  ASSERT_TRUE(handler->waitForCompletedFetches(3, std::chrono::seconds(10)));
  MainQueue::shared().advanceBy(seconds(20));
  ASSERT_TRUE(waitFor("finish"));
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(video->state(), 3);
  EXPECT_EQ(recorder_.names(),
            (std::vector<std::string>{"receive", "receive", "present", "dismiss", "finish"}));

  video->loadAd();  // refused: a load would make it loading again
  EXPECT_EQ(video->state(), 3);
}

using ManyAdsAtOnceTest = BannerTest;

// Two hundred ad objects loading and refreshing at once on one main queue, against one loopback
// server: every one hears its own answer exactly once, and a released one hears nothing.
TEST_F(ManyAdsAtOnceTest, EveryAdHearsItsOwnAnswerOnceAndAReleasedOneNothing) {
  constexpr std::size_t kAds = 200;
  // Held back a little so that every load is in flight at once.
  server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup),
                                      .delay = std::chrono::milliseconds(50)});
  // Three banners refreshing every 30 s to one interstitial, each heard on its own. The app keeps
  // its delegates, so that a call to a released ad's would be heard.
  std::deque<test::Recorder> heard(kAds);
  std::vector<std::shared_ptr<void>> ads, delegates;
  const auto interstitial = [](std::size_t i) { return i % 4 == 3; };
  for (std::size_t i = 0; i < kAds; ++i) {
    if (interstitial(i)) {
      auto ad = ZVInterstitialAd::create(test::requestFor(server_));
      delegates.push_back(test::recordingInterstitialDelegate(heard[i]));
      ad->setDelegate(std::static_pointer_cast<ZVInterstitialAdDelegate>(delegates.back()));
      ad->loadAd();
      ads.push_back(ad);
    } else {
      auto banner = ZVBannerView::create(test::requestFor(server_), ZVAdSize{320, 50});
      delegates.push_back(test::recordingBannerDelegate<ZVBannerViewDelegate>(heard[i]));
      banner->setRefreshInterval(30);
      banner->setDelegate(std::static_pointer_cast<ZVBannerViewDelegate>(delegates.back()));
      banner->loadAd();
      ads.push_back(banner);
    }
  }
  // Every fifth is released while its load is in flight.
  for (std::size_t i = 0; i < kAds; i += 5) ads[i].reset();
  // What each has heard after `rounds` loads of the banners: the interstitials load once.
  const auto expected = [&](std::size_t i, std::size_t rounds) -> std::size_t {
    return i % 5 == 0 ? 0 : interstitial(i) ? 1 : rounds;
  };
  // Whatever the released ones' answers (if their loads were not cancelled) do is done too.
  const auto settle = [&](std::size_t rounds) {
    EXPECT_TRUE(test::runMainQueueUntil(
        [&] {
          for (std::size_t i = 0; i < kAds; ++i) {
            if (heard[i].heard().size() < expected(i, rounds)) return false;
          }
          return true;
        },
        std::chrono::seconds(60)));
    MainQueue::shared().runUntil([] { return false; }, std::chrono::milliseconds(300));
  };
  settle(1);
  const std::size_t firstRound = server_.requests().size();
  // One refresh round: each live banner loads once more, the interstitials stay as they were.
  MainQueue::shared().advanceBy(platform::seconds(30));
  settle(2);
  for (std::size_t i = 0; i < kAds; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(heard[i].names(), std::vector<std::string>(expected(i, 2), "receive"));
    for (const auto& callback : heard[i].heard()) EXPECT_TRUE(callback.onMainThread);
  }
  EXPECT_EQ(server_.requests().size(), firstRound + 120) << "a released banner asked again";
}

}  // namespace
}  // namespace zorva
