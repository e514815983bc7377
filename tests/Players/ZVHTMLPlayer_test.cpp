#include "Players/ZVHTMLPlayer.h"

#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorva {
namespace {

using platform::HeadlessWebEngine;
using platform::MainQueue;
using platform::NavigationActionPolicy;
using platform::NavigationType;
using platform::URL;
using platform::URLRequest;

URLRequest requestFor(const char* url) { return URLRequest(URL::URLWithString(url)); }

class RecordingHTMLDelegate : public ZVHTMLPlayerDelegate {
 public:
  void htmlPlayerDidPlayAd() override { events.push_back("played"); }
  void htmlPlayerDidFailToPlayWithError(const Error& error) override {
    events.push_back("failed");
    errors.push_back(error);
  }
  bool htmlPlayerShouldLoadRequest(const URLRequest& request, NavigationType type) override {
    asked.emplace_back(request.url ? request.url->absoluteString() : "", type);
    return allow;
  }

  bool allow = true;
  std::vector<std::string> events;
  std::vector<Error> errors;
  std::vector<std::pair<std::string, NavigationType>> asked;
};

struct PlayerUnderTest {
  explicit PlayerUnderTest(std::string creative)
      : player(ZVHTMLPlayer::create(platform::Rect(0, 0, 320, 50), std::move(creative))),
        delegate(std::make_shared<RecordingHTMLDelegate>()) {
    player->setDelegate(delegate);
  }
  HeadlessWebEngine& engine() const { return *HeadlessWebEngine::of(*player->contenView()); }

  std::shared_ptr<ZVHTMLPlayer> player;
  std::shared_ptr<RecordingHTMLDelegate> delegate;
};

const char* const kPageHead =
    "<html><head><script></script><meta name=\"viewport\" content=\"initial-scale=1.0\"/>"
    "<style>*:not(input){-webkit-touch-callout:none;-webkit-text-size-adjust:none;}"
    "body{margin:0;padding:0;}</style></head><body><div align=\"center\">";
const char* const kPageTail = "</div></body></html>";

TEST(ZVHTMLPlayer, AWebAddressLoadsAsARequestAndEverythingElseIsWrappedInTheAdPage) {
  PlayerUnderTest secure("https://ads.example.com/creative?id=7");
  secure.player->play();
  MainQueue::shared().runUntilIdle();
  ASSERT_TRUE(secure.engine().request() && secure.engine().request()->url);
  EXPECT_EQ(secure.engine().request()->url->absoluteString(),
            "https://ads.example.com/creative?id=7");
  EXPECT_FALSE(secure.engine().html());
  EXPECT_EQ(secure.delegate->events, (std::vector<std::string>{"played"}));

  // The prefix test is case-sensitive: a capitalised scheme is markup.
  PlayerUnderTest shouting("HTTPS://ads.example.com/x");
  shouting.player->play();
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(shouting.engine().html(),
            std::string(kPageHead) + "HTTPS://ads.example.com/x" + kPageTail);
  ASSERT_TRUE(shouting.engine().baseURL());
  EXPECT_EQ(shouting.engine().baseURL(), ZVHTMLPlayer::creativeBaseURL());
  EXPECT_EQ(shouting.engine().baseURL()->scheme(), "http");

  // Markup that itself contains "%@" is put in as it is.
  PlayerUnderTest markup("<a href=\"https://x.test\">%@ go</a>");
  markup.player->play();
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(markup.engine().html(),
            std::string(kPageHead) + "<a href=\"https://x.test\">%@ go</a>" + kPageTail);
}

TEST(ZVHTMLPlayer, AnEmptyCreativeGivesTheAdPageWithAnEmptyCentredDivision) {
  PlayerUnderTest empty("");
  empty.player->play();
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(empty.engine().html(), std::string(kPageHead) + kPageTail);
}

TEST(ZVHTMLPlayer, LoadingFinishedTracksTheLoadAndEachLoadIsReportedOnce) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  PlayerUnderTest test("<p>ad</p>");
  EXPECT_FALSE(test.player->loadingFinished());
  test.player->play();
  MainQueue::shared().runUntilIdle();
  // The initial load passes through the delegate's policy as "other".
  ASSERT_EQ(test.delegate->asked.size(), 1u);
  EXPECT_EQ(test.delegate->asked[0].second, NavigationType::Other);
  EXPECT_FALSE(test.player->loadingFinished());

  ASSERT_TRUE(test.engine().finishNavigation());
  EXPECT_TRUE(test.player->loadingFinished());
  EXPECT_EQ(test.delegate->events, (std::vector<std::string>{"played"}));

