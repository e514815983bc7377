#include "Vast/ZVVastParser.h"

#include <gtest/gtest.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <mutex>
#include <regex>
#include <thread>

#include "Common/ZVLog.h"
#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using std::chrono::milliseconds;

// An InLine ad from `system`, with an (empty) Linear creative unless told otherwise.
std::string inlineDocument(const std::string& system, bool withCreative = true,
                           const std::string& version = "3.0") {
  return "<VAST version=\"" + version + "\"><Ad><InLine><AdSystem>" + system + "</AdSystem>" +
         (withCreative ? "<Creatives><Creative><Linear/></Creative></Creatives>" : "") +
         "</InLine></Ad></VAST>";
}

// A Wrapper ad from `system` pointing to `target`, with the start tracker "http://t/<system>"
// (a Linear creative) unless told otherwise.
std::string wrapperDocument(const std::string& system, const std::string& target,
                            bool withTracking = true) {
  const std::string tracking =
      "<Creatives><Creative><Linear><TrackingEvents><Tracking event=\"start\">http://t/" + system +
      "</Tracking></TrackingEvents></Linear></Creative></Creatives>";
  return "<VAST version=\"4.0\"><Ad><Wrapper><AdSystem>" + system + "</AdSystem><VASTAdTagURI>" +
         target + "</VASTAdTagURI>" + (withTracking ? tracking : "") + "</Wrapper></Ad></VAST>";
}

// What the completion received, and where.
struct Outcome {
  std::mutex mutex;
  std::atomic<int> calls{0};
  std::shared_ptr<ZVVast> vast;
  std::optional<Error> error;
  bool onMainQueue = false;
  bool onNetworkThread = false;
  std::thread::id thread;
};

std::shared_ptr<Outcome> parse(const std::shared_ptr<ZVVastParser>& parser,
                               const std::string& text) {
  auto outcome = std::make_shared<Outcome>();
  parser->parse(text, [outcome](std::shared_ptr<ZVVast> vast, std::optional<Error> error) {
    std::lock_guard lock(outcome->mutex);
    outcome->vast = std::move(vast);
    outcome->error = std::move(error);
    outcome->onMainQueue = platform::MainQueue::shared().isCurrent();
    outcome->onNetworkThread = platform::URLSession::sharedSession()->isDelegateQueue();
    outcome->thread = std::this_thread::get_id();
    ++outcome->calls;
  });
  return outcome;
}

// Parses with a parser nobody else holds: it keeps itself alive while it fetches, and once its
// last fetch has returned nothing holds it any more.
std::shared_ptr<Outcome> parseToEnd(const std::string& text) {
  auto parser = ZVVastParser::create();
  const std::weak_ptr<ZVVastParser> watch = parser;
  auto outcome = parse(std::exchange(parser, nullptr), text);
  EXPECT_TRUE(test::runMainQueueUntil([&] { return outcome->calls > 0 && watch.expired(); }));
  return outcome;
}

// Without a fetch, success is told later, on the main queue; an error at once, on the caller's
// thread (versions are compared as strings); an answer without ads never.
TEST(ZVVastParser, AnAnswerWithoutWrappersIsToldWithoutAFetch) {
  auto outcome = parse(ZVVastParser::create(), inlineDocument("only"));
  EXPECT_EQ(outcome->calls, 0);
  ASSERT_TRUE(test::runMainQueueUntil([&] { return outcome->calls > 0; }));
  EXPECT_TRUE(outcome->onMainQueue);
  ASSERT_FALSE(outcome->error.has_value());
  EXPECT_EQ(outcome->vast->ads.at(0)->system(), "only");
  const std::pair<std::string, long> failures[] = {{inlineDocument("bare", false), 302},
                                                   {inlineDocument("v", true, "1.0"), 101},
                                                   {inlineDocument("v", true, "10.0"), 101},
                                                   {"<VAST version=\"3.0\"><Ad>", 100},
                                                   {"", 100},
                                                   {"<VAST>\xff</VAST>", 100}};
  for (const auto& [text, code] : failures) {
    SCOPED_TRACE(text);
    outcome = parse(ZVVastParser::create(), text);
    ASSERT_EQ(outcome->calls, 1);
    EXPECT_EQ(outcome->error->code, code);
    EXPECT_EQ(outcome->thread, std::this_thread::get_id());
  }
  EXPECT_TRUE(ZVVastParser::isVASTVersionSupported(std::nullopt));

  auto parser = ZVVastParser::create();
  auto empty = parse(parser, "<VAST version=\"3.0\"></VAST>");
  auto other = parse(ZVVastParser::create(), "<NotVast/>");
  EXPECT_EQ(platform::MainQueue::shared().runUntilIdle(), 0u);
  EXPECT_EQ(empty->calls + other->calls, 0);
  EXPECT_EQ(parser->outstandingRequests(), 0);
}

