// The non-linear player over a hand-driven headless web engine.
#include <gtest/gtest.h>

#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/MainQueue.h>

#include "RecordingVastDelegate.h"
#include "Vast/ZVVastNonLinearAdPlayer.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using platform::HeadlessWebEngine;
using platform::NavigationActionPolicy;
using platform::NavigationType;
using test::RecordingVastDelegate;

class NonLinearPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HeadlessWebEngine::setAutomaticByDefault(false);
    player->setDelegate(delegate);
  }
  std::shared_ptr<HeadlessWebEngine> engine() const {
    return HeadlessWebEngine::of(*player->player()->contenView());
  }
  // Loads `content` and lets the initial load through the navigation policy.
  std::shared_ptr<HeadlessWebEngine> loadContent(const std::string& content) {
    player->load(test::firstAd(test::nonLinearVast(content)));
    platform::MainQueue::shared().runUntilIdle();
    return engine();
  }
  platform::URLRequest request(const std::string& url) {
    return platform::URLRequest(platform::URL::URLWithString(url));
  }

  std::shared_ptr<ZVVastNonLinearAdPlayer> player = ZVVastNonLinearAdPlayer::create();
  std::shared_ptr<RecordingVastDelegate> delegate = std::make_shared<RecordingVastDelegate>();
};

// With a point as the decimal separator even where the locale says comma.
TEST(ZVVastNonLinearAdPlayerDuration, ReadsOnlyALeadingDecimalNumber) {
  test::CommaDecimalLocale comma;
  const std::vector<std::pair<std::string, double>> cases = {
      {"15", 15.0}, {"00:00:15", 0.0}, {" 7.5s", 7.5}, {"abc", 0.0},  {"", 0.0},
      {"-3", -3.0}, {"1e2", 100.0},    {"1e", 1.0},    {"0x1A", 0.0}, {"inf", 0.0}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(ZVVastNonLinearAdPlayer::leadingDouble(text), expected) << '"' << text << '"';
  }
}

TEST_F(NonLinearPlayerTest, PageFailuresAreSwallowed) {
  player->play();
  EXPECT_FALSE(player->player());
  auto engine = loadContent("<b>overlay</b>");
  ASSERT_TRUE(engine);
  ASSERT_TRUE(engine->html());
  EXPECT_NE(engine->html()->find("<div align=\"center\"><b>overlay</b></div>"), std::string::npos);
  player->play();
  EXPECT_TRUE(engine->finishNavigation());
  EXPECT_EQ(delegate->events, std::vector<std::string>{"load"});

  // Page failures are swallowed.
  engine = loadContent("http://content.invalid/");
  ASSERT_TRUE(engine->request());
  EXPECT_EQ(engine->request()->url->absoluteString(), "http://content.invalid/");
  EXPECT_TRUE(engine->failNavigation(Error("NSURLErrorDomain", -1003)));
  EXPECT_EQ(delegate->events, std::vector<std::string>{"load"});
}

TEST_F(NonLinearPlayerTest, ClicksAreCancelledAndGoNowhereWithoutAResolver) {
  auto engine = loadContent("<a href='http://x'>x</a>");
  // A frame or redirect of the initial load is let through.
  EXPECT_TRUE(player->htmlPlayerShouldLoadRequest(request("http://frame"), NavigationType::Other));
  engine->finishNavigation();
  EXPECT_EQ(engine->clickLink(request("http://advertiser/")), NavigationActionPolicy::Cancel);
  EXPECT_FALSE(player->htmlPlayerShouldLoadRequest(request("http://late"), NavigationType::Other));
  EXPECT_TRUE(
      player->htmlPlayerShouldLoadRequest(request("http://form"), NavigationType::FormSubmitted));
  EXPECT_FALSE(player->linkResolver());
  EXPECT_EQ(delegate->events, std::vector<std::string>{"load"});
}

}  // namespace
}  // namespace zorva
