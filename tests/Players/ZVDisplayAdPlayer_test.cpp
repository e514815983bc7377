#include "Players/ZVDisplayAdPlayer.h"

#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/TestEnvironment.h"

namespace zorva {
namespace {

using platform::HeadlessWebEngine;
using platform::MainQueue;
using platform::NavigationActionPolicy;
using platform::NavigationType;
using platform::seconds;
using platform::URL;
using platform::URLRequest;

URLRequest requestFor(const char* url) { return URLRequest(URL::URLWithString(url)); }

class RecordingPlayerDelegate : public ZVAdPlayerDelegate {
 public:
  void playerWillPresentModal() override { events.push_back("willPresent"); }
  void playerDidDismissModal() override { events.push_back("didDismiss"); }
  void playerDidLoad() override {
    events.push_back("load");
    if (onLoad) onLoad();
  }
  void playerDidStartPlaying() override { events.push_back("start"); }
  void playerDidEndPlaying() override { events.push_back("end"); }
  void playerDidFailWithError(const Error& error) override {
    events.push_back("fail");
    errors.push_back(error);
  }
  bool respondsToPlayerWillPresentModal() const override { return implementsModalReports; }
  bool respondsToPlayerDidDismissModal() const override { return implementsModalReports; }

  bool implementsModalReports = true;
  std::function<void()> onLoad;
  std::vector<std::string> events;
  std::vector<Error> errors;
};

std::shared_ptr<ZorvaAd> adWith(Value creative, Value skadn = nullptr) {
  auto ad = std::make_shared<ZorvaAd>();
  ad->creative = std::move(creative);
  ad->size = ZVAdSize(320, 50);
  ad->skadn = std::move(skadn);
  return ad;
}

class ZVDisplayAdPlayerTest : public testing::Test {
 protected:
  void SetUp() override {
    root = platform::ViewController::create();
    platform::DeviceProfile::phone().makeKeyWindow(root);
    delegate = std::make_shared<RecordingPlayerDelegate>();
  }

  std::shared_ptr<ZVDisplayAdPlayer> makePlayer(std::shared_ptr<ZorvaAd> ad,
                                                std::uint64_t sessionTime = 0) {
    ZVPlayerConfig config;
    config.ad = std::move(ad);
    auto player = ZVDisplayAdPlayer::create(config);
    if (sessionTime) player->setAdPlayTracker(ZVAdPlayTracker::create(sessionTime));
    player->setDelegate(delegate);
    return player;
  }
  static HeadlessWebEngine& engineOf(const ZVDisplayAdPlayer& player) {
    return *HeadlessWebEngine::of(*player.htmlPlayer()->contenView());
  }

  std::shared_ptr<platform::ViewController> root;
  std::shared_ptr<RecordingPlayerDelegate> delegate;
};

TEST_F(ZVDisplayAdPlayerTest, ALinkTappedAfterTheLoadIsOneClickAndTheAdDoesNotNavigate) {
  auto player = makePlayer(adWith("<a href='https://advertiser.example/'>go</a>"));
  EXPECT_EQ(player->playerView(), player->htmlPlayer()->contenView());
  EXPECT_EQ(player->playerView()->frame(), platform::Rect(0, 0, 320, 50));
  player->play();
  MainQueue::shared().runUntilIdle();
  ASSERT_EQ(delegate->events, (std::vector<std::string>{"load"}));

  auto& engine = engineOf(*player);
  EXPECT_EQ(engine.clickLink(requestFor("https://advertiser.example/")),
            NavigationActionPolicy::Cancel);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(engine.provisionalNavigation(), nullptr);
  ASSERT_TRUE(engine.request());
  EXPECT_EQ(engine.request()->url, ZVHTMLPlayer::creativeBaseURL());  // still the markup page

  auto browser =
      std::dynamic_pointer_cast<platform::SafariViewController>(root->presentedViewController());
  ASSERT_TRUE(browser);
  EXPECT_EQ(browser->url().absoluteString(), "https://advertiser.example/");
  EXPECT_EQ(browser->presentedViewController(), nullptr);
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "willPresent"}));

  browser->finish();
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "willPresent", "didDismiss"}));
  EXPECT_EQ(root->presentedViewController(), nullptr);
}

