#pragma once

// The world the ad format tests load in: a phone's key window over a root controller, the
// loopback server bidding a display ad, and one recording delegate per format.

#include <gtest/gtest.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/Window.h>

#include "support/AdFormatTesting.h"
#include "support/TestEnvironment.h"

namespace zorva::test {

class AdWorld {
 protected:
  AdWorld() { server_.respond(kServadPath, {.body = bidWithMarkup(kDisplayMarkup)}); }

  /// Each format aimed at the server, or at `request`, heard by its format's delegate.
  std::shared_ptr<ZVBannerView> makeBanner(unsigned long refresh = 0,
                                           std::shared_ptr<ZVAdRequest> request = nullptr) {
    auto banner = ZVBannerView::create(request ? request : requestFor(server_), ZVAdSize{320, 50});
    banner->setRefreshInterval(refresh);
    banner->setDelegate(bannerDelegate_);
    return banner;
  }
  /// On screen, so that the video plays once playAd puts it in the view.
  std::shared_ptr<ZVInBannerVideo> makeVideo() {
    auto video = ZVInBannerVideo::create(requestFor(server_), ZVAdSize{300, 250});
    video->setDelegate(videoDelegate_);
    root_->view()->addSubview(video);
    return video;
  }
  std::shared_ptr<ZVInterstitialAd> makeInterstitial(
      std::shared_ptr<ZVAdRequest> request = nullptr) {
    auto ad = ZVInterstitialAd::create(request ? request : requestFor(server_));
    ad->setDelegate(interstitialDelegate_);
    return ad;
  }
  /// Runs the main queue until `name` has been heard `count` times.
  bool waitFor(const std::string& name, std::size_t count = 1) {
    return runMainQueueUntil([&] { return recorder_.count(name) >= count; });
  }

  LoopbackServer server_;
  Recorder recorder_;
  std::shared_ptr<ZVBannerViewDelegate> bannerDelegate_ =
      recordingBannerDelegate<ZVBannerViewDelegate>(recorder_);
  std::shared_ptr<ZVInBannerVideoDelegate> videoDelegate_ =
      recordingBannerDelegate<ZVInBannerVideoDelegate>(recorder_);
  std::shared_ptr<ZVInterstitialAdDelegate> interstitialDelegate_ =
      recordingInterstitialDelegate(recorder_);
  std::shared_ptr<platform::ViewController> root_ = platform::ViewController::create();
  std::shared_ptr<platform::Window> window_ = platform::DeviceProfile::phone().makeKeyWindow(root_);
};

class AdWorldTest : public ::testing::Test, protected AdWorld {};

}  // namespace zorva::test