// A chain of `depth` Wrappers below the answer's, then an InLine ad: each Wrapper becomes the
// parent of what it fetched, and the fourth is kept unresolved. Failures after a fetch are told
// on the network thread: no document (a refused connection, a 404 that is not XML, no URL at
// all) is no VAST response, leaves without a creative the threshold. Fetches are GETs, whose
// bodies are logged at info level.
TEST(ZVVastParser, WrappersAreResolvedOverHttpUpToTheFourthAndFailuresOnTheNetworkThread) {
  ZVLog::setLevel(3);
  test::LogCapture log;
  for (const auto& [depth, systems] :
       {std::pair{0, std::vector<std::string>{"leaf", "w0"}},
        std::pair{3, std::vector<std::string>{"w3", "w2", "w1", "w0"}}}) {
    test::LoopbackServer server;
    const auto link = [&](int i) { return server.url("/w" + std::to_string(i)); };
    for (int i = 1; i <= depth; ++i) {
      server.respond(
          "/w" + std::to_string(i),
          {200, wrapperDocument("w" + std::to_string(i), link(i + 1)), "application/xml"});
    }
    server.respond("/w" + std::to_string(depth + 1),
                   {200, inlineDocument("leaf"), "application/xml"});
    auto outcome = parseToEnd(wrapperDocument("w0", link(1)));
    ASSERT_FALSE(outcome->error.has_value()) << outcome->error->localizedDescription();
    EXPECT_TRUE(outcome->onMainQueue);
    ASSERT_EQ(outcome->vast->ads.size(), 1u);
    const auto& kept = outcome->vast->ads[0];
    EXPECT_EQ(kept->adTagURL(), depth ? std::optional(link(4)) : std::nullopt);
    std::vector<std::string> chain;
    for (auto ad = kept; ad; ad = ad->parent()) chain.emplace_back(ad->system().value_or("?"));
    EXPECT_EQ(chain, systems);
    std::vector<std::string> trackers;
    for (const auto& system : systems) trackers.push_back("http://t/" + system);
    if (depth == 0) trackers.erase(trackers.begin());  // the leaf's
    EXPECT_EQ(kept->aggregatedTrackersForEvent("start"), trackers);
    EXPECT_EQ(server.requests().size(), std::max(depth, 1));
    EXPECT_EQ(server.requests().back().method, "GET");
  }
  EXPECT_FALSE(log.entriesContaining(inlineDocument("leaf")).empty());
  test::LoopbackServer server;  // "/missing" answers 404 with a body that is not XML
  server.respond("/bare", {200, inlineDocument("bare", false), "application/xml"});
  const std::string refused =
      "http://127.0.0.1:" + std::to_string(test::LoopbackServer::unusedPort()) + "/x";
  const std::pair<std::string, long> cases[] = {{refused, 303},
                                                {server.url("/missing"), 303},
                                                {"not a url", 303},
                                                {server.url("/bare"), 302}};
  for (const auto& [target, code] : cases) {
    auto outcome = parseToEnd(wrapperDocument("w", target, false));
    ASSERT_TRUE(outcome->error.has_value()) << target;
    EXPECT_EQ(outcome->error->code, code) << target;
    EXPECT_TRUE(outcome->onNetworkThread) << target;
  }
}

// An answer of four Wrappers, each answering four Wrappers: 4 + 16 + 64 fetches (the deepest kept
// as leaves) without a budget; with one, the fetch past it fails the parse.
TEST(ZVVastParser, AFetchBudgetBoundsAFanOutOfWrappers) {
  test::LoopbackServer server;
  const std::string one = wrapperDocument("f", server.url("/fan"));
  const std::string ad = one.substr(one.find("<Ad>"), one.rfind("</VAST>") - one.find("<Ad>"));
  const std::string fan = "<VAST version=\"4.0\">" + ad + ad + ad + ad + "</VAST>";
  server.respond("/fan", {200, fan, "application/xml"});
  for (const std::size_t budget : {std::size_t{0}, ZorvaSDK::kVastFetchBudget}) {
    ZorvaSDK::shared()->setVastFetchBudget(budget);
    const std::size_t before = server.requests().size();
    auto parser = ZVVastParser::create();
    auto outcome = parse(parser, fan);
    // Once nothing is outstanding every fetch started has been answered: the count is final.
    ASSERT_TRUE(test::runMainQueueUntil(
        [&] { return outcome->calls > 0 && parser->outstandingRequests() == 0; }));
    EXPECT_EQ(server.requests().size(), before + (budget == 0 ? 84 : budget));
    EXPECT_EQ(outcome->error ? outcome->error->code : 0, budget == 0 ? 0 : 302);
  }
  ZorvaSDK::shared()->setVastFetchBudget(0);
}

