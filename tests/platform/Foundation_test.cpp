// URL, UUID, JSON, error and text helpers of the platform layer, where the SDK's own tests do not
// already reach them (store ids from paths, request ids, bundle lookups, reading bid bodies).
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <limits>
#include <string_view>

#include <zorva/platform/Error.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/Text.h>
#include <zorva/platform/URL.h>
#include <zorva/platform/UUID.h>

namespace zorva::platform {
namespace {

TEST(URL, RejectsTextThatIsNoAbsoluteURLAndUUIDsReadOnlyTheHyphenatedForm) {
  for (const char* bad : {"", "not a url", "http://exa mple.com/", "/relative/path", "http://[::1/",
                          "http://host:99999/"}) {
    EXPECT_FALSE(URL::URLWithString(bad)) << bad;
  }
  EXPECT_TRUE(URL::URLWithString("itms-apps://itunes.apple.com/app/id1"));
  // A UUID reads only the hyphenated form and writes it upper case.
  auto parsed = UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->UUIDString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_FALSE(UUID::fromString("e621e1f8c36c495a93fc0c247a3e6e5f"));
}

// Identifiers come from a pool of random bytes: they must still be version 4, and a forked child
// must not hand out what its parent's pool holds next.
TEST(UUID, NewIdentifiersAreRandomVersionFourAndDifferAcrossAFork) {
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
  Value reals = Value::object();
  reals["w"] = 320.0;
  reals["h"] = 50.5;
  reals["a"] = Value::array({1.0, -2.0, 1e20, 3});
  EXPECT_EQ(JSONSerialization::dataWithJSONObject(reals, nullptr),
            R"({"w":320,"h":50.5,"a":[1,-2,1e+20,3]})");
  Value v = Value::object();
  v["url"] = "https://ads.example.com/v1/bid?a=1&b=%20x~";
  v["quote\"key\\"] = "tab\there \"q\" line\nfeed";
  v["control"] = std::string("\x01\x1f\x7f\0", 4);
  v["utf8 caf\xc3\xa9"] = "\xe2\x9c\x93 \xf0\x9f\x98\x80";
  v["numbers"] = Value::array({0, -1, std::numeric_limits<std::int64_t>::min(),
                               std::numeric_limits<std::uint64_t>::max(), 0.1, -2.5e-7, 1.5e300,
                               48.8566, 9007199254740993.0});
  v["empty"] = {{"object", Value::object()}, {"array", Value::array()}, {"string", ""}};
  v["flags"] = Value::array({true, false, nullptr});
  auto data = JSONSerialization::dataWithJSONObject(v, nullptr);
  ASSERT_TRUE(data);
  EXPECT_EQ(*data, v.dump());

  const Value deep = {{"ok", "fine"}, {"list", Value::array({"a", std::string("b\xff")})}};
  for (const Value& bad : {deep, Value(std::nan("")), Value(std::string("\xff\xfe"))}) {
    std::optional<Error> error;
    EXPECT_FALSE(JSONSerialization::dataWithJSONObject(bad, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "nlohmann::json");
  }
  std::optional<Error> error;
  JSONSerialization::dataWithJSONObject(deep, &error);
  try {
    (void)deep.dump();
    FAIL() << "nlohmann wrote an invalid string";
  } catch (const nlohmann::json::exception& e) {
    EXPECT_EQ(error->code, e.id);
    EXPECT_EQ(error->localizedDescription(), e.what());
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
TEST(Text, AcceptsOnlyWellFormedUTF8AndAnErrorWithoutADescriptionStillHasOne) {
  EXPECT_EQ(Error("libcurl", 7).localizedDescription(),
            "The operation couldn't be completed. (libcurl error 7.)");
  EXPECT_TRUE(isValidUTF8("caf\xc3\xa9 \xf0\x9f\x98\x80"));
  EXPECT_FALSE(isValidUTF8("\xc3"));              // truncated
  EXPECT_FALSE(isValidUTF8("\xc0\xaf"));          // overlong
  EXPECT_FALSE(isValidUTF8("\xed\xa0\x80"));      // surrogate
  EXPECT_FALSE(isValidUTF8("\xf4\x90\x80\x80"));  // past U+10FFFF
  EXPECT_EQ(describe(stringFromUTF8Data("\xff")), "(null)");
}

}  // namespace
}  // namespace zorva::platform
