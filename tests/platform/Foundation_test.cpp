// URL, UUID, JSON, error and text helpers of the platform layer, where the SDK's own tests do not
// already reach them (store ids from paths, request ids, bundle lookups, reading bid bodies).
#include <gtest/gtest.h>

#include <zorva/platform/Error.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/Text.h>
#include <zorva/platform/URL.h>
#include <zorva/platform/UUID.h>

namespace zorva::platform {
namespace {

TEST(URL, RejectsTextThatIsNoAbsoluteURL) {
  for (const char* bad : {"", "not a url", "http://exa mple.com/", "/relative/path", "http://[::1/",
                          "http://host:99999/"}) {
    EXPECT_FALSE(URL::URLWithString(bad)) << bad;
  }
  EXPECT_TRUE(URL::URLWithString("itms-apps://itunes.apple.com/app/id1"));
}

TEST(UUID, ReadsOnlyTheHyphenatedFormAndWritesItUpperCase) {
  auto parsed = UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->UUIDString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_FALSE(UUID::fromString("e621e1f8c36c495a93fc0c247a3e6e5f"));
}

TEST(JSONSerialization, WritesWholeRealsAsIntegersAndKeepsKeyOrder) {
  Value v = Value::object();
  v["w"] = 320.0;
  v["h"] = 50.5;
  v["a"] = Value::array({1.0, -2.0, 1e20, 3});
  auto data = JSONSerialization::dataWithJSONObject(v, nullptr);
  ASSERT_TRUE(data);
  EXPECT_EQ(*data, R"({"w":320,"h":50.5,"a":[1,-2,1e+20,3]})");
}

TEST(JSONSerialization, RefusesWhatCannotBeWritten) {
  for (const Value& bad : {Value(std::nan("")), Value(std::string("\xff\xfe"))}) {
    std::optional<Error> error;
    EXPECT_FALSE(JSONSerialization::dataWithJSONObject(bad, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "nlohmann::json");
  }
}

// An engine's bare error reaches the app's failure callback: its description is never empty.
TEST(Error, DescribesItselfEvenWithoutADescription) {
  EXPECT_EQ(Error("libcurl", 7).localizedDescription(),
            "The operation couldn't be completed. (libcurl error 7.)");
}

TEST(Text, AcceptsOnlyWellFormedUTF8) {
  EXPECT_TRUE(isValidUTF8("caf\xc3\xa9 \xf0\x9f\x98\x80"));
  EXPECT_FALSE(isValidUTF8("\xc3"));              // truncated
  EXPECT_FALSE(isValidUTF8("\xc0\xaf"));          // overlong
  EXPECT_FALSE(isValidUTF8("\xed\xa0\x80"));      // surrogate
  EXPECT_FALSE(isValidUTF8("\xf4\x90\x80\x80"));  // past U+10FFFF
  EXPECT_EQ(describe(stringFromUTF8Data("\xff")), "(null)");
}

}  // namespace
}  // namespace zorva::platform