TEST_F(ZVDisplayAdPlayerTest, AnOtherNavigationIsTheCreativeLoadingUntilThePageHasLoaded) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  auto player = makePlayer(adWith("<iframe src='https://cdn.example/frame'></iframe>"));
  player->play();
  MainQueue::shared().runUntilIdle();
  auto& engine = engineOf(*player);
  ASSERT_TRUE(engine.provisionalNavigation());
  EXPECT_EQ(engine.navigate(requestFor("https://cdn.example/redirected"), NavigationType::Other),
            NavigationActionPolicy::Allow);
  EXPECT_EQ(root->presentedViewController(), nullptr);

  ASSERT_TRUE(engine.finishNavigation());
  EXPECT_EQ(engine.navigate(requestFor("https://advertiser.example/auto"), NavigationType::Other),
            NavigationActionPolicy::Cancel);
  auto browser =
      std::dynamic_pointer_cast<platform::SafariViewController>(root->presentedViewController());
  ASSERT_TRUE(browser);
  EXPECT_EQ(browser->url().absoluteString(), "https://advertiser.example/auto");
}

TEST_F(ZVDisplayAdPlayerTest, FormsHistoryAndReloadsAreFollowedNotClicked) {
  auto player = makePlayer(adWith("<form></form>"));
  player->play();
  MainQueue::shared().runUntilIdle();
  auto& engine = engineOf(*player);
  for (auto type : {NavigationType::FormSubmitted, NavigationType::BackForward,
                    NavigationType::Reload, NavigationType::FormResubmitted}) {
    EXPECT_EQ(engine.navigate(requestFor("https://advertiser.example/form"), type),
              NavigationActionPolicy::Allow);
    MainQueue::shared().runUntilIdle();
  }
  EXPECT_EQ(root->presentedViewController(), nullptr);
  EXPECT_EQ(engine.request()->url->absoluteString(), "https://advertiser.example/form");
  // An alert raised by the creative does not hold the page up.
  EXPECT_TRUE(engine.runJavaScriptAlert("You won!"));
}

TEST_F(ZVDisplayAdPlayerTest, AClickWithAttributionOpensTheStoreSheet) {
  auto player = makePlayer(
      adWith("<a>go</a>", {{"itunesitem", "1234567890"}, {"network", "example.skadnetwork"}}));
  player->play();
  MainQueue::shared().runUntilIdle();
  engineOf(*player).clickLink(requestFor("https://apps.example/app/id1234567890"));
  auto sheet = std::dynamic_pointer_cast<platform::StoreProductViewController>(
      root->presentedViewController());
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet->productParameters(),
            Value({{"id", 1234567890}, {"adNetworkIdentifier", "example.skadnetwork"}}));
}

TEST_F(ZVDisplayAdPlayerTest, ModalReportsGoOnlyToADelegateThatImplementsThem) {
  delegate->implementsModalReports = false;
  auto player = makePlayer(adWith("<a>go</a>"));
  player->play();
  MainQueue::shared().runUntilIdle();
  engineOf(*player).clickLink(requestFor("https://advertiser.example/"));
  auto browser =
      std::dynamic_pointer_cast<platform::SafariViewController>(root->presentedViewController());
  ASSERT_TRUE(browser);
  browser->finish();
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load"}));
}

TEST_F(ZVDisplayAdPlayerTest, TheSessionEndsNSecondsAfterEachFinishedLoad) {
  test::useVirtualClock();
  auto player = makePlayer(adWith("<p>ad</p>"), 30);
  // The session timer is already running when the delegate hears of the load.
  delegate->onLoad = [&] {
    ASSERT_TRUE(player->adPlayTracker()->timer());
    EXPECT_TRUE(player->adPlayTracker()->timer()->isValid());
  };
  player->play();
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load"}));
  MainQueue::shared().advanceBy(seconds(29.9));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load"}));
  MainQueue::shared().advanceBy(seconds(0.1));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "end"}));

  player->play();
  MainQueue::shared().runUntilIdle();
  MainQueue::shared().advanceBy(seconds(30));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "end", "load", "end"}));
}

