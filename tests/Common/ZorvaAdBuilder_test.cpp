// Reading a bid response body into an ad: the loader's pure step.
#include <gtest/gtest.h>

#include "Common/ZVAdLoader.h"

namespace zorva {
namespace {

ZVAdLoader::ResponseReading read(const std::string& body) { return ZVAdLoader::readResponse(body); }

TEST(BidResponse, FirstBidOfFirstSeatBidBecomesTheAd) {
  auto r =
      read(R"({"id":"r","seatbid":[{"bid":[{"id":"b1","adm":"html","price":1.5,"w":320,"h":50},)"
           R"({"id":"b2","adm":"other","price":9}]},{"bid":[{"id":"b3","price":99}]}]})");
  ASSERT_FALSE(r.error);
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->creative, "html");
  EXPECT_EQ(r.ad->bidId, "b1");
  EXPECT_TRUE(r.ad->price.is_number_float());
  EXPECT_EQ(r.ad->price, 1.5);
  EXPECT_EQ(r.ad->size.width, 320);
  EXPECT_EQ(r.ad->size.height, 50);
  EXPECT_TRUE(r.ad->skadn.is_null());
}

TEST(BidResponse, ValuesAreKeptAsTheResponseHeldThem) {
  auto r = read(
      R"({"seatbid":[{"bid":[{"id":7,"adm":{"not":"html"},"price":2,"w":"300","h":"12.5px",)"
      R"("ext":{"skadn":{"version":"2.0","network":"n.skadnetwork","itunesitem":"123"}}}]}]})");
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->bidId, 7);
  EXPECT_TRUE(r.ad->creative.is_object());
  EXPECT_TRUE(r.ad->price.is_number_integer());
  EXPECT_EQ(r.ad->size.width, 300);
  EXPECT_EQ(r.ad->size.height, 12.5);
  EXPECT_EQ(r.ad->skadn["network"], "n.skadnetwork");
  EXPECT_EQ(r.ad->skadn.size(), 3u);
}

TEST(BidResponse, SizesAreReadAsSinglePrecisionAndDefaultToZero) {
  auto r = read(R"({"seatbid":[{"bid":[{"w":0.1,"h":1e300}]}]})");
  ASSERT_TRUE(r.ad);
  EXPECT_EQ(r.ad->size.width, static_cast<double>(0.1f));
  EXPECT_TRUE(std::isinf(r.ad->size.height));
  auto missing = read(R"({"seatbid":[{"bid":[{"adm":"x"}]}]})");
  ASSERT_TRUE(missing.ad);
  EXPECT_EQ(missing.ad->size.width, 0);
  EXPECT_TRUE(missing.ad->creative == "x");
  EXPECT_TRUE(missing.ad->bidId.is_null());
}

TEST(BidResponse, NoSeatBidOrNoBidMeansNoAd) {
  for (const char* body : {"{}", R"({"seatbid":[]})", R"({"seatbid":[{"bid":[]}]})",
                           R"({"seatbid":[{}]})", R"({"seatbid":{}})"}) {
    auto r = read(body);
    EXPECT_FALSE(r.error) << body;
    EXPECT_FALSE(r.ad) << body;
  }
}

TEST(BidResponse, BodiesThatAreNotJSONGiveTheParsersError) {
  for (const std::string& body :
       {std::string("<VAST version=\"3.0\"></VAST>"), std::string(R"({"seatbid":[{"bid")"),
        std::string(), std::string("\x00\xff\xfe garbage", 12), std::string("{\"a\":\"\xff\"}")}) {
    auto r = read(body);
    ASSERT_TRUE(r.error);
    EXPECT_EQ(r.error->domain, "nlohmann::json");
    EXPECT_FALSE(r.ad);
  }
}

TEST(BidResponse, ReadingKeysFromWhatIsNoObjectIsReportedAsNoAdsError) {
  for (const char* body :
       {"1", "[1,2]", "\"text\"", "null", R"({"seatbid":"x"})", R"({"seatbid":[1]})",
        R"({"seatbid":null})", R"({"seatbid":[{"bid":7}]})", R"({"seatbid":[{"bid":[{"w":[1]}]}]})",
        R"({"seatbid":[{"bid":[{"ext":"e"}]}]})"}) {
    auto r = read(body);
    ASSERT_TRUE(r.error) << body;
    EXPECT_EQ(r.error->domain, "ZorvaSDK");
    EXPECT_EQ(r.error->code, 0);
    const auto text = r.error->localizedDescription();
    EXPECT_EQ(text.rfind("NoAdsError(0) : ", 0), 0u) << text;
    EXPECT_NE(text.find("ExceptionName"), std::string::npos);
    EXPECT_NE(text.find("ExceptionReason"), std::string::npos);
  }
}

TEST(BidResponse, DeeplyNestedJSONEndsInAnError) {
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  auto r = read(deep);
  ASSERT_TRUE(r.error);
  EXPECT_EQ(r.error->code, 0);
}

}  // namespace
}  // namespace zorva
