// Settings, ad request, logger and the SDK's error records.
#include <gtest/gtest.h>

#include <zorva/ZVAdRequest.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Bundle.h>

#include <thread>

#include "Common/ZVLog.h"
#include "Common/ZVUtility.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

TEST(ZVLog, PrintsOnlyMessagesAtOrBelowTheCurrentLevel) {
  test::LogCapture log;
  ZV_LOG(3, "-[Test info]", "\nResponse - %s\n", "body");
  EXPECT_TRUE(log.entries().empty());
  ZV_LOG(1, "-[ZVAdLoader makeRequest:]", "\nError - %s\n", "refused");
  ASSERT_EQ(log.entries().size(), 1u);
  EXPECT_EQ(log.entries()[0].rfind("Zorva SDK: - E - SdkCore_test.cpp #", 0), 0u);
  EXPECT_NE(log.entries()[0].find(" -[ZVAdLoader makeRequest:] => \n\nError - refused\n\n"),
            std::string::npos);

  ZorvaSDK::setLevel(3);
  ZV_LOG(3, "-[Test info]", "%s", "shown");
  ZV_LOG(4, "-[Test debug]", "%s", "hidden");
  ZV_LOG(5, "-[Test verbose]", "%s", "hidden");
  ASSERT_EQ(log.entries().size(), 2u);
  EXPECT_NE(log.entries()[1].find("- I -"), std::string::npos);

  ZorvaSDK::setLevel(5);
  ZV_LOG(4, "-[Test debug]", "%s", "debug");
  ZV_LOG(5, "-[Test verbose]", "%s", "verbose");
  EXPECT_EQ(log.entriesContaining("- D -").size(), 1u);
  EXPECT_EQ(log.entriesContaining("- V -").size(), 1u);

  ZorvaSDK::setLevel(0);
  ZV_LOG(1, "-[Test error]", "%s", "silenced");
  EXPECT_EQ(log.entries().size(), 4u);
  ZVLog::logWithLevel(0, __FILE__, "-[Test zero]", __LINE__, nullptr);
  EXPECT_EQ(log.entries().size(), 4u);
}

TEST(ZVLog, UnknownLevelsPrintTheWarningMark) {
  EXPECT_EQ(ZVLog::stringifiedLogLevel(0), "|W|");
  EXPECT_EQ(ZVLog::stringifiedLogLevel(6), "|W|");
  EXPECT_EQ(ZVLog::stringifiedLogLevel(2), "- W -");
}

TEST(ZVUtility, ErrorsNameTheirCodeAndKeepIt) {
  auto noFill = ZVUtility::errorWithCode(0, "no fill");
  EXPECT_EQ(noFill.domain, "ZorvaSDK");
  EXPECT_EQ(noFill.code, 0);
  EXPECT_EQ(noFill.localizedDescription(), "NoAdsError(0) : no fill");

  auto three = ZVUtility::errorWithCode(3, "x");
  EXPECT_EQ(three.code, 3);
  EXPECT_EQ(three.localizedDescription(), "InternalError(3) : x");

  EXPECT_EQ(ZVUtility::errorWithCode(2, "x").localizedDescription(), "RenderError(2) : x");
  EXPECT_EQ(ZVUtility::errorWithCode(4, "x").localizedDescription(),
            "InterstitialAlreadyShown(4) : x");
  EXPECT_EQ(ZVUtility::errorWithCode(5, "x").localizedDescription(), "InterstitialNotReady(5) : x");
  EXPECT_EQ(ZVUtility::errorWithCode(7, "x").localizedDescription(), "InternalError(7) : x");
  auto negative = ZVUtility::errorWithCode(-1, "x");
  EXPECT_EQ(negative.code, -1);
  EXPECT_EQ(negative.localizedDescription(), "InternalError(-1) : x");
}

TEST(ZVUtility, ErrorMessagesGoThroughTheAppsTranslations) {
  platform::Bundle::mainBundle().setStringsTable("", {{"NoAdsError(0) : no fill", "Pas de pub"}});
  EXPECT_EQ(ZVUtility::errorWithCode(0, "no fill").localizedDescription(), "Pas de pub");
}

TEST(ZorvaSDK, SharedIsOneInstanceWhicheverThreadComesFirst) {
  std::shared_ptr<ZorvaSDK> a, b;
  std::thread first([&] { a = ZorvaSDK::shared(); });
  std::thread second([&] { b = ZorvaSDK::shared(); });
  first.join();
  second.join();
  EXPECT_EQ(a, b);
  EXPECT_EQ(a, ZorvaSDK::shared());
  EXPECT_EQ(ZorvaSDK::version(), "1.3.0");
}

TEST(ZVAdRequest, StartsWithTheDefaultEndpointAndTenSeconds) {
  ZVAdRequest request;
  EXPECT_EQ(request.netoworkTimeout, 10u);
  ASSERT_TRUE(request.serverUrl);
  EXPECT_EQ(request.serverUrl->rfind("http://", 0), 0u);
  EXPECT_TRUE(request.serverUrl->ends_with("/zorva/servad"));
  EXPECT_FALSE(request.publisherId);
  EXPECT_FALSE(request.adunitId);
}

}  // namespace
}  // namespace zorva
