// Reading a bid response body into an ad: the loader's pure step.
#include <gtest/gtest.h>

#include "Common/ZVAdLoader.h"
#include "Common/ZorvaAdBuilder.h"
#include "support/TestEnvironment.h"

namespace zorva {
namespace {

ZVAdLoader::ResponseReading read(const std::string& body) { return ZVAdLoader::readResponse(body); }

// The end-to-end loader tests cover the common bodies; these are the odd shapes a server may send.
TEST(BidResponse, TheFirstBidOfTheFirstSeatBidIsKeptAsTheResponseHeldIt) {
  auto r =
      read(R"({"seatbid":[{"bid":[{"id":7,"adm":{"not":"html"},"price":2,"w":"300","h":"12.5px",)"
           R"("ext":{"skadn":{"network":"n.skadnetwork"}}},{"id":"b2"}]},{"bid":[{"id":"b3"}]}]})");
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->bidId, 7);
  EXPECT_TRUE(r.ad->creative.is_object());
  EXPECT_TRUE(r.ad->price.is_number_integer());
  EXPECT_EQ(r.ad->size, (ZVAdSize{300, 12.5}));
  EXPECT_EQ(r.ad->skadn["network"], "n.skadnetwork");

  // Sizes are single precision and default to zero.
  r = read(R"({"seatbid":[{"bid":[{"w":0.1,"h":1e300}]}]})");
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->size.width, static_cast<double>(0.1f));
  EXPECT_TRUE(std::isinf(r.ad->size.height));
  r = read(R"({"seatbid":[{"bid":[{"adm":"x"}]}]})");
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->size.width, 0);
  EXPECT_TRUE(r.ad->bidId.is_null());
  // A size that is no number, no string or no decimal text is zero too; the ad is still made.
  for (const char* body : {R"({"seatbid":[{"bid":[{"adm":"x","w":null,"h":[1]}]}]})",
                           R"({"seatbid":[{"bid":[{"adm":"x","w":{"v":2},"h":{}}]}]})",
                           R"({"seatbid":[{"bid":[{"adm":"x","w":"0x140","h":" inf"}]}]})",
                           R"({"seatbid":[{"bid":[{"adm":"x","w":"nan","h":"-.e2"}]}]})"}) {
    r = read(body);
    ASSERT_TRUE(r.ad) << body;
    EXPECT_EQ(r.ad->size, (ZVAdSize{0, 0}));
  }
}

// The loader takes the ad's values out of the response it has no more use for; a builder asked
// through its own interface copies them and can be asked again.
TEST(BidResponse, BuildingCopiesAndBuildingTakingTheJsonMovesTheSameAd) {
  auto builder = ZorvaAdBuilder::create();
  builder->setJson(Value::parse(R"({"seatbid":[{"bid":[{"id":"b","adm":"<p>","price":1.5,)"
                                R"("w":320,"h":50,"ext":{"skadn":{"nonce":"n"}}}]}]})"));
  const Value before = builder->json();
  auto copied = builder->build();
  ASSERT_TRUE(copied);
  EXPECT_EQ(builder->json(), before);
  auto taken = builder->buildTakingJson();
  ASSERT_TRUE(taken);
  for (const auto* ad : {copied.get(), taken.get()}) {
    EXPECT_EQ(ad->bidId, "b");
    EXPECT_EQ(ad->creative, "<p>");
    EXPECT_EQ(ad->price, 1.5);
    EXPECT_EQ(ad->size, (ZVAdSize{320, 50}));
    EXPECT_EQ(ad->skadn, before["seatbid"][0]["bid"][0]["ext"]["skadn"]);
  }
}

// A host that sets the locale from the environment must not turn "12.5" into 12.
TEST(BidResponse, NumericStringsReadAPointAsTheDecimalSeparatorInAnyLocale) {
  test::CommaDecimalLocale comma;
  if (!comma.active()) GTEST_SKIP() << "no locale with a decimal comma can be built here";
  auto r = read(R"({"seatbid":[{"bid":[{"w":"12.5","h":" 0.25px"}]}]})");
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->size, (ZVAdSize{12.5, 0.25}));
}

// No seat bid or no bid is no ad; reading keys from what is no object is a NoAdsError.
TEST(BidResponse, NoBidIsNoAdAndKeysOfWhatIsNoObjectAreANoAdsError) {
  for (const char* body :
       {R"({"seatbid":[{"bid":[]}]})", R"({"seatbid":[{}]})", R"({"seatbid":{}})"}) {
    auto r = read(body);
    EXPECT_FALSE(r.error || r.ad) << body;
  }
  for (const std::string body :
       {"[1,2]", "\"text\"", "null", R"({"seatbid":"x"})", R"({"seatbid":[1]})",
        R"({"seatbid":null})", R"({"seatbid":[{"bid":7}]})",
        R"({"seatbid":[{"bid":[{"ext":"e"}]}]})"}) {
    auto r = read(body);
    ASSERT_TRUE(r.error) << body.substr(0, 40);
    EXPECT_EQ(r.error->code, 0);
    EXPECT_EQ(r.error->domain, "ZorvaSDK");
  }
}

// Nesting is bounded while parsing, so nothing that copies or walks the tree can run out of
// stack, and an unclosed body costs no more than the limit.
TEST(BidResponse, UnreadableBodiesAreJsonErrors) {
  const std::string deep(100000, '[');
  for (const std::string& body :
       {std::string("{\"a\":\"\xff\"}"), deep + std::string(100000, ']'),
        R"({"seatbid":[{"bid":[{"adm":)" + deep + std::string(100000, ']') + "}]}]}", deep}) {
    auto r = read(body);
    ASSERT_TRUE(r.error) << body.substr(0, 40);
    EXPECT_EQ(r.error->domain, "nlohmann::json");
    EXPECT_FALSE(r.ad);
  }
}

}  // namespace
}  // namespace zorva