// Two Wrappers of one answer: one completion, once both have resolved, with the first ad to
// finish though it was asked for last. A fetched document's version is not looked at.
TEST(ZVVastParser, TheFirstAdToFinishIsTheResultOfTheOnlyCompletion) {
  test::LoopbackServer server;
  server.respond("/old",
                 {200, inlineDocument("old", true, "1.0"), "application/xml", milliseconds(100)});
  server.respond("/new", {200, inlineDocument("new"), "application/xml"});
  const auto wrapper = [&](const std::string& path) {
    return "<Ad><Wrapper><AdSystem>w</AdSystem><VASTAdTagURI>" + server.url(path) +
           "</VASTAdTagURI></Wrapper></Ad>";
  };
  auto parser = ZVVastParser::create();
  auto outcome =
      parse(parser, "<VAST version=\"3.0\">" + wrapper("/old") + wrapper("/new") + "</VAST>");
  ASSERT_TRUE(test::runMainQueueUntil([&] { return outcome->calls > 0; }));
  EXPECT_EQ(parser->ads().size(), 2u);
  test::runMainQueueUntil([] { return false; }, milliseconds(200));  // room for a second call
  EXPECT_EQ(outcome->calls, 1);
  ASSERT_FALSE(outcome->error);
  EXPECT_EQ(outcome->vast->ads.at(0)->system(), "new");
  EXPECT_EQ(parser->ads().at(1)->system(), "old");
}

// VAST as ad servers write it, with URLs in CDATA sections and indentation around them.
std::string corpus(const std::string& name) {
  std::ifstream file(std::string(ZORVA_TEST_SOURCE_DIR) + "/Vast/cdata/" + name);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// The same document with every CDATA section written as escaped character data (the corpus has
// '&' only inside CDATA sections, and no '<' there).
std::string plainTwin(const std::string& document) {
  const std::string escaped = std::regex_replace(document, std::regex("&"), "&amp;");
  return std::regex_replace(escaped, std::regex(R"(<!\[CDATA\[|\]\]>)"), "");
}

// Everything a player takes from a resolved chain, in one comparable text.
std::string summary(const ZVVast& vast) {
  const auto& ad = vast.ads.at(0);
  std::string text = ad->aggregatedImpressionUrl().dump();
  for (const auto& url : ad->aggregatedErrorUrlsbyReplacingErrorWithValue("405")) {
    text += "\nerror " + url;
  }
  for (const char* event : test::kProgressEvents) {
    for (const auto& url : ad->aggregatedTrackersForEvent(event)) text += "\n" + url;
  }
  if (const auto items = ad->adCreative()->adItems()) {
    for (const auto& item : *items) {
      if (const auto url = item->url()) text += "\nmedia " + url->absoluteString();
    }
  }
  return text;
}

// The corpus's wrapper chain, served as written or as plain twins, parsed to its end.
std::shared_ptr<Outcome> parseChain(test::LoopbackServer& server, bool plain) {
  const std::string prefix = plain ? "/plain" : "/cdata";
  const std::string base = server.url(prefix);
  const auto served = [&](const std::string& name) {
    std::string text = std::regex_replace(corpus(name), std::regex("\\{\\{BASE\\}\\}"), base);
    return plain ? plainTwin(text) : text;
  };
  for (const std::string name : {"wrapper-2.xml", "inline-linear.xml"}) {
    server.respond(prefix + "/" + name, {.body = served(name), .contentType = "application/xml"});
  }
  return parseToEnd(served("wrapper-1.xml"));
}

// Without the SDK's CDATA setting such documents lose their CDATA, as they always did: the first
// wrapper's tag URI is empty, nothing is fetched and the chain ends without ads. With it, the
// chain reads exactly as its plain twin does.
TEST(ZVVastParser, AWrapperChainInCdataResolvesAsItsPlainTwinOnlyWithTheSetting) {
  test::LoopbackServer server;
  const auto plain = parseChain(server, true);
  ASSERT_TRUE(plain->vast) << plain->error->localizedDescription();
  ASSERT_NE(summary(*plain->vast).find("media https://cdn.example.com/spring/720p.mp4"),
            std::string::npos);
  EXPECT_TRUE(parseChain(server, false)->error);
  EXPECT_EQ(server.requests().size(), 2u);

  ZorvaSDK::shared()->setVastCdataText(true);
  const auto cdata = parseChain(server, false);
  ASSERT_TRUE(cdata->vast) << cdata->error->localizedDescription();
  EXPECT_EQ(summary(*cdata->vast), summary(*plain->vast));
}

}  // namespace
}  // namespace zorva
