#include "Vast/XMLReader.h"

#include <expat.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/LoopbackServer.h"

namespace zorva {
namespace {

XMLTree read(const std::string& xml, unsigned long options = 0) {
  std::optional<Error> error;
  auto tree = XMLReader::dictionaryForXMLString(xml, options, &error);
  EXPECT_FALSE(error.has_value()) << (error ? error->localizedDescription() : "");
  return std::move(tree).value_or(XMLTree());
}

bool hasText(const XMLNode& node) { return node.find(kXMLReaderTextNodeKey) != nullptr; }

Error failure(const std::string& xml, unsigned long options = 0) {
  std::optional<Error> error;
  EXPECT_FALSE(XMLReader::dictionaryForXMLData(xml, options, &error).has_value());
  return error.value_or(Error());
}

TEST(XMLReaderTree, AttributesChildrenArrayPromotionKeyCollisionsAndPathsFanningOut) {
  auto tree = read(R"(<A k="v"><One x="1"/><Two n="1"/><Two n="2"/><Two n="3"/></A>)");
  EXPECT_EQ(tree.root().toValue(), Value::parse(R"({"A": {"k": "v", "One": {"x": "1"},
      "Two": [{"n": "1"}, {"n": "2"}, {"n": "3"}]}})"));
  EXPECT_EQ(XMLReader::objectsForPath("A/One", tree.root()).size(), 1u);
  EXPECT_EQ(XMLReader::objectsForPath("A/Two", tree.root()).size(), 3u);
  // A moved tree keeps its nodes; the one it left is empty rather than pointing into them.
  auto moved = std::move(tree);
  EXPECT_EQ(moved["A"]["One"]["x"].string(), "1");
  EXPECT_TRUE(tree.root().isNull());  // NOLINT(bugprone-use-after-move)

  // Key collisions are kept as they fall.
  const auto clash = read(R"(<A id="7" text="attr"><id v="c"/>body</A>)");
  EXPECT_EQ(clash["A"]["id"].toValue(), Value::parse(R"(["7", {"v": "c"}])"));
  EXPECT_EQ(clash["A"]["text"].string(), "body");  // the attribute named text is overwritten
  // Path queries hand the array over as it is; only dictionaries carry text or children.
  EXPECT_EQ(XMLReader::objectsForPath("A/id", clash.root()).size(), 2u);
  EXPECT_EQ(XMLReader::valueForPath("A/id", clash.root()), std::nullopt);
  EXPECT_TRUE(XMLReader::objectsForPath("A/id/v", clash.root()).empty());

