// What the link resolver's tests do not show of the two presentable controllers: a host finishing
// a sheet's load (the demo does) and the addresses the browser takes.
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorva::platform {
namespace {

TEST(StoreProductViewController, KeepsTheLatestLoadAndFinishesItOnce) {
  auto sheet = StoreProductViewController::create();
  std::vector<std::string> completions;
  sheet->loadProductWithParameters({{"id", 1}}, [&](bool, auto) { completions.push_back("1"); });
  sheet->loadProductWithParameters({{"id", 2}}, [&](bool, auto) { completions.push_back("2"); });
  EXPECT_EQ(sheet->productParameters(), Value({{"id", 2}}));
  EXPECT_TRUE(sheet->finishLoading(true));
  EXPECT_FALSE(sheet->finishLoading(true));
  EXPECT_EQ(completions, std::vector<std::string>{"2"});
}

TEST(SafariViewController, OpensOnlyWebAddressesWhateverTheirCase) {
  EXPECT_EQ(SafariViewController::create(*URL::URLWithString("itms-apps://apps.example/id1")),
            nullptr);
  EXPECT_TRUE(SafariViewController::create(*URL::URLWithString("HTTP://Example.com/")));
}

}  // namespace
}  // namespace zorva::platform
