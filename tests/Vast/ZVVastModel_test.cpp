#include <gtest/gtest.h>
#include <zorva/platform/Bundle.h>

#include "Vast/XMLReader.h"
#include "Vast/ZVVast.h"
#include "Vast/ZVVastError.h"
#include "Vast/ZVVastLinear.h"
#include "Vast/ZVVastNonLinear.h"
#include "support/VastDocuments.h"

namespace zorva {
namespace {

using test::vastDocument;

const char* kInline = R"(<VAST version="3.0">
  <Ad id="i"><InLine>
    <Error>http://e/inline?c=[ERRORCODE]&amp;again=[ERRORCODE]</Error><Error>http://e/second</Error>
    <Impression>http://i/1</Impression><Impression/><Impression>http://i/3</Impression>
    <Creatives>
      <Creative><NonLinearAds><NonLinear><StaticResource>http://n</StaticResource></NonLinear>
      </NonLinearAds></Creative>
      <Creative><Linear>
        <TrackingEvents>
          <Tracking event="Start">http://t/Start</Tracking><Tracking event="start">http://t/start</Tracking>
          <Tracking event="complete">http://t/complete</Tracking><Tracking event="start"/>
        </TrackingEvents>
        <MediaFiles><MediaFile type="video/webm">http://m/1.webm</MediaFile>
          <MediaFile type="video/mp4">http://m/2.mp4</MediaFile></MediaFiles>
      </Linear></Creative>
      <Creative><Linear><MediaFiles><MediaFile type="video/mp4">http://m/other</MediaFile>
      </MediaFiles></Linear></Creative>
    </Creatives>
  </InLine></Ad>
  <Ad id="w"><Wrapper><VASTAdTagURI> http://w/next </VASTAdTagURI></Wrapper></Ad>
</VAST>)";

// Wrappers come first; an ad's creative is its first Linear one, whose first file plays when any
// passes. Whatever part of the model is kept keeps its strings once the document is gone.
TEST(ZVVast, AdsCreativesTheStringsAPartKeepsAloneAndAggregationsUpTheChain) {
  std::shared_ptr<ZVTracker> tracker;
  std::shared_ptr<ZVVastAdItem> file;
  std::shared_ptr<ZVMediaFile> alone;
  {
    const auto vast = vastDocument(kInline);
    ASSERT_EQ(vast->ads.size(), 2u);
    EXPECT_EQ(vast->ads[0]->adTagURL(), "http://w/next");
    const auto linear = std::dynamic_pointer_cast<ZVVastLinear>(vast->ads[1]->adCreative());
    ASSERT_NE(linear, nullptr);
    EXPECT_EQ(linear->creativeURLForMimes({"video/mp4"})->absoluteString(), "http://m/1.webm");
    EXPECT_EQ(linear->creativeURLForMimes({"video/ogg"}), std::nullopt);
    EXPECT_EQ(linear->creativeURLForMimes({"VIDEO/MP4"}), std::nullopt);  // case matters
    EXPECT_TRUE(linear->itemExistsForMime({"video/ogg", "video/mp4"}));
    EXPECT_FALSE(linear->itemExistsForMime({}));
    tracker = linear->trackers().back();
    file = linear->adItems()->at(1);
    // A tracker or media file made from its element alone keeps its own strings.
    const auto tree = XMLReader::dictionaryForXMLData(
        std::string(R"(<MediaFile type="video/mp4" width="640">http://m/3.mp4</MediaFile>)"),
        nullptr);
    ASSERT_TRUE(tree);
    alone = ZVMediaFile::create((*tree)["MediaFile"]);
    EXPECT_EQ(ZVTracker::create((*tree)["MediaFile"]["type"]), nullptr);
  }
  EXPECT_EQ(tracker->event, "start");
  EXPECT_EQ(file->url()->absoluteString(), "http://m/2.mp4");
  // A child element named like the version attribute hides it rather than being taken as it.
  EXPECT_EQ(vastDocument(R"(<VAST version="2.0"><version/></VAST>)")->version, std::nullopt);
  EXPECT_TRUE(ZVVast::create(XMLNode())->ads.empty());
  ASSERT_TRUE(alone);
  EXPECT_EQ(alone->type, "video/mp4");
  EXPECT_EQ(alone->width, "640");
  EXPECT_EQ(alone->mediaUrl, "http://m/3.mp4");

  // Aggregations walk the wrapper chain upward.
  const auto inlineAd = vastDocument(kInline)->ads[1];
  const auto wrapper = vastDocument(R"(<VAST><Ad><Wrapper><VASTAdTagURI>http://x</VASTAdTagURI>
      <Error>http://e/wrapper/[ERRORCODE]</Error><Impression>http://i/w</Impression>
      <Creatives><Creative><Linear><TrackingEvents>
        <Tracking event="START">http://t/w</Tracking></TrackingEvents></Linear></Creative>
      </Creatives></Wrapper></Ad></VAST>)")
                           ->ads[0];
  const auto top = vastDocument(R"(<VAST><Ad><Wrapper><VASTAdTagURI>http://y</VASTAdTagURI>
      <Impression>http://i/top</Impression></Wrapper></Ad></VAST>)")
                       ->ads[0];
  wrapper->setParent(top);
  inlineAd->setParent(wrapper);

  EXPECT_EQ(inlineAd->aggregatedErrorUrlsbyReplacingErrorWithValue("402"),
            (std::vector<std::string>{"http://e/inline?c=402&again=402", "http://e/wrapper/402"}));
  EXPECT_EQ(inlineAd->aggregatedImpressionUrl(),
            Value::parse(R"(["http://i/1", null, "http://i/3", "http://i/w", "http://i/top"])"));
  EXPECT_EQ(inlineAd->aggregatedTrackersForEvent("start"),
            (std::vector<std::string>{"http://t/Start", "http://t/start", "http://t/w"}));
  EXPECT_EQ(inlineAd->aggregatedTrackersForEvent("complete"),
            (std::vector<std::string>{"http://t/complete"}));
  EXPECT_TRUE(inlineAd->aggregatedTrackersForEvent("midpoint").empty());
}

std::string field(const std::optional<std::string_view>& value) {
  return value ? "'" + std::string(*value) + "'" : "-";
}

// Every value of a document's model, one line per object.
std::string everyField(const ZVVast& vast) {
  std::string text = "version " + field(vast.version) + "\n";
  const auto trackers = [&](const ZVVastCreative& creative) {
    for (const auto& tracker : creative.trackers()) {
      text += "  tracker " + field(tracker->event) + " " + field(tracker->url) + "\n";
    }
  };
  for (const auto& ad : vast.ads) {
    text += "ad " + field(ad->adTagURL()) + " " + field(ad->system()) + " " + field(ad->title()) +
            " " + field(ad->desc()) + " " + field(ad->errUrl()) + " " +
            ad->aggregatedImpressionUrl().dump() + "\n";
    const auto creative = ad->adCreative();
    if (const auto linear = std::dynamic_pointer_cast<ZVVastLinear>(creative)) {
      text += " linear " + field(linear->duration()) + " " + field(linear->clickThrough()) + "\n";
      for (const auto& file : linear->mediaFiles()) {
        text += "  file " + field(file->mediaFileId) + " " + field(file->delivery) + " " +
                field(file->width) + " " + field(file->height) + " " + field(file->type) + " " +
                field(file->bitrate) + " " + field(file->scalable) + " " + field(file->mediaUrl) +
                "\n";
      }
      trackers(*linear);
    } else if (const auto nonLinear = std::dynamic_pointer_cast<ZVVastNonLinear>(creative)) {
      const auto& resource = nonLinear->resource();
      const auto items = nonLinear->adItems();
      text += " nonlinear " + field(nonLinear->minSuggestedDuration()) + " " +
              (resource ? resource->type + " " + field(resource->creativeType) + " " +
                              field(resource->content)
                        : "-") +
              " content " + field(nonLinear->creativeContent()) + " items " +
              (items ? std::to_string(items->size()) : "-") +
              (nonLinear->itemExistsForMime({}) ? " plays any" : "") + "\n";
      trackers(*nonLinear);
    }
  }
  return text;
}

// Collisions and gaps wherever the model reads. A NonLinear creative's content is its first
// StaticResource; trackers beside the NonLinear element are not its own.
TEST(ZVVast, EveryFieldOfAnAwkwardDocumentReadsAsBefore) {
  const auto vast = vastDocument(R"(<VAST version="4.1" xmlns:x="urn:x">
  <Ad><InLine Impression="attr" AdTitle="t"><AdSystem v="1">sys</AdSystem><AdSystem>second</AdSystem>
    <Description/><Error>e1</Error><Impression>i1</Impression><Impression/>
    <Creatives><Creative Linear="string"><Linear><Duration>00:00:30</Duration>
      <VideoClicks><ClickTracking>c0</ClickTracking></VideoClicks>
      <VideoClicks><ClickThrough>through</ClickThrough></VideoClicks>
      <MediaFiles MediaFile="s"><MediaFile id="m1" delivery="progressive" width="640" height="360"
        type="video/mp4" bitrate="900" scalable="true" text="attr">http://m/1</MediaFile>
        <MediaFile x:type="video/webm" type="a"><width>9</width></MediaFile><MediaFile/>
      </MediaFiles><MediaFiles><MediaFile id="m4">http://m/4</MediaFile></MediaFiles>
      <TrackingEvents><Tracking event="start">http://t/s</Tracking><Tracking/>
        <Tracking event="end"><event/>http://t/e</Tracking></TrackingEvents>
      <TrackingEvents><Tracking event="pause">http://t/p</Tracking></TrackingEvents>
    </Linear></Creative></Creatives></InLine></Ad>
  <Ad><InLine><Creatives><Creative><NonLinearAds><NonLinear minSuggestedDuration="5">
    <StaticResource>http://s/1</StaticResource><TrackingEvents><Tracking event="x">u</Tracking>
    </TrackingEvents></NonLinear></NonLinearAds></Creative></Creatives></InLine></Ad>
  <Ad><InLine><Creatives><Creative><NonLinearAds>
    <TrackingEvents><Tracking event="start">http://beside</Tracking></TrackingEvents>
    <NonLinear><IFrameResource>http://iframe</IFrameResource>
      <StaticResource creativeType="image/png">http://s/1.png</StaticResource>
      <StaticResource>http://s/2.png</StaticResource>
    </NonLinear><NonLinear/></NonLinearAds></Creative></Creatives></InLine></Ad>
  <Ad><InLine><Creatives><Creative><NonLinearAds><NonLinear/></NonLinearAds></Creative>
    </Creatives></InLine></Ad>
  <Ad><Wrapper><VASTAdTagURI>http://next</VASTAdTagURI><Impression>w</Impression>
    <Creatives/></Wrapper></Ad>
</VAST>)");
  EXPECT_EQ(everyField(*vast), R"(version '4.1'
ad 'http://next' - - - - ["w"]
ad - 'sys' - '' 'e1' [null,"i1",null]
 linear '00:00:30' 'through'
  file 'm1' 'progressive' '640' '360' 'video/mp4' '900' 'true' 'http://m/1'
  file - - - - 'a' - - -
  file - - - - - - - -
  file 'm4' - - - - - - 'http://m/4'
  tracker 'start' 'http://t/s'
  tracker - -
  tracker - 'http://t/e'
  tracker 'pause' 'http://t/p'
ad - - - - - []
 nonlinear '5' StaticResource - 'http://s/1' content 'http://s/1' items 1 plays any
  tracker 'x' 'u'
ad - - - - - []
 nonlinear - StaticResource 'image/png' 'http://s/1.png' content 'http://s/1.png' items 1 plays any
ad - - - - - []
 nonlinear - - content - items - plays any
)");
}

// Unknown codes keep their number with empty texts; the app may translate a description.
TEST(ZVVastError, UnknownCodesKeepTheirNumberAndTheAppMayTranslateTheDescription) {
  for (const std::int64_t code : {102LL, 406LL, -1LL, 1LL << 40}) {
    const auto error = ZVVastError::vastErrorForErrorCode(code);
    EXPECT_EQ(error.code, code);
    EXPECT_EQ(error.localizedDescription(), "VAST error: , Message: ");
  }
  platform::Bundle::mainBundle().setStringsTable(
      "Localizable", {{"VAST error: NO_VAST_RESPONSE, Message: ", "Keine VAST-Antwort"}});
  EXPECT_EQ(ZVVastError::vastErrorForErrorCode(303).localizedDescription(), "Keine VAST-Antwort");
}

}  // namespace
}  // namespace zorva
