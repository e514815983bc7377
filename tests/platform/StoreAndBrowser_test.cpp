#include <zorva/platform/MainQueue.h>
#include <zorva/platform/SafariViewController.h>
#include <zorva/platform/StoreProductViewController.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorva::platform {
namespace {

class Finisher : public StoreProductViewControllerDelegate, public SafariViewControllerDelegate {
 public:
  void productViewControllerDidFinish(
      const std::shared_ptr<StoreProductViewController>& controller) override {
    sheets.push_back(controller);
  }
  void safariViewControllerDidFinish(
      const std::shared_ptr<SafariViewController>& controller) override {
    browsers.push_back(controller);
    // The browser is already down when its delegate hears of it.
    stillPresented = controller->presentingViewController() != nullptr;
  }
  std::vector<std::shared_ptr<StoreProductViewController>> sheets;
  std::vector<std::shared_ptr<SafariViewController>> browsers;
  bool stillPresented = true;
};

TEST(StoreProductViewController, KeepsTheLatestLoadAndLeavesClosingToItsDelegate) {
  auto sheet = StoreProductViewController::create();
  EXPECT_FALSE(sheet->productParameters());
  EXPECT_FALSE(sheet->finishLoading(true));

  std::vector<std::string> completions;
  sheet->loadProductWithParameters(
      {{kStoreProductParameterITunesItemIdentifier, 1}},
      [&](bool, std::optional<Error>) { completions.push_back("first"); });
  sheet->loadProductWithParameters({{kStoreProductParameterITunesItemIdentifier, 2}},
                                   [&](bool loaded, std::optional<Error> error) {
                                     completions.push_back(loaded ? "loaded" : "failed");
                                     EXPECT_EQ(error, std::nullopt);
                                   });
  EXPECT_EQ(sheet->productParameters(), Value({{"id", 2}}));
  EXPECT_TRUE(sheet->isLoading());
  EXPECT_TRUE(sheet->finishLoading(true));
  EXPECT_FALSE(sheet->finishLoading(true));
  EXPECT_EQ(completions, std::vector<std::string>{"loaded"});

  auto presenter = ViewController::create();
  presenter->presentViewController(sheet, true, nullptr);
  sheet->finish();  // no delegate: nothing happens, the sheet stays up
  EXPECT_EQ(presenter->presentedViewController(), sheet);
  auto finisher = std::make_shared<Finisher>();
  sheet->setDelegate(finisher);
  sheet->finish();
  ASSERT_EQ(finisher->sheets.size(), 1u);
  EXPECT_EQ(finisher->sheets[0], sheet);
  EXPECT_EQ(presenter->presentedViewController(), sheet);
}

TEST(SafariViewController, OpensOnlyWebAddressesAndTakesItselfDownWhenDone) {
  EXPECT_EQ(SafariViewController::create(*URL::URLWithString("itms-apps://apps.example/id1")),
            nullptr);
  EXPECT_EQ(SafariViewController::create(*URL::URLWithString("ftp://files.example/ad.zip")),
            nullptr);
  ASSERT_TRUE(SafariViewController::create(*URL::URLWithString("HTTP://Example.com/")));

  auto browser = SafariViewController::create(*URL::URLWithString("https://example.com/a"));
  ASSERT_TRUE(browser);
  EXPECT_EQ(browser->url().absoluteString(), "https://example.com/a");
  auto presenter = ViewController::create();
  presenter->presentViewController(browser, true, nullptr);
  auto finisher = std::make_shared<Finisher>();
  browser->setDelegate(finisher);
  browser->finish();
  EXPECT_EQ(presenter->presentedViewController(), nullptr);
  ASSERT_EQ(finisher->browsers.size(), 1u);
  EXPECT_FALSE(finisher->stillPresented);
}

}  // namespace
}  // namespace zorva::platform