TEST_F(ZVDisplayAdPlayerTest, WithoutATrackerTheOnlyReportIsTheLoad) {
  test::useVirtualClock();
  auto player = makePlayer(adWith("<p>ad</p>"));
  player->play();
  MainQueue::shared().runUntilIdle();
  MainQueue::shared().advanceBy(seconds(3600));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load"}));
}

TEST_F(ZVDisplayAdPlayerTest, AReleasedPlayersPendingSessionTimerDoesNothing) {
  test::useVirtualClock();
  auto player = makePlayer(adWith("<p>ad</p>"), 30);
  player->play();
  MainQueue::shared().runUntilIdle();
  // Keep the tracker (and so its timer) past the player: only the weak hold on the player
  // stands between the timer and a released object.
  auto tracker = player->adPlayTracker();
  std::weak_ptr<ZVDisplayAdPlayer> released = player;
  player.reset();
  EXPECT_TRUE(released.expired());
  MainQueue::shared().advanceBy(seconds(60));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load"}));

  // And when the tracker goes with the player, its timer goes too.
  auto another = makePlayer(adWith("<p>ad</p>"), 30);
  another->play();
  MainQueue::shared().runUntilIdle();
  another.reset();
  MainQueue::shared().advanceBy(seconds(60));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"load", "load"}));
}

TEST_F(ZVDisplayAdPlayerTest, AFailedPageIsPassedOnUnchanged) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  auto player = makePlayer(adWith("<p>ad</p>"));
  player->play();
  MainQueue::shared().runUntilIdle();
  const auto failure = Error::withDescription("WebKitErrorDomain", 102, "interrupted");
  ASSERT_TRUE(engineOf(*player).failNavigation(failure));
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"fail"}));
  ASSERT_EQ(delegate->errors.size(), 1u);
  EXPECT_EQ(delegate->errors[0], failure);
}

TEST_F(ZVDisplayAdPlayerTest, ACreativeThatIsNotTextFailsOnPlayWithoutLoading) {
  for (Value creative : {Value(42), Value({{"html", "<p>"}}), Value::array({"<p>"})}) {
    SCOPED_TRACE(creative.dump());
    delegate->events.clear();
    delegate->errors.clear();
    auto player = makePlayer(adWith(creative));
    player->play();
    EXPECT_TRUE(delegate->events.empty());  // not inside the caller's play
    MainQueue::shared().runUntilIdle();
    EXPECT_EQ(delegate->events, (std::vector<std::string>{"fail"}));
    ASSERT_EQ(delegate->errors.size(), 1u);
    EXPECT_EQ(delegate->errors[0].domain, "ZorvaSDK");
    EXPECT_EQ(delegate->errors[0].code, 2);
    EXPECT_FALSE(engineOf(*player).html());
    EXPECT_FALSE(engineOf(*player).request());
    ASSERT_TRUE(player->playerView());
  }
  // Released before the report's turn: nothing arrives.
  delegate->events.clear();
  auto player = makePlayer(adWith(42));
  player->play();
  player.reset();
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(delegate->events.empty());
}

TEST_F(ZVDisplayAdPlayerTest, NoAdOrANullCreativeIsAnEmptyPage) {
  for (auto ad : {adWith(nullptr), std::shared_ptr<ZorvaAd>()}) {
    delegate->events.clear();
    auto player = makePlayer(ad);
    player->play();
    MainQueue::shared().runUntilIdle();
    EXPECT_EQ(engineOf(*player).html(), ZVHTMLPlayer::pageForCreative(""));
    EXPECT_EQ(delegate->events, (std::vector<std::string>{"load"}));
  }
}

}  // namespace
}  // namespace zorva