  // Every match at every level of a path fans out, in document order.
  const auto paths = read(
      "<R><A><B><C>1</C><C>2</C></B><B><C>3</C></B></A><A><B><C>4</C></B></A>"
      "<S>text</S></R>");
  const auto& root = paths["R"];
  std::vector<std::string> texts;
  for (const XMLNode* c : XMLReader::objectsForPath("A/B/C", root)) {
    texts.emplace_back((*c)["text"].string());
  }
  EXPECT_EQ(texts, (std::vector<std::string>{"1", "2", "3", "4"}));
  EXPECT_EQ(XMLReader::valueForPath("A/B/C", root), "1");
  EXPECT_TRUE(XMLReader::objectsForPath("S/text", root).empty());  // a string is no element
  EXPECT_TRUE(XMLReader::objectsForPath("Missing/B", root).empty());
  EXPECT_EQ(XMLReader::valueForPath("A", root), std::nullopt);
}

TEST(XMLReaderTree, TextIsTrimmedAndCarriedIntoTheNextElementThatEndsWithoutCdata) {
  const auto tree = read("<A>\n  lead <B> word \n</B><C>  </C><D/><E>\u00a0x\u3000</E>tail</A>");
  const auto& a = tree["A"];
  // The parent's own text before B joins B's text; B's trailing text is consumed by B.
  EXPECT_EQ(a["B"]["text"].string(), "lead  word");
  EXPECT_TRUE(a["C"]["text"].isString());  // white space only: an empty text, not none
  EXPECT_EQ(a["C"]["text"].string(), "");
  EXPECT_FALSE(hasText(a["D"]));            // no character data since C ended
  EXPECT_EQ(a["E"]["text"].string(), "x");  // Unicode spaces are trimmed too
  EXPECT_EQ(a["text"].string(), "tail");
  // CDATA content never reaches the text,
  const auto cdata = read("<A><B><![CDATA[http://x/y.mp4]]></B><C> a<![CDATA[zz]]>b </C></A>");
  EXPECT_FALSE(hasText(cdata["A"]["B"]));
  EXPECT_EQ(cdata["A"]["C"]["text"].string(), "ab");
  // Unless asked for: then it joins the text where it stands.
  const auto gathered = read("<C> a<![CDATA[ zz ]]>b </C>", XMLReader::kGatherCdata);
  EXPECT_EQ(gathered["C"]["text"].string(), "a zz b");
}

TEST(XMLReaderTree, NamespaceOptionReportsLocalNames) {
  const std::string xml =
      R"(<v:VAST xmlns:v="urn:vast" xmlns="urn:d" v:version="3.0"><Ad x:id="1" )"
      R"(xmlns:x="urn:x" y:id="2" xmlns:y="urn:y"/><B id="1" x:id="2" xmlns:x="urn:x"/></v:VAST>)";
  const auto local = read(xml, XMLReader::kProcessNamespaces);
  // Attributes whose local names meet: the later one wins, whichever of them has the prefix.
  EXPECT_EQ(local.root().toValue(),
            Value::parse(R"({"VAST": {"version": "3.0", "Ad": {"id": "2"}, "B": {"id": "2"}}})"));
  // The prefix bit adds nothing to the tree.
  EXPECT_EQ(read(xml, XMLReader::kProcessNamespaces | XMLReader::kReportNamespacePrefixes)
                .root()
                .toValue(),
            local.root().toValue());
}

TEST(XMLReaderErrors, MalformedInputFillsTheSlotAndNothingOfItReachesTheNextDocument) {
  const auto error = failure("<A>\n<B></A>");
  EXPECT_EQ(error.domain, "expat");
  EXPECT_EQ(error.code, XML_ERROR_TAG_MISMATCH);
  EXPECT_EQ(error.localizedDescription(), "mismatched tag (line 2, column 6)");
  EXPECT_EQ(failure("").code, XML_ERROR_NO_ELEMENTS);
  EXPECT_EQ(failure("<A>\xff\xfe</A>").code, XML_ERROR_INVALID_TOKEN);  // not UTF-8

  std::optional<Error> slot = Error("earlier", 1);
  EXPECT_TRUE(XMLReader::dictionaryForXMLData("<A/>", &slot).has_value());
  EXPECT_EQ(slot, Error("earlier", 1));

  // Conversions on a thread share a reset parser: nothing of one document reaches the next.
  const auto declared =
      read(R"(<!DOCTYPE A [<!ENTITY e "x"><!ATTLIST A d CDATA "dflt">]><A>&e;</A>)");
  EXPECT_EQ(declared["A"].toValue(), Value::parse(R"({"d": "dflt", "text": "x"})"));
  EXPECT_EQ(failure("<A>&e;</A>").code, XML_ERROR_UNDEFINED_ENTITY);
  EXPECT_EQ(read("<A/>").root().toValue(), Value::parse(R"({"A": {}})"));

  EXPECT_FALSE(read(R"(<v:A xmlns:v="urn:v"/>)", XMLReader::kProcessNamespaces).root().isNull());
  EXPECT_EQ(failure("<v:A/>", XMLReader::kProcessNamespaces).code, XML_ERROR_UNBOUND_PREFIX);
  EXPECT_EQ(failure("<A>\n<B></A>").localizedDescription(), "mismatched tag (line 2, column 6)");
  EXPECT_EQ(read("<A><B/></A>").root().toValue(), Value::parse(R"({"A": {"B": {}}})"));
}

TEST(XMLReaderHostile, NestingIsBoundedAndDeepDocumentsFailCleanly) {
  std::string xml = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n<!ENTITY lol0 \"lollollollol\">\n";
  for (int i = 1; i <= 9; ++i) {
    xml += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) xml += "&lol" + std::to_string(i - 1) + ";";
    xml += "\">\n";
  }
  xml += "]>\n<lolz>&lol9;</lolz>";
  EXPECT_EQ(failure(xml).code, XML_ERROR_AMPLIFICATION_LIMIT_BREACH);

