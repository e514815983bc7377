#include <zorva/platform/DateFormatter.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/Locale.h>
#include <zorva/platform/TimeZone.h>

#include <gtest/gtest.h>

namespace zorva::platform {
namespace {

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hh, int mm, int ss) {
  return sys_days{year{y} / month{m} / day{d}} + hours{hh} + minutes{mm} + seconds{ss};
}

TEST(Device, VersionsCompareNumericallyAndLanguageCodesEndBeforeTheRegion) {
  EXPECT_EQ(Device::compareVersions("13", "13.0"), 0);
  EXPECT_LT(Device::compareVersions("9.3", "13.0"), 0);  // not a text comparison
  EXPECT_LT(Device::compareVersions("13.0", "13.0.1"), 0);
  EXPECT_GT(Device::compareVersions("13.10", "13.9"), 0);
  EXPECT_LT(Device::compareVersions("beta", "1"), 0);
  // A language code is the part before the region.
  EXPECT_EQ(Locale("en-US").languageCode(), "en");
  EXPECT_EQ(Locale("zh-Hans-CN").languageCode(), "zh");
  EXPECT_EQ(Locale("pt_BR").languageCode(), "pt");
  EXPECT_EQ(Locale("").languageCode(), std::nullopt);
}

TEST(TimeZone, RegionZonesFollowTheirDaylightSavingTransitionsAndOtherNamesAreRejected) {
  auto la = TimeZone::timeZoneWithName("America/Los_Angeles");
  ASSERT_TRUE(la);
  // The spring-forward moment: 2024-03-10 10:00 UTC.
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 3, 10, 9, 59, 59)), -8 * 3600);
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 3, 10, 10, 0, 0)), -7 * 3600);
  // Names outside the database are rejected.
  EXPECT_FALSE(TimeZone::timeZoneWithName("Mars/Olympus_Mons"));
  EXPECT_FALSE(TimeZone::timeZoneWithName("../../etc/passwd"));
  EXPECT_FALSE(TimeZone::timeZoneWithName("/etc/localtime"));
  EXPECT_FALSE(TimeZone::timeZoneWithName("zone.tab"));  // in the folder, not a zone file

  // A formatter writes the SDK's two patterns in its time zone.
  auto formatter = DateFormatter::create();
  formatter->setTimeZone(*TimeZone::timeZoneWithName("Asia/Kolkata"));
  const Date date = utc(2024, 12, 31, 20, 5, 9) + milliseconds(42);
  formatter->setDateFormat("yyyy-MM-dd HH:mm:ss");
  EXPECT_EQ(formatter->stringFromDate(date), "2025-01-01 01:35:09");
  formatter->setTimeZone(*TimeZone::timeZoneWithName("America/Los_Angeles"));
  formatter->setDateFormat("ZZZZZ");
  EXPECT_EQ(formatter->stringFromDate(date), "-08:00");
}

}  // namespace
}  // namespace zorva::platform
