#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorva::platform {
namespace {

class Finisher : public StoreProductViewControllerDelegate, public SafariViewControllerDelegate {
 public:
  void productViewControllerDidFinish(const std::shared_ptr<StoreProductViewController>&) override {
    events.push_back("sheet");
  }
  void safariViewControllerDidFinish(
      const std::shared_ptr<SafariViewController>& controller) override {
    // The browser is already down when its delegate hears of it.
    events.push_back(controller->presentingViewController() ? "browser up" : "browser down");
  }
  std::vector<std::string> events;
};

TEST(StoreProductViewController, KeepsTheLatestLoadAndLeavesClosingToItsDelegate) {
  auto sheet = StoreProductViewController::create();
  std::vector<std::string> completions;
  sheet->loadProductWithParameters({{"id", 1}}, [&](bool, auto) { completions.push_back("1"); });
  sheet->loadProductWithParameters({{"id", 2}}, [&](bool, auto) { completions.push_back("2"); });
  EXPECT_EQ(sheet->productParameters(), Value({{"id", 2}}));
  EXPECT_TRUE(sheet->finishLoading(true));
  EXPECT_FALSE(sheet->finishLoading(true));
  EXPECT_EQ(completions, std::vector<std::string>{"2"});

  auto presenter = ViewController::create();
  presenter->presentViewController(sheet, true, nullptr);
  auto finisher = std::make_shared<Finisher>();
  sheet->setDelegate(finisher);
  sheet->finish();
  EXPECT_EQ(finisher->events, std::vector<std::string>{"sheet"});
  EXPECT_EQ(presenter->presentedViewController(), sheet);
}

TEST(SafariViewController, OpensOnlyWebAddressesAndTakesItselfDownWhenDone) {
  EXPECT_EQ(SafariViewController::create(*URL::URLWithString("itms-apps://apps.example/id1")),
            nullptr);
  EXPECT_TRUE(SafariViewController::create(*URL::URLWithString("HTTP://Example.com/")));
  auto browser = SafariViewController::create(*URL::URLWithString("https://example.com/a"));
  auto presenter = ViewController::create();
  presenter->presentViewController(browser, true, nullptr);
  auto finisher = std::make_shared<Finisher>();
  browser->setDelegate(finisher);
  browser->finish();
  EXPECT_EQ(presenter->presentedViewController(), nullptr);
  EXPECT_EQ(finisher->events, std::vector<std::string>{"browser down"});
}

}  // namespace
}  // namespace zorva::platform