  const auto nested = [](std::size_t depth, const std::string& innermost = "") {
    std::string xml;
    for (std::size_t i = 0; i < depth; ++i) xml += "<a>";
    xml += innermost;
    for (std::size_t i = 0; i < depth; ++i) xml += "</a>";
    return xml;
  };
  const auto deepest = read(nested(XMLReader::kMaximumDepth));
  EXPECT_FALSE(deepest.root().toValue().dump().empty());  // converting and writing it is safe
  EXPECT_EQ(failure(nested(XMLReader::kMaximumDepth + 1)).code, XML_ERROR_ABORTED);
  EXPECT_EQ(failure(nested(100000)).code, XML_ERROR_ABORTED);
  // Stopped on a self-closing element, whose end expat still reports.
  EXPECT_EQ(failure(nested(XMLReader::kMaximumDepth, "<a/>")).code, XML_ERROR_ABORTED);
}

// Past 16 keys an element's names are looked up in an index, which must learn every later name
// too; a text or attribute larger than the tree's storage blocks is kept whole. (The speed of
// large documents is measured in bench/.)
TEST(XMLReaderTree, ManyChildNamesAndTextsLargerThanAStorageBlock) {
  std::string xml = "<R>";
  for (int i = 0; i < 40; ++i) xml += "<n" + std::to_string(i % 20) + "/>";
  const std::string huge(100'000, 'h');
  xml += "<H a=\"" + huge + "\">" + huge + "</H></R>";
  const auto tree = read(xml);
  EXPECT_EQ(tree["R"].size(), 21u);
  EXPECT_EQ(XMLReader::objectsForPath("n19", tree["R"]).size(), 2u);
  EXPECT_EQ(tree["R"]["H"]["a"].string(), huge);
  EXPECT_EQ(XMLReader::valueForPath("R/H", tree.root()), huge);
}

TEST(XMLReaderHostile, ExternalEntitiesAreNeverLoadedWhateverTheOptions) {
  test::LoopbackServer server;
  server.respond("/entity", {200, "FETCHED", "text/plain"});
  server.respond("/dtd", {200, "<!ENTITY d \"FETCHED\">", "application/xml-dtd"});
  const auto secret = std::filesystem::temp_directory_path() / "zorva_xml_reader_secret.txt";
  std::ofstream(secret) << "SECRET";

  const std::string xml = "<!DOCTYPE A SYSTEM \"" + server.url("/dtd") +
                          "\" [\n<!ENTITY net SYSTEM \"" + server.url("/entity") +
                          "\">\n<!ENTITY file SYSTEM \"file://" + secret.string() +
                          "\">\n<!ENTITY % p SYSTEM \"" + server.url("/dtd") +
                          "\">\n%p;\n]>\n<A><B>&net;</B><C>&file;</C><D>x&d;y</D></A>";
  for (unsigned long options = 0; options <= 7; ++options) {
    const auto tree = read(xml, options);
    // The references are skipped: no character data at all reaches B and C.
    EXPECT_FALSE(hasText(tree["A"]["B"])) << options;
    EXPECT_FALSE(hasText(tree["A"]["C"])) << options;
    EXPECT_EQ(tree["A"]["D"]["text"].string(), "xy") << options;
  }
  std::filesystem::remove(secret);
  EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace zorva
