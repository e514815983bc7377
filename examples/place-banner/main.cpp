// Places a 320x50 banner in an app's window and loads one ad. Usage: place-banner [bid URL]
#include <zorva/Zorva.h>

#include <iostream>

int main(int argc, char** argv) {
  using namespace zorva;
  auto& mainQueue = platform::MainQueue::shared();  // this thread is the app's main thread
  // What a Linux app expects: every callback on the main queue, failures (no fill, HTTP errors,
  // missing ids) told instead of fatal, the request saying it comes from this desktop.
  ZorvaSDK::shared()->setAppConventions(true);
  auto root = platform::ViewController::create();
  auto window = platform::DeviceProfile::desktop().makeKeyWindow(root);

  auto request = std::make_shared<ZVAdRequest>();
  request->publisherId = "my-publisher-id";
  request->adunitId = "banner";
  if (argc > 1) request->serverUrl = argv[1];

  auto banner = ZVBannerView::create(request, ZVAdSize{320, 50});
  banner->setFrame(platform::Rect(0, 0, 320, 50));
  root->view()->addSubview(banner);

  bool done = false, received = false;
  auto delegate = std::make_shared<ZVBannerViewDelegate>();  // the banner holds it weakly
  delegate->bannerViewDidReceiveAd = [&](ZVBannerView&) { received = done = true; };
  delegate->bannerViewDidFailToReceiveAdWithError = [&](ZVBannerView&, const Error& error) {
    // On the main queue, with the conventions on; classifyError says what to do next (retry
    // later on no fill, when the network is back on a network error...).
    std::cout << "banner: no ad (" << error.localizedDescription() << ")\n";
    if (auto status = httpStatusOf(error)) std::cout << "banner: HTTP status " << *status << "\n";
    done = true;
  };
  banner->setDelegate(delegate);
  banner->loadAd();

  mainQueue.runUntil([&] { return done; }, std::chrono::seconds(15));
  if (received) std::cout << "banner: ad received\n";
  return received ? 0 : 1;
}
