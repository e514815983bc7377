#pragma once

// Pieces shared by the ad format tests: a request aimed at the loopback server, canned bids, a
// thread-aware record of the callbacks an app hears, and a view that notes where it died.

#include <zorva/ZVAdRequest.h>
#include <zorva/ZVBannerView.h>
#include <zorva/ZVInBannerVideo.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/ZVTypes.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>
#include <zorva/platform/View.h>
#include <zorva/platform/WebView.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/LoopbackServer.h"

namespace zorva::test {

inline constexpr const char* kServadPath = "/zorva/servad";

/// A request for "pub-1"/"unit-9" to `url`.
inline std::shared_ptr<ZVAdRequest> requestTo(std::string url, unsigned long timeout = 10) {
  auto request = std::make_shared<ZVAdRequest>();
  request->publisherId = "pub-1";
  request->adunitId = "unit-9";
  request->serverUrl = std::move(url);
  request->netoworkTimeout = timeout;
  return request;
}

inline std::shared_ptr<ZVAdRequest> requestFor(const LoopbackServer& server,
                                               unsigned long timeout = 10) {
  return requestTo(server.url(kServadPath), timeout);
}

/// A request to a loopback port nobody listens on: the load fails on the network thread.
inline std::shared_ptr<ZVAdRequest> unreachableRequest() {
  return requestTo("http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) +
                   kServadPath);
}

/// A bid response whose one bid carries `adm`, and `ext` when there is one.
inline std::string bidWithMarkup(const std::string& adm, int width = 320, int height = 50,
                                 const Value& ext = Value()) {
  Value bid = {{"id", "bid-1"}, {"adm", adm}, {"w", width}, {"h", height}, {"price", 1.5}};
  if (!ext.is_null()) bid["ext"] = ext;
  Value body = {{"id", "resp-1"}, {"seatbid", Value::array({{{"bid", Value::array({bid})}}})}};
  return body.dump();
}

inline const std::string kDisplayMarkup = R"(<a href="https://example.com/landing">Zorva</a>)";

/// One callback as the app heard it.
struct Heard {
  std::string name;
  bool onMainThread = false;
  /// The URL session's thread, where transport failures are told.
  bool onNetworkThread = false;
  std::optional<Error> error;
};

/// What an app's delegate heard, from any thread.
class Recorder {
 public:
  void note(std::string name, std::optional<Error> error = std::nullopt) {
    std::lock_guard lock(mutex_);
    heard_.push_back({std::move(name), platform::MainQueue::shared().isCurrent(),
                      platform::URLSession::sharedSession()->isDelegateQueue(), std::move(error)});
  }
  void clear() {
    std::lock_guard lock(mutex_);
    heard_.clear();
  }
  std::vector<Heard> heard() const {
    std::lock_guard lock(mutex_);
    return heard_;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& h : heard()) names.push_back(h.name);
    return names;
  }
  std::size_t count(const std::string& name) const {
    const auto all = names();
    return std::count(all.begin(), all.end(), name);
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Heard> heard_;
};

/// A banner's or an in-banner video's delegate that notes every callback in `recorder`:
/// "receive", "fail" (with its error), "present", "dismiss", and a video's "finish".
template <typename Delegate>
std::shared_ptr<Delegate> recordingBannerDelegate(Recorder& recorder) {
  auto delegate = std::make_shared<Delegate>();
  delegate->bannerViewDidReceiveAd = [&recorder](auto&) { recorder.note("receive"); };
  delegate->bannerViewDidFailToReceiveAdWithError = [&recorder](auto&, const Error& error) {
    recorder.note("fail", error);
  };
  delegate->bannerViewWillPresentModal = [&recorder](auto&) { recorder.note("present"); };
  delegate->bannerViewDidDismissModal = [&recorder](auto&) { recorder.note("dismiss"); };
  if constexpr (requires { delegate->bannerViewDidFinishPlayingAd; }) {
    delegate->bannerViewDidFinishPlayingAd = [&recorder](auto&) { recorder.note("finish"); };
  }
  return delegate;
}

/// An interstitial's delegate that notes "receive", "fail" (with its error), "click" and
/// "dismiss" in `recorder`; it does not listen for the presentation.
inline std::shared_ptr<ZVInterstitialAdDelegate> recordingInterstitialDelegate(Recorder& recorder) {
  auto delegate = std::make_shared<ZVInterstitialAdDelegate>();
  delegate->interstitialDidReceiveAd = [&recorder](auto&) { recorder.note("receive"); };
  delegate->interstitialDidFailToReceiveAdWithError = [&recorder](auto&, const Error& error) {
    recorder.note("fail", error);
  };
  delegate->interstitialDidClickAd = [&recorder](auto&) { recorder.note("click"); };
  delegate->interstitialDidDismissAd = [&recorder](auto&) { recorder.note("dismiss"); };
  return delegate;
}

/// The first web view in `view`'s tree (the view itself included).
inline std::shared_ptr<platform::WebView> findWebView(const std::shared_ptr<platform::View>& view) {
  if (!view) return nullptr;
  if (auto web = std::dynamic_pointer_cast<platform::WebView>(view)) return web;
  for (const auto& sub : view->subviews()) {
    if (auto web = findWebView(sub)) return web;
  }
  return nullptr;
}

/// A view that records whether it was destroyed and whether that happened on the main thread.
class DestructionProbe : public platform::View {
 public:
  struct Record {
    std::atomic<bool> destroyed{false};
    std::atomic<bool> onMainThread{false};
  };
  static std::shared_ptr<DestructionProbe> create(std::shared_ptr<Record> record) {
    return std::shared_ptr<DestructionProbe>(new DestructionProbe(std::move(record)));
  }
  ~DestructionProbe() override {
    record_->onMainThread = platform::MainQueue::shared().isCurrent();
    record_->destroyed = true;
  }

 private:
  explicit DestructionProbe(std::shared_ptr<Record> record)
      : View(platform::Rect()), record_(std::move(record)) {}
  std::shared_ptr<Record> record_;
};

}  // namespace zorva::test