  test.player->play();
  EXPECT_FALSE(test.player->loadingFinished());
  MainQueue::shared().runUntilIdle();
  const auto failure = Error::withDescription("WebKitErrorDomain", 102, "Frame load interrupted");
  ASSERT_TRUE(test.engine().failNavigation(failure));
  EXPECT_TRUE(test.player->loadingFinished());
  EXPECT_EQ(test.delegate->events, (std::vector<std::string>{"played", "failed"}));
  ASSERT_EQ(test.delegate->errors.size(), 1u);
  EXPECT_EQ(test.delegate->errors[0], failure);
}

TEST(ZVHTMLPlayer, APageThatFailsBeforeItCommitsIsNotReported) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  PlayerUnderTest test("https://unreachable.example/");
  test.player->play();
  MainQueue::shared().runUntilIdle();
  ASSERT_TRUE(test.engine().failProvisionalNavigation(
      Error::withDescription("NSURLErrorDomain", -1003, "host not found")));
  EXPECT_TRUE(test.delegate->events.empty());
  EXPECT_FALSE(test.player->loadingFinished());
}

TEST(ZVHTMLPlayer, TheDelegateDecidesEveryNavigationAndWithoutOneNothingIsFollowed) {
  PlayerUnderTest test("<p>ad</p>");
  test.player->play();
  MainQueue::shared().runUntilIdle();
  test.delegate->allow = false;
  EXPECT_EQ(test.engine().clickLink(requestFor("https://click.example/")),
            NavigationActionPolicy::Cancel);
  test.delegate->allow = true;
  EXPECT_EQ(
      test.engine().navigate(requestFor("https://form.example/"), NavigationType::FormSubmitted),
      NavigationActionPolicy::Allow);
  ASSERT_EQ(test.delegate->asked.size(), 3u);
  EXPECT_EQ(test.delegate->asked[1],
            std::make_pair(std::string("https://click.example/"), NavigationType::LinkActivated));
  EXPECT_EQ(test.delegate->asked[2].second, NavigationType::FormSubmitted);

  test.delegate.reset();
  EXPECT_EQ(test.engine().clickLink(requestFor("https://click.example/")),
            NavigationActionPolicy::Cancel);
}

TEST(ZVHTMLPlayer, ANewWindowOpensInTheSameWebViewThroughThePolicyAgain) {
  PlayerUnderTest test("<p>ad</p>");
  test.player->play();
  MainQueue::shared().runUntilIdle();
  const auto enginesBefore = HeadlessWebEngine::liveEngines().size();

  EXPECT_EQ(test.engine().openNewWindow(requestFor("https://popup.example/"),
                                        NavigationType::LinkActivated),
            NavigationActionPolicy::Allow);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(HeadlessWebEngine::liveEngines().size(), enginesBefore);
  ASSERT_TRUE(test.engine().request() && test.engine().request()->url);
  EXPECT_EQ(test.engine().request()->url->absoluteString(), "https://popup.example/");
  // Asked once for the window, once more for the load in this view.
  ASSERT_EQ(test.delegate->asked.size(), 3u);
  EXPECT_EQ(test.delegate->asked[2].first, "https://popup.example/");

  // A request that names a main frame is not the player's to open.
  platform::NavigationAction inMainFrame{requestFor("https://main.example/"),
                                         NavigationType::LinkActivated, platform::FrameInfo{}};
  EXPECT_EQ(test.player->webViewCreateWebViewWithConfiguration(
                *test.player->contenView(), test.player->contenView()->configuration(), inMainFrame,
                platform::WindowFeatures{}),
            nullptr);
  MainQueue::shared().runUntilIdle();
  EXPECT_EQ(test.delegate->asked.size(), 3u);
}

TEST(ZVHTMLPlayer, DialogsAreAnsweredAtOnceAndNeverShown) {
  PlayerUnderTest test("<script>alert('hi')</script>");
  test.player->play();
  MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(test.engine().runJavaScriptAlert("hi"));
  EXPECT_EQ(test.engine().runJavaScriptConfirm("sure?"), std::optional<bool>(false));
  auto prompt = test.engine().runJavaScriptPrompt("name?", "Ann");
  ASSERT_TRUE(prompt);
  EXPECT_FALSE(*prompt);
}

TEST(ZVHTMLPlayer, TheWebViewIsTheAdsConfiguredViewWithThePlayerAsEveryDelegate) {
  PlayerUnderTest test("");
  auto webView = test.player->contenView();
  EXPECT_EQ(webView->frame(), platform::Rect(0, 0, 320, 50));
  EXPECT_FALSE(webView->scrollView()->isScrollEnabled());
  EXPECT_EQ(webView->navigationDelegate(), test.player);
  EXPECT_EQ(webView->uiDelegate(), test.player);
  EXPECT_EQ(webView->scrollView()->delegate(), test.player);
}

}  // namespace
}  // namespace zorva
