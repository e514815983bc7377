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
#include <zorva/platform/URLSession.h>
#include <zorva/platform/UUID.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <future>
#include <mutex>
#include <set>
#include <string_view>
#include <thread>

#include "support/LoopbackServer.h"

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
// it writes as integers. What nlohmann cannot write fails as nlohmann fails on it. The reader's
// tree is nlohmann's own whatever an object's size (small objects are searched, large ones
// indexed): a repeated key keeps its first place and takes its last value. Text nested past the
// limit, or broken, fails with nlohmann's parse error code.
TEST(JSONSerialization, WritesAndReadsWhatNlohmannWritesAndReads) {
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
  const std::string nested = std::string(JSONSerialization::kMaximumDepth + 1, '[');
  for (const std::string& bad : {nested, std::string("{\"a\":}"), std::string("[1,2")}) {
    std::optional<Error> error;
    EXPECT_FALSE(JSONSerialization::JSONObjectWithData(bad, 0, &error));
    EXPECT_EQ(error->code, 101) << bad.substr(0, 10);
  }
}

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hh, int mm, int ss) {
  return sys_days{year{y} / month{m} / day{d}} + hours{hh} + minutes{mm} + seconds{ss};
}

// An engine's bare error reaches the app's failure callback: its description is never empty.
TEST(Text, WellFormedUTF8AbsoluteURLsErrorsVersionsLanguageCodesTimeZonesAndDates) {
  for (const char* bad : {"", "not a url", "http://exa mple.com/", "/relative/path", "http://[::1/",
                          "http://host:99999/"}) {
    EXPECT_FALSE(URL::URLWithString(bad)) << bad;
  }
  EXPECT_TRUE(URL::URLWithString("itms-apps://itunes.apple.com/app/id1"));
  EXPECT_FALSE(Error("libcurl", 7).localizedDescription().empty());
  EXPECT_TRUE(isValidUTF8("caf\xc3\xa9 \xf0\x9f\x98\x80"));
  // Truncated, overlong, a surrogate, past U+10FFFF.
  for (const char* bad : {"\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    EXPECT_FALSE(isValidUTF8(bad)) << bad;
  }
  EXPECT_EQ(describe(stringFromUTF8Data("\xff")), "(null)");

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

// The session's own guarantees; what it carries (methods, bodies, query strings, statuses) is
// checked end to end by the loader's and the request builder's tests.
using test::LoopbackServer;

URLRequest get(const std::string& url) { return URLRequest(URL::URLWithString(url)); }

void start(URLSession& session, const URLRequest& request, URLSessionCompletionHandler handler) {
  session.dataTaskWithRequest(request, std::move(handler))->resume();
}

// The VAST parser's bookkeeping is unlocked: it relies on completions running one at a time, all
// on the session's worker thread. Handles are kept between exchanges: nothing of a POST may carry
// over into the GET that a completion handler starts next (on the worker, which takes the handle
// the POST just gave back). Destroying a session cancels what is still running.
TEST(URLSession, CompletionsRunOneAtATimeOnTheWorkerCarryNothingOverAndEndWithTheirSession) {
  LoopbackServer server;
  server.respond("/err", {.status = 500, .body = "{\"a\":1}"});
  const auto refused = "http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/";
  auto session = URLSession::sharedSession();
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> inside{0}, overlap{0}, finished{0};
  std::promise<void> all;
  for (int i = 0; i < 20; ++i) {
    start(*session, get(i ? server.url("/err") : refused), [&, i](auto data, auto r, auto error) {
      if (inside.fetch_add(1) != 0) ++overlap;
      {
        // Released before the last completion lets the test end, which destroys the mutex.
        std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
        EXPECT_TRUE(session->isDelegateQueue());
        if (i == 0) {
          ASSERT_TRUE(error);
          EXPECT_EQ(error->domain + " " + std::to_string(error->code), "libcurl 7");
          EXPECT_FALSE(data);
        } else {
          EXPECT_FALSE(error);
          EXPECT_EQ(data, "{\"a\":1}");
          EXPECT_EQ(r->statusCode, 500);
        }
      }
      inside.fetch_sub(1);
      if (++finished == 20) all.set_value();
    });
  }
  ASSERT_EQ(all.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(overlap.load(), 0);
  EXPECT_EQ(threads.size(), 1u);

  server.respond("/post", {.body = "posted"});
  server.respond("/get", {.body = "got"});
  server.respond("/slow", {.body = "late", .delay = milliseconds(5000)});
  session = URLSession::create();
  URLRequest post = get(server.url("/post"));
  post.HTTPMethod = "POST";
  post.HTTPBody = "{\"a\":1}";
  post.setValueForHTTPHeaderField("yes", "X-Only-Once");
  std::promise<std::optional<HTTPURLResponse>> second;
  start(*session, post, [&](auto&&...) {
    start(*session, get(server.url("/get")), [&](auto, auto r, auto) { second.set_value(r); });
  });
  auto answer = second.get_future();
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  const auto response = answer.get();
  ASSERT_TRUE(response && response->url);
  EXPECT_EQ(response->url->absoluteString(), server.url("/get"));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 21u);
  EXPECT_EQ(requests[19].method, "POST");
  EXPECT_EQ(requests[19].headers.count("X-Only-Once"), 1u);
  EXPECT_EQ(requests[20].method, "GET");
  EXPECT_EQ(requests[20].body, "");
  EXPECT_EQ(requests[20].headers.count("X-Only-Once"), 0u);

  std::optional<Error> error;
  start(*session, get(server.url("/slow")), [&](auto, auto, auto e) { error = e; });
  ASSERT_TRUE(server.waitForRequests(22, milliseconds(5000)));
  session.reset();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, URLSession::kCancelledCode);
}

}  // namespace
}  // namespace zorva::platform
