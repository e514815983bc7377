#include "support/VastDocuments.h"

#include "Vast/XMLReader.h"

namespace zorva::test {

std::string linearVast(const std::string& mime, const std::optional<std::string>& clickThrough,
                       const std::string& mediaUrl) {
  std::string trackers;
  for (const char* event : kProgressEvents) {
    trackers +=
        std::string("<Tracking event=\"") + event + "\">http://track/" + event + "</Tracking>";
  }
  const std::string clicks =
      clickThrough ? "<VideoClicks><ClickThrough>" + *clickThrough + "</ClickThrough></VideoClicks>"
                   : "";
  return R"(<VAST version="3.0"><Ad id="inline"><InLine><AdSystem>S</AdSystem>)"
         R"(<AdTitle>Linear</AdTitle><Error>http://err/inline?code=[ERRORCODE]</Error>)"
         R"(<Impression>http://imp/inline</Impression><Creatives><Creative><Linear>)"
         "<Duration>00:00:20</Duration><TrackingEvents>" +
         trackers + "</TrackingEvents>" + clicks + "<MediaFiles><MediaFile type=\"" + mime + "\">" +
         mediaUrl + "</MediaFile></MediaFiles></Linear></Creative></Creatives>" +
         "</InLine></Ad></VAST>";
}

std::string nonLinearVast(const std::string& content) {
  std::string escaped;
  for (char c : content) {
    escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
  }
  return R"(<VAST version="3.0"><Ad id="overlay"><InLine><AdSystem>S</AdSystem>)"
         R"(<AdTitle>Overlay</AdTitle><Creatives><Creative><NonLinearAds>)"
         R"(<NonLinear minSuggestedDuration="15"><StaticResource>)" +
         escaped + "</StaticResource></NonLinear></NonLinearAds></Creative></Creatives></InLine>" +
         "</Ad></VAST>";
}

std::shared_ptr<ZVVast> vastDocument(const std::string& xml) {
  std::optional<Error> error;
  const auto tree = XMLReader::dictionaryForXMLString(xml, XMLReader::kProcessNamespaces, &error);
  return ZVVast::create(tree ? (*tree)["VAST"] : XMLNode());
}

std::shared_ptr<ZVVastAd> firstAd(const std::string& xml) {
  const auto vast = vastDocument(xml);
  return vast->ads.empty() ? nullptr : vast->ads.front();
}

}  // namespace zorva::test
