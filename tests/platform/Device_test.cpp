#include <zorva/platform/Application.h>
#include <zorva/platform/DateFormatter.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/Locale.h>
#include <zorva/platform/Screen.h>
#include <zorva/platform/TelephonyNetworkInfo.h>
#include <zorva/platform/TimeZone.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

#include <gtest/gtest.h>

namespace zorva::platform {
namespace {

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hh, int mm, int ss) {
  return sys_days{year{y} / month{m} / day{d}} + hours{hh} + minutes{mm} + seconds{ss};
}

TEST(Device, VersionsCompareNumericallyComponentByComponent) {
  EXPECT_EQ(Device::compareVersions("13", "13.0"), 0);
  EXPECT_LT(Device::compareVersions("9.3", "13.0"), 0);  // not a text comparison
  EXPECT_LT(Device::compareVersions("13.0", "13.0.1"), 0);
  EXPECT_GT(Device::compareVersions("13.10", "13.9"), 0);
  EXPECT_LT(Device::compareVersions("beta", "1"), 0);

  auto& device = Device::currentDevice();
  device.setSystemVersion("12.4.1");
  EXPECT_FALSE(device.systemVersionAtLeast("13.0"));
  EXPECT_TRUE(device.systemVersionAtLeast("12.4"));
  device.setSystemVersion("14.0");
  EXPECT_TRUE(device.systemVersionAtLeast("14.0"));
}

TEST(DeviceProfile, ApplyTurnsTheScreenAndTheKeyWindowsSceneForLandscape) {
  auto window = DeviceProfile::phone().makeKeyWindow(ViewController::create());
  ASSERT_NE(window->windowScene(), nullptr);
  auto profile = DeviceProfile::tablet();
  profile.orientation = InterfaceOrientation::LandscapeLeft;
  profile.apply();
  EXPECT_EQ(Screen::mainScreen().bounds(), Rect(0, 0, 1024, 768));
  EXPECT_EQ(Application::shared().statusBarOrientation(), InterfaceOrientation::LandscapeLeft);
  EXPECT_EQ(window->windowScene()->interfaceOrientation(), InterfaceOrientation::LandscapeLeft);
}

TEST(DeviceProfile, WindowsBeforeSystem13HaveNoScene) {
  auto profile = DeviceProfile::phone();
  profile.systemVersion = "12.4";
  profile.apply();
  auto window = profile.makeKeyWindow(ViewController::create());
  EXPECT_EQ(window->windowScene(), nullptr);
  EXPECT_EQ(Application::shared().keyWindow(), window);
}

TEST(Locale, LanguageCodeIsThePartBeforeTheRegion) {
  EXPECT_EQ(Locale("en-US").languageCode(), "en");
  EXPECT_EQ(Locale("zh-Hans-CN").languageCode(), "zh");
  EXPECT_EQ(Locale("pt_BR").languageCode(), "pt");
  EXPECT_EQ(Locale("").languageCode(), std::nullopt);
}

TEST(TimeZone, RegionZonesFollowTheirDaylightSavingTransitions) {
  auto la = TimeZone::timeZoneWithName("America/Los_Angeles");
  ASSERT_TRUE(la);
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 1, 15, 12, 0, 0)), -8 * 3600);
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 7, 15, 12, 0, 0)), -7 * 3600);
  // The spring-forward moment: 2024-03-10 10:00 UTC.
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 3, 10, 9, 59, 59)), -8 * 3600);
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 3, 10, 10, 0, 0)), -7 * 3600);
  auto kolkata = TimeZone::timeZoneWithName("Asia/Kolkata");
  ASSERT_TRUE(kolkata);
  EXPECT_EQ(kolkata->secondsFromGMTForDate(utc(2024, 7, 15, 12, 0, 0)), 5 * 3600 + 1800);
}

TEST(TimeZone, NamesOutsideTheDatabaseAreRejected) {
  EXPECT_FALSE(TimeZone::timeZoneWithName("Mars/Olympus_Mons"));
  EXPECT_FALSE(TimeZone::timeZoneWithName("../../etc/passwd"));
  EXPECT_FALSE(TimeZone::timeZoneWithName("/etc/localtime"));
  EXPECT_FALSE(TimeZone::timeZoneWithName("zone.tab"));  // in the folder, not a zone file
  EXPECT_EQ(TimeZone::timeZoneForSecondsFromGMT(-(3 * 3600 + 1800)).name(), "GMT-0330");
}

TEST(DateFormatter, FormatsThePatternInItsTimeZone) {
  auto formatter = DateFormatter::create();
  formatter->setTimeZone(*TimeZone::timeZoneWithName("Asia/Kolkata"));
  const Date date = utc(2024, 12, 31, 20, 5, 9) + milliseconds(42);
  formatter->setDateFormat("yyyy-MM-dd HH:mm:ss");
  EXPECT_EQ(formatter->stringFromDate(date), "2025-01-01 01:35:09");
  formatter->setDateFormat("ZZZZZ");
  EXPECT_EQ(formatter->stringFromDate(date), "+05:30");
  formatter->setDateFormat("EEE, d MMM yy h:mm a 'o''clock' SSS Z ZZZZ");
  EXPECT_EQ(formatter->stringFromDate(date), "Wed, 1 Jan 25 1:35 AM o'clock 042 +0530 GMT+05:30");

  formatter->setTimeZone(TimeZone::timeZoneForSecondsFromGMT(0));
  formatter->setDateFormat("ZZZZZ|Z");
  EXPECT_EQ(formatter->stringFromDate(date), "Z|+0000");
  formatter->setTimeZone(*TimeZone::timeZoneWithName("America/Los_Angeles"));
  formatter->setDateFormat("ZZZZZ");
  EXPECT_EQ(formatter->stringFromDate(date), "-08:00");
}

}  // namespace
}  // namespace zorva::platform
