#include "Vast/ZVVastError.h"

#include <gtest/gtest.h>
#include <zorva/platform/Bundle.h>

namespace zorva {
namespace {

TEST(ZVVastError, KnownCodesAreNamedAndUnknownOnesKeepTheirNumberWithEmptyTexts) {
  const auto parsing = ZVVastError::vastErrorForErrorCode(100);
  EXPECT_EQ(parsing.domain, "ZorvaSDK");
  EXPECT_EQ(parsing.localizedDescription(),
            "VAST error: XML_PARSING_ERROR, Message: Failed to parse vast response.");
  EXPECT_EQ(ZVVastError::vastErrorForErrorCode(302).localizedDescription(),
            "VAST error: WRAPPER_THRESHOLD, Message: ");
  for (const std::int64_t code : {102LL, 406LL, -1LL, 1LL << 40}) {
    const auto error = ZVVastError::vastErrorForErrorCode(code);
    EXPECT_EQ(error.code, code);
    EXPECT_EQ(error.localizedDescription(), "VAST error: , Message: ");
  }
}

TEST(ZVVastError, TheAppMayTranslateTheDescription) {
  platform::Bundle::mainBundle().setStringsTable(
      "Localizable", {{"VAST error: NO_VAST_RESPONSE, Message: ", "Keine VAST-Antwort"}});
  EXPECT_EQ(ZVVastError::vastErrorForErrorCode(303).localizedDescription(), "Keine VAST-Antwort");
}

}  // namespace
}  // namespace zorva
