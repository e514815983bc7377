#include "zorva-adserver/BuiltinCampaigns.h"

namespace zorva::tools {

using platform::Value;

namespace {

// An element's URL, `url` written with "&" for "&amp;". By default plain text with XML escapes,
// which the SDK's XML reader reads without options; in CDATA style the way ad servers write it: a
// CDATA section on a line of its own, indented, which the SDK reads only with its CDATA setting.
std::string url(const std::string& url, bool cdata) {
  if (!cdata) {
    std::string escaped;
    for (char c : url) escaped += c == '&' ? "&amp;" : std::string(1, c);
    return escaped;
  }
  return "\n                <![CDATA[" + url + "]]>\n              ";
}

std::string trackUrl(const std::string& document, const std::string& event, bool cdata,
                     const std::string& more = "") {
  return url("{{BASE_URL}}/track?doc=" + document + "&event=" + event + more, cdata);
}

std::string errorAndImpression(const std::string& document, bool cdata) {
  return "      <Error>" + trackUrl(document, "error", cdata, "&code=[ERRORCODE]") + "</Error>\n" +
         "      <Impression>" + trackUrl(document, "impression", cdata) + "</Impression>\n";
}

// Click trackers come with the CDATA style only, so the plain documents stay as they were.
std::string clickTracking(const std::string& element, const std::string& document, bool cdata) {
  if (!cdata) return "";
  return "              <" + element + ">" + trackUrl(document, "click", cdata) + "</" + element +
         ">\n";
}

std::string trackingEvents(const std::string& document, bool cdata) {
  std::string events = "            <TrackingEvents>\n";
  for (const char* event : {"start", "firstQuartile", "midpoint", "thirdQuartile", "complete"}) {
    events += std::string("              <Tracking event=\"") + event + "\">" +
              trackUrl(document, event, cdata) + "</Tracking>\n";
  }
  return events + "            </TrackingEvents>\n";
}

std::string vast(const std::string& adId, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<VAST version=\"3.0\">\n"
         "  <Ad id=\"" +
         adId + "\">\n" + body + "  </Ad>\n</VAST>\n";
}

std::string inlineDocument(bool cdata) {
  return vast("zorva-video",
              "    <InLine>\n"
              "      <AdSystem version=\"1.0\">zorva-adserver</AdSystem>\n"
              "      <AdTitle>Zorva test pattern</AdTitle>\n"
              "      <Description>A 4-second linear video</Description>\n" +
                  errorAndImpression("inline", cdata) +
                  "      <Creatives>\n"
                  "        <Creative id=\"zorva-linear\" sequence=\"1\">\n"
                  "          <Linear>\n"
                  "            <Duration>00:00:04</Duration>\n" +
                  trackingEvents("inline", cdata) +
                  "            <VideoClicks>\n"
                  "              <ClickThrough>" +
                  url("https://example.com/zorva/video", cdata) + "</ClickThrough>\n" +
                  clickTracking("ClickTracking", "inline", cdata) +
                  "            </VideoClicks>\n"
                  "            <MediaFiles>\n"
                  "              <MediaFile id=\"zorva-mp4\" delivery=\"progressive\" "
                  "type=\"video/mp4\" width=\"160\" height=\"90\" bitrate=\"25\" "
                  "scalable=\"true\" maintainAspectRatio=\"true\">" +
                  url("{{BASE_URL}}/media/zorva.mp4", cdata) +
                  "</MediaFile>\n"
                  "            </MediaFiles>\n"
                  "          </Linear>\n"
                  "        </Creative>\n"
                  "      </Creatives>\n"
                  "    </InLine>\n");
}

// A Wrapper keeps its own trackers in a Linear creative without media files.
std::string wrapperDocument(const std::string& name, const std::string& target, bool cdata) {
  return vast("zorva-" + name,
              "    <Wrapper>\n"
              "      <AdSystem>zorva-adserver</AdSystem>\n"
              "      <VASTAdTagURI>" +
                  url("{{BASE_URL}}/vast/" + target + ".xml", cdata) + "</VASTAdTagURI>\n" +
                  errorAndImpression(name, cdata) +
                  "      <Creatives>\n"
                  "        <Creative>\n"
                  "          <Linear>\n" +
                  trackingEvents(name, cdata) +
                  "          </Linear>\n"
                  "        </Creative>\n"
                  "      </Creatives>\n"
                  "    </Wrapper>\n");
}

std::string nonLinearDocument(bool cdata) {
  return vast("zorva-nonlinear",
              "    <InLine>\n"
              "      <AdSystem>zorva-adserver</AdSystem>\n"
              "      <AdTitle>Zorva overlay</AdTitle>\n" +
                  errorAndImpression("nonlinear", cdata) +
                  "      <Creatives>\n"
                  "        <Creative>\n"
                  "          <NonLinearAds>\n"
                  "            <NonLinear id=\"zorva-overlay\" width=\"320\" height=\"50\" "
                  "minSuggestedDuration=\"00:00:05\">\n"
                  "              <StaticResource creativeType=\"image/png\">" +
                  url("{{BASE_URL}}/media/zorva.png", cdata) + "</StaticResource>\n" +
                  "              <NonLinearClickThrough>" +
                  url("https://example.com/zorva/overlay", cdata) + "</NonLinearClickThrough>\n" +
                  clickTracking("NonLinearClickTracking", "nonlinear", cdata) +
                  "            </NonLinear>\n"
                  "          </NonLinearAds>\n"
                  "        </Creative>\n"
                  "      </Creatives>\n"
                  "    </InLine>\n");
}

const char* const kBannerHtml =
    "<a href=\"https://example.com/zorva/banner\" style=\"display:block;width:320px;"
    "height:50px;background:#1b5e20;color:#fff;font:bold 16px/50px sans-serif;"
    "text-align:center;text-decoration:none\">Zorva banner: tap to install</a>";

const char* const kInterstitialHtml =
    "<div style=\"position:absolute;inset:0;display:flex;flex-direction:column;"
    "align-items:center;justify-content:center;background:#0d47a1;color:#fff;"
    "font:20px sans-serif\"><h1>Zorva interstitial</h1>"
    "<a href=\"https://example.com/zorva/interstitial\" style=\"color:#fff\">Learn more</a>"
    "</div>";

Value bannerSkadn() {
  // Shaped like a real attribution, but the signature is not made with any key.
  return Value{
      {"version", "2.0"},
      {"network", "zorva12345.skadnetwork"},
      {"campaign", "42"},
      {"itunesitem", "1234567890"},
      {"nonce", "{{NONCE}}"},
      {"sourceapp", "{{SOURCEAPP}}"},
      {"timestamp", "{{TIMESTAMP}}"},
      {"signature", "em9ydmEtYWRzZXJ2ZXIgdGVzdCBzaWduYXR1cmU6IG5vdCBzaWduZWQgYnkgYW55IGtleQ=="}};
}

}  // namespace

std::vector<Campaign> BuiltinCampaigns::all(std::chrono::milliseconds slowDelay, bool cdata) {
  std::vector<Campaign> campaigns;
  campaigns.reserve(8);
  auto add = [&](std::string aid) -> Campaign& {
    campaigns.push_back(Campaign{});
    campaigns.back().aid = std::move(aid);
    return campaigns.back();
  };

  Campaign& banner = add("banner");
  banner.adm = kBannerHtml;
  banner.w = 320;
  banner.h = 50;
  banner.price = 0.5;
  banner.skadn = bannerSkadn();

  Campaign& interstitial = add("interstitial");
  interstitial.adm = kInterstitialHtml;
  interstitial.price = 2.0;

  Campaign& video = add("video");
  video.adm = inlineDocument(cdata);
  video.vast = true;
  video.price = 4.0;

  Campaign& wrapper = add("video-wrapper");
  wrapper.adm = wrapperDocument("wrapper1", "wrapper2", cdata);
  wrapper.vast = true;
  wrapper.price = 3.5;

  Campaign& nonLinear = add("video-nonlinear");
  nonLinear.adm = nonLinearDocument(cdata);
  nonLinear.vast = true;
  nonLinear.price = 1.5;

  add("nofill");

  add("broken").rawBody = "<html>this is not a bid response";

  Campaign slow = campaigns.front();
  slow.aid = "slow";
  slow.delay = slowDelay;
  campaigns.push_back(std::move(slow));
  return campaigns;
}

std::map<std::string, std::string> BuiltinCampaigns::documents(bool cdata) {
  return {{"inline", inlineDocument(cdata)},
          {"wrapper1", wrapperDocument("wrapper1", "wrapper2", cdata)},
          {"wrapper2", wrapperDocument("wrapper2", "inline", cdata)}};
}

}  // namespace zorva::tools
