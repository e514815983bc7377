// The host settings a Linux app turns on, each through a banner's load over the loopback server:
// what the bid request says and where and how the app hears the outcome, with the setting on and
// with it off.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <zorva/ZVBannerView.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/DeviceProfile.h>

#include "support/AdFormatTesting.h"
#include "support/AdLoaderTesting.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

class HostSettingsTest : public testing::Test {
 protected:
  // Loads a banner and returns the first thing the app hears of it.
  test::Heard load(std::shared_ptr<ZVAdRequest> request = nullptr) {
    auto banner =
        ZVBannerView::create(request ? request : test::requestFor(server_), ZVAdSize{320, 50});
    banner->setDelegate(delegate_);
    const std::size_t before = recorder_.heard().size();
    banner->loadAd();
    EXPECT_TRUE(test::runMainQueueUntil([&] { return recorder_.heard().size() > before; }));
    const auto heard = recorder_.heard();
    return heard.size() > before ? heard[before] : test::Heard{};
  }
  // The bid request of one load.
  Value requestBody() {
    server_.respond(test::kServadPath, {.body = test::bidWithMarkup(test::kDisplayMarkup)});
    load();
    return Value::parse(server_.requests().back().body);
  }

  test::LoopbackServer server_;
  test::Recorder recorder_;
  std::shared_ptr<ZVBannerViewDelegate> delegate_ =
      test::recordingBannerDelegate<ZVBannerViewDelegate>(recorder_);
};

struct Profile {
  const char* name;
  platform::DeviceProfile (*make)();
  int deviceType;
};

class DeviceProfileTest : public HostSettingsTest, public testing::WithParamInterface<Profile> {};

// The phone, the default, is the request builder's golden request.
TEST_P(DeviceProfileTest, TheRequestSaysWhatTheMachineIs) {
  const auto profile = GetParam().make();
  profile.apply();
  const Value device = requestBody()["device"];
  utsname system{};
  ASSERT_EQ(uname(&system), 0);
  EXPECT_EQ(device["devicetype"], GetParam().deviceType);
  EXPECT_EQ(device["model"], profile.model);
  EXPECT_EQ(device["make"], profile.make.value_or("(none)"));
  EXPECT_NE(device["make"], "");
  EXPECT_EQ(device["os"], "Linux");
  EXPECT_EQ(device["osv"], system.release);
  EXPECT_EQ(device["w"], 1920);
  EXPECT_EQ(device["h"], 1080);
}

INSTANTIATE_TEST_SUITE_P(HostSettings, DeviceProfileTest,
                         testing::Values(Profile{"Desktop", platform::DeviceProfile::desktop, 2},
                                         Profile{"Tv", platform::DeviceProfile::tv, 3},
                                         Profile{"SetTopBox", platform::DeviceProfile::setTopBox,
                                                 7}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(HostSettingsTest, RegulationsInOpenRtb26FormAndTestModeAreSentOnlyWhenAsked) {
  auto sdk = ZorvaSDK::shared();
  sdk->setCoppa(true);
  sdk->setGdpr(true);
  sdk->setGdprConsent("CPXxRfAPXxRfA");
  sdk->setUsPrivacy("1YNN");
  sdk->setGpp("DBABMA~CPXxRfAPXxRfA");
  sdk->setGppSid({2, 6});
  const Value off = requestBody();
  EXPECT_FALSE(off.contains("regs"));
  EXPECT_FALSE(off.contains("test"));
  EXPECT_EQ(off["user"].dump(), R"({"ext":{"consent":"CPXxRfAPXxRfA"}})");

  sdk->setSendRegulations(true);
  sdk->setTestMode(true);
  const Value on = requestBody();
  EXPECT_EQ(on["regs"].dump(),
            R"({"coppa":1,"gdpr":1,"us_privacy":"1YNN","gpp":"DBABMA~CPXxRfAPXxRfA",)"
            R"("gpp_sid":[2,6]})");
  EXPECT_EQ(on["user"].dump(), R"({"ext":{"consent":"CPXxRfAPXxRfA"},"consent":"CPXxRfAPXxRfA"})");
  EXPECT_EQ(on["test"], 1);
}

// A transport failure through a banner; and, as the SDK's request builder cannot be made to fail
// from outside, a builder that fails on a thread of its own.
class MainQueueCallbacksTest : public HostSettingsTest, public testing::WithParamInterface<bool> {};

TEST_P(MainQueueCallbacksTest, FailuresAreToldOnTheMainQueueOnlyWhenAsked) {
  ZorvaSDK::shared()->setCallbacksOnMainQueue(GetParam());
  const test::Heard heard = load(test::unreachableRequest());
  EXPECT_EQ(heard.name, "fail");
  EXPECT_EQ(heard.onMainThread, GetParam());
  EXPECT_EQ(heard.onNetworkThread, !GetParam());

  auto builder = std::make_shared<test::FixedRequestBuilder>("http://127.0.0.1:1/");
  builder->failure = Error("test", 1);
  test::Load failing(builder);
  failing.loader->load();
  ASSERT_TRUE(failing.delegate->waitForCall());
  EXPECT_EQ(failing.delegate->onMainQueue, GetParam());
}

INSTANTIATE_TEST_SUITE_P(HostSettings, MainQueueCallbacksTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "On" : "Off"; });

struct Answer {
  const char* name;
  test::LoopbackServer::Response response;
  // With the setting off: an empty page received or, with no body, unreadable JSON.
  const char* heardWhenOff;
  // With it on: a no-fill failure.
  bool noFill;
};

class NoFillTest : public HostSettingsTest, public testing::WithParamInterface<Answer> {};

TEST_P(NoFillTest, OnlyAnAnswerWithoutABidIsANoFillFailureAndOnlyWhenAsked) {
  server_.respond(test::kServadPath, GetParam().response);
  const test::Heard off = load();
  EXPECT_EQ(off.name, GetParam().heardWhenOff);
  EXPECT_FALSE(off.error && ZorvaSDK::isNoFill(*off.error));

  ZorvaSDK::shared()->setNoFillAsFailure(true);
  const test::Heard on = load();
  if (!GetParam().noFill) {
    EXPECT_EQ(on.name, off.name);
    EXPECT_FALSE(on.error && ZorvaSDK::isNoFill(*on.error));
    return;
  }
  EXPECT_EQ(on.name, "fail");
  EXPECT_TRUE(on.onMainThread);
  ASSERT_TRUE(on.error);
  EXPECT_TRUE(ZorvaSDK::isNoFill(*on.error));
  EXPECT_EQ(on.error->localizedDescription(), "NoAdsError(0) : no fill");
}

// A real bid and an unreadable answer stay what they were.
INSTANTIATE_TEST_SUITE_P(
    HostSettings, NoFillTest,
    testing::Values(
        Answer{"EmptyObject", {.body = "{}"}, "receive", true},
        Answer{"EmptyBid", {.body = R"({"id":"r","seatbid":[{"bid":[]}]})"}, "receive", true},
        Answer{"NoContent", {.status = 204, .body = ""}, "fail", true},
        Answer{"Bid", {.body = test::bidWithMarkup(test::kDisplayMarkup)}, "receive", false},
        Answer{"Unreadable", {.body = "<VAST/>"}, "fail", false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace zorva
