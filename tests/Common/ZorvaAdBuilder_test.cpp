// Reading a bid response body into an ad: the loader's pure step.
#include <gtest/gtest.h>

#include "Common/ZVAdLoader.h"

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
}

TEST(BidResponse, NoSeatBidOrNoBidMeansNoAd) {
  for (const char* body :
       {R"({"seatbid":[{"bid":[]}]})", R"({"seatbid":[{}]})", R"({"seatbid":{}})"}) {
    auto r = read(body);
    EXPECT_FALSE(r.error || r.ad) << body;
  }
}

TEST(BidResponse, ReadingKeysFromWhatIsNoObjectIsReportedAsNoAdsError) {
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  for (const std::string body :
       {"[1,2]", "\"text\"", "null", R"({"seatbid":"x"})", R"({"seatbid":[1]})",
        R"({"seatbid":null})", R"({"seatbid":[{"bid":7}]})", R"({"seatbid":[{"bid":[{"w":[1]}]}]})",
        R"({"seatbid":[{"bid":[{"ext":"e"}]}]})", deep.c_str()}) {
    auto r = read(body);
    ASSERT_TRUE(r.error) << body.substr(0, 40);
    EXPECT_EQ(r.error->code, 0);
    EXPECT_EQ(r.error->localizedDescription().rfind("NoAdsError(0) : ", 0), 0u);
  }
  auto invalidUtf8 = read("{\"a\":\"\xff\"}");
  ASSERT_TRUE(invalidUtf8.error);
  EXPECT_EQ(invalidUtf8.error->domain, "nlohmann::json");
}

}  // namespace
}  // namespace zorva
