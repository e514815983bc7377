// Two hundred ad objects loading and refreshing at once on one main queue, against one loopback
// server: every one hears its own answer exactly once, and a released one hears nothing.
#include <gtest/gtest.h>

#include <zorva/ZVBannerView.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/Window.h>

#include <array>
#include <variant>

#include "support/AdFormatTesting.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::MainQueue;

constexpr std::size_t kAds = 200;

// What one ad object heard, and on which thread.
struct Heard {
  int received = 0;
  int failed = 0;
  bool offMain = false;
};

TEST(ManyAdsAtOnceTest, EveryAdHearsItsOwnAnswerOnceAndAReleasedOneNothing) {
  test::useVirtualClock();
  auto root = platform::ViewController::create();
  auto window = platform::DeviceProfile::phone().makeKeyWindow(root);
  test::LoopbackServer server;
  // Held back a little so that every load is in flight at once.
  server.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup),
                                     .delay = std::chrono::milliseconds(50)});

  std::array<Heard, kAds> heard{};
  auto note = [&heard](std::size_t i, bool received) {
    (received ? heard[i].received : heard[i].failed)++;
    heard[i].offMain |= !MainQueue::shared().isCurrent();
  };
  // Three banners refreshing every 30 s to one interstitial.
  std::vector<std::variant<std::shared_ptr<ZVBannerView>, std::shared_ptr<ZVInterstitialAd>>> ads;
  // The app keeps its delegates, so that a call to a released ad's would be heard.
  std::vector<std::shared_ptr<void>> delegates;
  for (std::size_t i = 0; i < kAds; ++i) {
    if (i % 4 == 3) {
      auto delegate = std::make_shared<ZVInterstitialAdDelegate>();
      delegate->interstitialDidReceiveAd = [=](ZVInterstitialAd&) { note(i, true); };
      delegate->interstitialDidFailToReceiveAdWithError = [=](ZVInterstitialAd&, const Error&) {
        note(i, false);
      };
      auto ad = ZVInterstitialAd::create(test::requestFor(server));
      ad->setDelegate(delegate);
      delegates.push_back(delegate);
      ad->loadAd();
      ads.emplace_back(ad);
    } else {
      auto delegate = std::make_shared<ZVBannerViewDelegate>();
      delegate->bannerViewDidReceiveAd = [=](ZVBannerView&) { note(i, true); };
      delegate->bannerViewDidFailToReceiveAdWithError = [=](ZVBannerView&, const Error&) {
        note(i, false);
      };
      auto banner = ZVBannerView::create(test::requestFor(server), ZVAdSize{320, 50});
      banner->setRefreshInterval(30);
      banner->setDelegate(delegate);
      delegates.push_back(delegate);
      banner->loadAd();
      ads.emplace_back(banner);
    }
  }
  // Every fifth is released while its load is in flight.
  auto released = [](std::size_t i) { return i % 5 == 0; };
  for (std::size_t i = 0; i < kAds; i += 5) ads[i] = std::shared_ptr<ZVBannerView>();

  auto heardAll = [&](int loads, bool bannersOnly) {
    for (std::size_t i = 0; i < kAds; ++i) {
      const bool banner = i % 4 != 3;
      const int expected = released(i) ? 0 : (banner || !bannersOnly ? loads : 1);
      if (heard[i].received + heard[i].failed < expected) return false;
    }
    return true;
  };
  ASSERT_TRUE(
      test::runMainQueueUntil([&] { return heardAll(1, false); }, std::chrono::seconds(60)));
  // Whatever the released ones' answers (if their loads were not cancelled) do is done before
  // the next round.
  MainQueue::shared().runUntil([] { return false; }, std::chrono::milliseconds(300));
  const std::size_t firstRound = server.requests().size();

  // One refresh round: each live banner loads once more, the interstitials stay as they were.
  MainQueue::shared().advanceBy(platform::seconds(30));
  ASSERT_TRUE(test::runMainQueueUntil([&] { return heardAll(2, true); }, std::chrono::seconds(60)));
  MainQueue::shared().runUntil([] { return false; }, std::chrono::milliseconds(300));

  for (std::size_t i = 0; i < kAds; ++i) {
    SCOPED_TRACE(i);
    const int expected = released(i) ? 0 : (i % 4 == 3 ? 1 : 2);
    EXPECT_EQ(heard[i].received, expected);
    EXPECT_EQ(heard[i].failed, 0);
    EXPECT_FALSE(heard[i].offMain);
  }
  // Released banners never asked again.
  const std::size_t liveBanners = 120;
  EXPECT_EQ(server.requests().size(), firstRound + liveBanners);
}

}  // namespace
}  // namespace zorva
