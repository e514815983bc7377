// VAST as ad servers write it: URLs in CDATA sections with indentation around them. With the
// SDK's CDATA setting on, such documents read exactly as their plain-text twins; off, CDATA is
// dropped as it always was.
#include <gtest/gtest.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/URL.h>

#include <atomic>
#include <fstream>
#include <regex>
#include <sstream>

#include "Vast/XMLReader.h"
#include "Vast/ZVVastParser.h"
#include "support/LoopbackServer.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

std::string corpus(const std::string& name) {
  std::ifstream file(std::string(ZORVA_TEST_SOURCE_DIR) + "/Vast/cdata/" + name);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

// The same document with every CDATA section written as escaped character data.
std::string plainTwin(const std::string& document) {
  static const std::regex cdata(R"(<!\[CDATA\[([\s\S]*?)\]\]>)");
  std::string plain;
  auto last = document.cbegin();
  for (std::sregex_iterator it(document.begin(), document.end(), cdata), end; it != end; ++it) {
    plain.append(last, (*it)[0].first);
    for (const char c : (*it)[1].str()) {
      if (c == '&') {
        plain += "&amp;";
      } else if (c == '<') {
        plain += "&lt;";
      } else {
        plain += c;
      }
    }
    last = (*it)[0].second;
  }
  return plain.append(last, document.cend());
}

const char* const kDocuments[] = {"inline-linear.xml", "inline-nonlinear.xml", "wrapper-1.xml",
                                  "wrapper-2.xml"};

TEST(CdataTextTest, WithTheOptionEachDocumentReadsAsItsPlainTwinAndWithoutItCdataIsDropped) {
  for (const char* name : kDocuments) {
    SCOPED_TRACE(name);
    const std::string document = corpus(name);
    ASSERT_NE(document.find("<![CDATA["), std::string::npos);
    std::optional<Error> error;
    const auto cdata = XMLReader::dictionaryForXMLString(
        document, XMLReader::kProcessNamespaces | XMLReader::kGatherCdata, &error);
    const auto plain = XMLReader::dictionaryForXMLString(plainTwin(document),
                                                         XMLReader::kProcessNamespaces, &error);
    ASSERT_TRUE(cdata && plain) << error->localizedDescription();
    EXPECT_EQ(cdata->root().toValue(), plain->root().toValue());
    const auto dropped =
        XMLReader::dictionaryForXMLString(document, XMLReader::kProcessNamespaces, &error);
    EXPECT_NE(dropped->root().toValue(), plain->root().toValue());
    EXPECT_EQ(XMLReader::valueForPath("VAST/Ad/InLine/Impression", dropped->root()).value_or(""),
              "");
  }
}

// Everything a player takes from a resolved chain, in one comparable text.
std::string summary(const std::shared_ptr<ZVVast>& vast) {
  std::string text;
  for (const auto& ad : vast->ads) {
    for (const auto& url : ad->aggregatedErrorUrlsbyReplacingErrorWithValue("405")) {
      text += "error " + url + "\n";
    }
    text += "impressions " + ad->aggregatedImpressionUrl().dump() + "\n";
    for (const char* event : {"start", "firstQuartile", "midpoint", "thirdQuartile", "complete"}) {
      for (const auto& url : ad->aggregatedTrackersForEvent(event)) {
        text += std::string(event) + " " + url + "\n";
      }
    }
    const auto creative = ad->adCreative();
    const auto items = creative ? creative->adItems() : std::nullopt;
    for (const auto& item : items.value_or(std::vector<std::shared_ptr<ZVVastAdItem>>{})) {
      if (const auto url = item->url()) text += "media " + url->absoluteString() + "\n";
    }
  }
  return text;
}

// The wrapper chain served twice, as written and as plain twins, parsed with the setting `on`.
std::pair<std::shared_ptr<ZVVast>, std::optional<Error>> parseChain(test::LoopbackServer& server,
                                                                    bool plain) {
  auto served = [&](const std::string& name) {
    std::string text = std::regex_replace(corpus(name), std::regex("\\{\\{BASE\\}\\}"),
                                          server.url(plain ? "/plain" : "/cdata"));
    return plain ? plainTwin(text) : text;
  };
  const std::string prefix = plain ? "/plain/" : "/cdata/";
  for (const char* name : {"wrapper-2.xml", "inline-linear.xml"}) {
    server.respond(prefix + name, {.body = served(name), .contentType = "application/xml"});
  }
  // A failed chain is told on the network thread: the outcome is published through `done`.
  std::pair<std::shared_ptr<ZVVast>, std::optional<Error>> outcome;
  std::atomic<bool> done = false;
  auto parser = ZVVastParser::create();
  parser->parse(served("wrapper-1.xml"), [&](std::shared_ptr<ZVVast> vast, std::optional<Error> e) {
    outcome = {std::move(vast), std::move(e)};
    done = true;
  });
  EXPECT_TRUE(test::runMainQueueUntil([&] { return done.load(); }));
  return outcome;
}

TEST(CdataTextTest, AWrapperChainInCdataResolvesAsItsPlainTwinOnlyWithTheSetting) {
  test::LoopbackServer server;
  const auto [plain, plainError] = parseChain(server, true);
  ASSERT_TRUE(plain) << plainError->localizedDescription();
  ASSERT_NE(summary(plain).find("media https://cdn.example.com/spring/720p.mp4"),
            std::string::npos);

  // Off: the wrapper's tag URI is empty, nothing is fetched, and the chain ends without ads.
  const auto [dropped, droppedError] = parseChain(server, false);
  EXPECT_FALSE(dropped);
  EXPECT_TRUE(droppedError);
  EXPECT_TRUE(server.requests().size() == 2);

  ZorvaSDK::shared()->setVastCdataText(true);
  const auto [cdata, cdataError] = parseChain(server, false);
  ASSERT_TRUE(cdata) << cdataError->localizedDescription();
  EXPECT_EQ(summary(cdata), summary(plain));
}

}  // namespace
}  // namespace zorva
