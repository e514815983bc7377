// Settings, ad request, logger and the SDK's error records.
#include <gtest/gtest.h>

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

  // At each level, of one message at each of levels 1 to 5, those up to the level print.
  std::size_t printed = 1;
  for (const unsigned long level : {3ul, 5ul, 0ul}) {
    ZorvaSDK::setLevel(level);
    for (int at = 1; at <= 5; ++at) ZV_LOG(at, "-[Test]", "%d", at);
    printed += level;
    EXPECT_EQ(log.entries().size(), printed) << level;
  }
  ZVLog::logWithLevel(0, __FILE__, "-[Test zero]", __LINE__, nullptr);
  EXPECT_EQ(log.entries().size(), printed);
}

TEST(ZVUtility, ErrorsNameTheirCodeAndKeepIt) {
  // A code without a name of its own is an internal error.
  for (auto [code, text] : {std::pair(2, "RenderError(2) : x"),
                            {4, "InterstitialAlreadyShown(4) : x"},
                            {5, "InterstitialNotReady(5) : x"},
                            {7, "InternalError(7) : x"}}) {
    auto error = ZVUtility::errorWithCode(code, "x");
    EXPECT_EQ(error.domain, "ZorvaSDK");
    EXPECT_EQ(error.code, code);
    EXPECT_EQ(error.localizedDescription(), text);
  }
  // The message goes through the app's translations.
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
}

}  // namespace
}  // namespace zorva
