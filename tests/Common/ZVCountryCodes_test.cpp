#include <gtest/gtest.h>

#include <fstream>

#include "Common/ZVUtility.h"

namespace zorva {
namespace {

constexpr const char* kIsoCodes = "/usr/share/iso-codes/json/iso_3166-1.json";

TEST(ZVCountryCodes, TheTableIsTheStandardPlusTheThreeCodesStillOnSims) {
  std::ifstream file(kIsoCodes);
  ASSERT_TRUE(file) << kIsoCodes << " is missing: scripts/setup installs iso-codes";
  const auto standard = Value::parse(file)["3166-1"];
  ASSERT_EQ(standard.size(), 249u);

  auto expected = std::map<std::string, std::string>{{"XK", "XKX"}, {"CS", "SCG"}, {"AN", "ANT"}};
  for (const auto& country : standard) {
    expected[country["alpha_2"].get<std::string>()] = country["alpha_3"].get<std::string>();
  }
  EXPECT_EQ(ZVUtility::countryCodeDictionary(), expected);
}

}  // namespace
}  // namespace zorva
