// URL, UUID, JSON, error, text, device, locale and time zone helpers of the platform layer, where
// the SDK's own tests do not already reach them (store ids from paths, request ids, bid bodies).
#include <zorva/platform/DateFormatter.h>
#include <zorva/platform/Device.h>
#include <zorva/platform/Error.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/Locale.h>
#include <zorva/platform/Text.h>
#include <zorva/platform/TimeZone.h>
#include <zorva/platform/URL.h>
#include <zorva/platform/UUID.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string_view>

namespace zorva::platform {
namespace {

TEST(UUID, NewIdentifiersAreRandomVersionFourAndDifferAcrossAFork) {
  // A UUID reads only the hyphenated form and writes it upper case.
  auto parsed = UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->UUIDString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_FALSE(UUID::fromString("e621e1f8c36c495a93fc0c247a3e6e5f"));
  const std::string first = UUID::create().UUIDString();
  EXPECT_EQ(first[14], '4');
  EXPECT_NE(std::string_view("89AB").find(first[19]), std::string_view::npos) << first;
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const std::string next = UUID::create().UUIDString();
    _exit(write(ends[1], next.data(), next.size()) == 36 ? 0 : 1);
  }
  const std::string next = UUID::create().UUIDString();
  char childNext[36] = {};
  EXPECT_EQ(read(ends[0], childNext, sizeof childNext), 36);
  int status = 0;
  waitpid(child, &status, 0);
  close(ends[0]);
  close(ends[1]);
  EXPECT_NE(next, std::string(childNext, 36));
  EXPECT_NE(next, first);
}

// The writer copies plain strings and walks containers itself: its text must stay nlohmann's,
// byte for byte, on everything a tree can hold, keys in their order, but for whole reals, which
// it writes as integers. What nlohmann cannot write fails as nlohmann fails on it.
TEST(JSONSerialization, WritesWhatNlohmannWrites) {
  const Value reals = Value::parse(R"({"w": 320.0, "h": 50.5, "a": [1.0, -2.0, 1e20, 3]})");
  EXPECT_EQ(JSONSerialization::dataWithJSONObject(reals, nullptr),
            R"({"w":320,"h":50.5,"a":[1,-2,1e+20,3]})");
  const Value v = Value::parse(R"({"url": "https://ads.example.com/v1/bid?a=1&b=%20x~",
      "quote\"key\\": "tab\there \"q\" line\nfeed", "control": "\u0001\u001f\u007f\u0000",
      "utf8 caf\u00e9": "\u2713 \ud83d\ude00", "empty": {"object": {}, "array": [], "string": ""},
      "numbers": [0, -1, -9223372036854775808, 18446744073709551615, 0.1, -2.5e-7, 1.5e300,
                  48.8566, 9007199254740993.0], "flags": [true, false, null]})");
  auto data = JSONSerialization::dataWithJSONObject(v, nullptr);
  ASSERT_TRUE(data);
  EXPECT_EQ(*data, v.dump());

  const Value deep = {{"ok", "fine"}, {"list", Value::array({"a", std::string("b\xff")})}};
  for (const Value& bad : {deep, Value(std::nan("")), Value(std::string("\xff\xfe"))}) {
    std::optional<Error> error;
    EXPECT_FALSE(JSONSerialization::dataWithJSONObject(bad, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "nlohmann::json");
    try {
      (void)bad.dump();  // writes NaN as null
    } catch (const nlohmann::json::exception& e) {
      EXPECT_EQ(error->code, e.id);
      EXPECT_EQ(error->localizedDescription(), e.what());
    }
  }
}

// The reader's tree is nlohmann's own whatever an object's size (small objects are searched,
// large ones indexed): a repeated key keeps its first place and takes its last value. Text
// nested past the limit, or broken, fails with nlohmann's parse error code.
TEST(JSONSerialization, ReadsWhatNlohmannReads) {
  for (const int keys : {3, 17, 300}) {
    std::string text = "{";
    for (int i = 0; i < keys; ++i) {
      text += "\"k" + std::to_string(i % (keys - 1)) + "\":[" + std::to_string(i) +
              ",{\"a\":1,\"b\":true,\"a\":\"" + std::to_string(i) + "\"}],";
    }
    text += "\"k0\":null}";
    const auto read = JSONSerialization::JSONObjectWithData(text, 0, nullptr);
    ASSERT_TRUE(read) << keys;
    EXPECT_EQ(read->dump(), Value::parse(text).dump()) << keys;
  }
  const std::string deep = std::string(JSONSerialization::kMaximumDepth + 1, '[');
  for (const std::string& bad : {deep, std::string("{\"a\":}"), std::string("[1,2")}) {
    std::optional<Error> error;
    EXPECT_FALSE(JSONSerialization::JSONObjectWithData(bad, 0, &error));
    EXPECT_EQ(error->code, 101) << bad.substr(0, 10);
  }
}

// An engine's bare error reaches the app's failure callback: its description is never empty.
TEST(Text, AcceptsOnlyWellFormedUTF8AndAbsoluteURLsAndAnErrorWithoutADescriptionStillHasOne) {
  for (const char* bad : {"", "not a url", "http://exa mple.com/", "/relative/path", "http://[::1/",
                          "http://host:99999/"}) {
    EXPECT_FALSE(URL::URLWithString(bad)) << bad;
  }
  EXPECT_TRUE(URL::URLWithString("itms-apps://itunes.apple.com/app/id1"));
  EXPECT_EQ(Error("libcurl", 7).localizedDescription(),
            "The operation couldn't be completed. (libcurl error 7.)");
  EXPECT_TRUE(isValidUTF8("caf\xc3\xa9 \xf0\x9f\x98\x80"));
  // Truncated, overlong, a surrogate, past U+10FFFF.
  for (const char* bad : {"\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    EXPECT_FALSE(isValidUTF8(bad)) << bad;
  }
  EXPECT_EQ(describe(stringFromUTF8Data("\xff")), "(null)");
}

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hh, int mm, int ss) {
  return sys_days{year{y} / month{m} / day{d}} + hours{hh} + minutes{mm} + seconds{ss};
}

TEST(Device, VersionsLanguageCodesTimeZonesAndDates) {
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

  // Region zones follow their daylight saving transitions; other names are rejected.
  auto la = TimeZone::timeZoneWithName("America/Los_Angeles");
  ASSERT_TRUE(la);
  // The spring-forward moment: 2024-03-10 10:00 UTC.
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 3, 10, 9, 59, 59)), -8 * 3600);
  EXPECT_EQ(la->secondsFromGMTForDate(utc(2024, 3, 10, 10, 0, 0)), -7 * 3600);
  // zone.tab is in the folder, not a zone file.
  for (const char* name : {"Mars/Olympus_Mons", "../../etc/passwd", "/etc/localtime", "zone.tab"}) {
    EXPECT_FALSE(TimeZone::timeZoneWithName(name)) << name;
  }

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
