#include "Players/ZVHTMLPlayer.h"

#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorva {
namespace {

using platform::HeadlessWebEngine;
using platform::NavigationActionPolicy;
using platform::NavigationType;
using platform::URLRequest;

URLRequest requestFor(const char* url) { return URLRequest(platform::URL::URLWithString(url)); }
void runReadyWork() { platform::MainQueue::shared().runUntilIdle(); }

class RecordingHTMLDelegate : public ZVHTMLPlayerDelegate {
 public:
  void htmlPlayerDidPlayAd() override { events.push_back("played"); }
  void htmlPlayerDidFailToPlayWithError(const Error& error) override {
    events.push_back("failed:" + error.domain + std::to_string(error.code));
  }
  bool htmlPlayerShouldLoadRequest(const URLRequest& request, NavigationType type) override {
    events.push_back("ask:" + (request.url ? request.url->absoluteString() : "") + ":" +
                     std::to_string(static_cast<long>(type)));
    return true;
  }
  std::vector<std::string> events;
};

struct PlayerUnderTest {
  explicit PlayerUnderTest(std::string creative)
      : player(ZVHTMLPlayer::create(platform::Rect(0, 0, 320, 50), std::move(creative))),
        delegate(std::make_shared<RecordingHTMLDelegate>()) {
    player->setDelegate(delegate);
    player->play();
    runReadyWork();
  }
  HeadlessWebEngine& engine() const { return *HeadlessWebEngine::of(*player->contenView()); }

  std::shared_ptr<ZVHTMLPlayer> player;
  std::shared_ptr<RecordingHTMLDelegate> delegate;
};

TEST(ZVHTMLPlayer, AWebAddressLoadsAsARequestAndAnythingElseIsWrappedInTheAdPage) {
  PlayerUnderTest secure("https://ads.example.com/creative?id=7");
  ASSERT_TRUE(secure.engine().request() && secure.engine().request()->url);
  EXPECT_EQ(secure.engine().request()->url->absoluteString(),
            "https://ads.example.com/creative?id=7");
  EXPECT_FALSE(secure.engine().html());

  // Case-sensitive: a capitalised scheme is markup. Markup holding "%@" is put in as it is.
  for (const char* creative : {"HTTPS://ads.example.com/x", "", "<a href='x'>%@ go</a>"}) {
    PlayerUnderTest wrapped(creative);
    ASSERT_TRUE(wrapped.engine().html());
    EXPECT_NE(wrapped.engine().html()->find("<div align=\"center\">" + std::string(creative) +
                                            "</div></body>"),
              std::string::npos);
    EXPECT_EQ(wrapped.engine().baseURL(), ZVHTMLPlayer::creativeBaseURL());
  }
}

TEST(ZVHTMLPlayer, CommittedLoadsAreReportedAndLoadingFinishedFollowsThem) {
  HeadlessWebEngine::setAutomaticByDefault(false);
  PlayerUnderTest test("<p>ad</p>");
  EXPECT_FALSE(test.player->loadingFinished());
  ASSERT_TRUE(test.engine().failProvisionalNavigation(
      Error::withDescription("NSURLErrorDomain", -1003, "host not found")));
  EXPECT_FALSE(test.player->loadingFinished());  // a page that never committed is not reported

  test.player->play();
  runReadyWork();
  ASSERT_TRUE(test.engine().finishNavigation());
  EXPECT_TRUE(test.player->loadingFinished());
  test.player->play();
  EXPECT_FALSE(test.player->loadingFinished());
  runReadyWork();
  ASSERT_TRUE(test.engine().failNavigation(Error("WebKitErrorDomain", 102)));
  EXPECT_TRUE(test.player->loadingFinished());
  const std::string initial = "ask:" + ZVHTMLPlayer::creativeBaseURL()->absoluteString() + ":-1";
  EXPECT_EQ(test.delegate->events, (std::vector<std::string>{initial, initial, "played", initial,
                                                             "failed:WebKitErrorDomain102"}));
}

TEST(ZVHTMLPlayer, TheDelegateDecidesNavigationsNewWindowsOpenInTheSameViewAndDialogsAreAnswered) {
  PlayerUnderTest test("<p>ad</p>");
  test.delegate->events.clear();
  const auto engines = HeadlessWebEngine::liveEngines().size();
  EXPECT_EQ(test.engine().openNewWindow(requestFor("https://popup.example/"),
                                        NavigationType::LinkActivated),
            NavigationActionPolicy::Allow);
  runReadyWork();
  EXPECT_EQ(HeadlessWebEngine::liveEngines().size(), engines);
  EXPECT_EQ(test.engine().request()->url->absoluteString(), "https://popup.example/");
  EXPECT_EQ(test.delegate->events,
            (std::vector<std::string>{"ask:https://popup.example/:0",
                                      "ask:https://popup.example/:-1", "played"}));
  // A request for a main frame is not a new window.
  platform::NavigationAction mainFrame{requestFor("https://main.example/"),
                                       NavigationType::LinkActivated, platform::FrameInfo{}};
  EXPECT_EQ(test.player->webViewCreateWebViewWithConfiguration(
                *test.player->contenView(), {}, mainFrame, platform::WindowFeatures{}),
            nullptr);
  runReadyWork();
  EXPECT_EQ(test.delegate->events.size(), 3u);

  test.delegate.reset();  // without a delegate nothing is followed
  EXPECT_EQ(test.engine().clickLink(requestFor("https://click.example/")),
            NavigationActionPolicy::Cancel);
  // Dialogs are answered at once and never shown.
  EXPECT_TRUE(test.engine().runJavaScriptAlert("hi"));
  EXPECT_EQ(test.engine().runJavaScriptConfirm("sure?"), std::optional<bool>(false));
  auto prompt = test.engine().runJavaScriptPrompt("name?", "Ann");
  ASSERT_TRUE(prompt);
  EXPECT_FALSE(*prompt);
}

}  // namespace
}  // namespace zorva
