// URL, UUID, JSON, bundle, error and text helpers of the platform layer.
#include <gtest/gtest.h>

#include <zorva/platform/Bundle.h>
#include <zorva/platform/Error.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/Text.h>
#include <zorva/platform/URL.h>
#include <zorva/platform/UUID.h>

#include <set>

namespace zorva::platform {
namespace {

TEST(URL, SplitsThePathAndKeepsTheText) {
  auto url = URL::URLWithString("https://apps.apple.com/us/app/some-name/id1234567890?mt=8#x");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), "https://apps.apple.com/us/app/some-name/id1234567890?mt=8#x");
  EXPECT_EQ(url->lastPathComponent(), "id1234567890");
  EXPECT_EQ(url->pathComponents().front(), "/");
  EXPECT_EQ(URL::URLWithString("http://example.com")->lastPathComponent(), "");
}

TEST(URL, RejectsTextThatIsNoAbsoluteURL) {
  for (const char* bad : {"", "not a url", "http://exa mple.com/", "/relative/path", "http://[::1/",
                          "http://host:99999/"}) {
    EXPECT_FALSE(URL::URLWithString(bad)) << bad;
  }
  EXPECT_TRUE(URL::URLWithString("itms-apps://itunes.apple.com/app/id1"));
}

TEST(UUID, IsRandomUpperCaseAndHyphenated) {
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string text = UUID::create().UUIDString();
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text[8], '-');
    EXPECT_EQ(text[14], '4');  // version 4: random
    for (char c : text) EXPECT_FALSE(c >= 'a' && c <= 'z') << text;
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 100u);
  auto parsed = UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->UUIDString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_FALSE(UUID::fromString("not-a-uuid"));
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
  std::optional<Error> error;
  EXPECT_FALSE(JSONSerialization::dataWithJSONObject(Value(std::nan("")), &error));
  ASSERT_TRUE(error);
  error.reset();
  EXPECT_FALSE(JSONSerialization::dataWithJSONObject(Value(std::string("\xff\xfe")), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "nlohmann::json");
}

TEST(JSONSerialization, ReadsFragmentsOnlyWhenAllowed) {
  std::optional<Error> error;
  EXPECT_EQ(JSONSerialization::JSONObjectWithData("1", JSONSerialization::FragmentsAllowed, &error),
            Value(1));
  EXPECT_FALSE(JSONSerialization::JSONObjectWithData("1", 0, &error));
  ASSERT_TRUE(error);
  error.reset();
  EXPECT_FALSE(JSONSerialization::JSONObjectWithData("<VAST/>", 4, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "nlohmann::json");
  EXPECT_EQ(error->code, 101);
}

TEST(Bundle, LooksUpLocalizedInfoFirstAndStringsByIdentity) {
  auto& bundle = Bundle::mainBundle();
  bundle.setInfoDictionary({{"CFBundleName", "Base"}, {"CFBundleIdentifier", "com.example"}});
  bundle.setLocalizedInfoDictionary({{"CFBundleName", "Localized"}});
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("CFBundleName"), "Localized");
  EXPECT_TRUE(bundle.objectForInfoDictionaryKey("Missing").is_null());
  EXPECT_EQ(bundle.localizedStringForKey("Hello", "", ""), "Hello");
  bundle.setStringsTable("", {{"Hello", "Bonjour"}});
  EXPECT_EQ(bundle.localizedStringForKey("Hello", "", ""), "Bonjour");
}

TEST(Error, DescribesItselfEvenWithoutADescription) {
  EXPECT_EQ(Error::withDescription("d", 5, "boom").localizedDescription(), "boom");
  EXPECT_EQ(Error("libcurl", 7).localizedDescription(),
            "The operation couldn't be completed. (libcurl error 7.)");
}

TEST(Text, AcceptsOnlyWellFormedUTF8) {
  EXPECT_TRUE(isValidUTF8("plain ascii"));
  EXPECT_TRUE(isValidUTF8("caf\xc3\xa9 \xf0\x9f\x98\x80"));
  EXPECT_FALSE(isValidUTF8("\xc3"));              // truncated
  EXPECT_FALSE(isValidUTF8("\xc0\xaf"));          // overlong
  EXPECT_FALSE(isValidUTF8("\xed\xa0\x80"));      // surrogate
  EXPECT_FALSE(isValidUTF8("\xf4\x90\x80\x80"));  // past U+10FFFF
  EXPECT_EQ(describe(stringFromUTF8Data("\xff")), "(null)");
}

}  // namespace
}  // namespace zorva::platform
