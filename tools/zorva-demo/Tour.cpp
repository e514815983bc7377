#include "zorva-demo/Tour.h"

#include <zorva/Zorva.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <mutex>
#include <set>
#include <string_view>
#include <thread>

#include "zorva-demo/DemoHost.h"
#include "zorva-demo/DemoRunLoop.h"
#include "zorva-demo/Engines.h"
#include "zorva-demo/SimulatedUser.h"
#include "zorva-demo/Timeline.h"

namespace zorva::demo {

namespace {

using platform::Value;

constexpr ZVAdSize kBannerSize{320, 50};
constexpr ZVAdSize kVideoSlotSize{320, 250};
constexpr unsigned long kRefreshSeconds = 5;

/// What the app heard: every callback goes on the timeline and is counted (callbacks may come
/// from the network thread).
class Heard {
 public:
  explicit Heard(Timeline& timeline) : timeline_(timeline) {}

  void callback(const std::string& name, std::string extra = "") {
    {
      std::lock_guard lock(mutex_);
      names_.push_back(name);
    }
    timeline_.emit("callback", extra.empty() ? name : name + "  " + extra, {{"callback", name}});
  }
  void failure(const std::string& name, const Error& error) {
    {
      std::lock_guard lock(mutex_);
      lastError_ = error;
      errorThread_ = Timeline::threadName();
    }
    callback(name, "error " + error.domain + " " + std::to_string(error.code) + ": " +
                       error.localizedDescription());
  }
  std::size_t count(const std::string& name) const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count(names_.begin(), names_.end(), name));
  }
  std::size_t total() const {
    std::lock_guard lock(mutex_);
    return names_.size();
  }
  std::optional<Error> lastError() const {
    std::lock_guard lock(mutex_);
    return lastError_;
  }
  std::string errorThread() const {
    std::lock_guard lock(mutex_);
    return errorThread_;
  }

 private:
  Timeline& timeline_;
  mutable std::mutex mutex_;
  std::vector<std::string> names_;
  std::optional<Error> lastError_;
  std::string errorThread_;
};

std::shared_ptr<ZVBannerViewDelegate> bannerDelegate(Heard& heard) {
  auto delegate = std::make_shared<ZVBannerViewDelegate>();
  delegate->bannerViewDidReceiveAd = [&heard](ZVBannerView&) {
    heard.callback("bannerViewDidReceiveAd");
  };
  delegate->bannerViewDidFailToReceiveAdWithError = [&heard](ZVBannerView&, const Error& error) {
    heard.failure("bannerViewDidFailToReceiveAdWithError", error);
  };
  delegate->bannerViewWillPresentModal = [&heard](ZVBannerView&) {
    heard.callback("bannerViewWillPresentModal");
  };
  delegate->bannerViewDidDismissModal = [&heard](ZVBannerView&) {
    heard.callback("bannerViewDidDismissModal");
  };
  return delegate;
}

std::shared_ptr<ZVInterstitialAdDelegate> interstitialDelegate(Heard& heard) {
  auto delegate = std::make_shared<ZVInterstitialAdDelegate>();
  delegate->interstitialDidReceiveAd = [&heard](ZVInterstitialAd&) {
    heard.callback("interstitialDidReceiveAd");
  };
  delegate->interstitialDidFailToReceiveAdWithError = [&heard](ZVInterstitialAd&,
                                                               const Error& error) {
    heard.failure("interstitialDidFailToReceiveAdWithError", error);
  };
  delegate->interstitialWillPresentAd = [&heard](ZVInterstitialAd&) {
    heard.callback("interstitialWillPresentAd");
  };
  delegate->interstitialDidClickAd = [&heard](ZVInterstitialAd&) {
    heard.callback("interstitialDidClickAd");
  };
  delegate->interstitialDidDismissAd = [&heard](ZVInterstitialAd&) {
    heard.callback("interstitialDidDismissAd");
  };
  return delegate;
}

std::shared_ptr<ZVInBannerVideoDelegate> inBannerDelegate(Heard& heard) {
  auto delegate = std::make_shared<ZVInBannerVideoDelegate>();
  delegate->bannerViewDidReceiveAd = [&heard](ZVInBannerVideo&) {
    heard.callback("bannerViewDidReceiveAd");
  };
  delegate->bannerViewDidFailToReceiveAdWithError = [&heard](ZVInBannerVideo&, const Error& error) {
    heard.failure("bannerViewDidFailToReceiveAdWithError", error);
  };
  delegate->bannerViewWillPresentModal = [&heard](ZVInBannerVideo&) {
    heard.callback("bannerViewWillPresentModal");
  };
  delegate->bannerViewDidDismissModal = [&heard](ZVInBannerVideo&) {
    heard.callback("bannerViewDidDismissModal");
  };
  delegate->bannerViewDidFinishPlayingAd = [&heard](ZVInBannerVideo&) {
    heard.callback("bannerViewDidFinishPlayingAd");
  };
  return delegate;
}

const char* bannerStateName(long state) {
  static const char* const kNames[] = {"idle", "loading", "playing", "finished playing"};
  return state >= 0 && state < 4 ? kNames[state] : "?";
}

const char* interstitialStateName(long state) {
  static const char* const kNames[] = {"idle", "loading", "loaded", "shown"};
  return state >= 0 && state < 4 ? kNames[state] : "?";
}

/// Puts every change of `state()` on the timeline as the run loop turns.
template <class Ad>
std::function<void()> stateWatcher(Timeline& timeline, const std::shared_ptr<Ad>& ad,
                                   const char* (*name)(long)) {
  auto last = std::make_shared<long>(ad->state());
  std::weak_ptr<Ad> weakAd = ad;
  return [&timeline, weakAd, last, name] {
    auto strong = weakAd.lock();
    if (!strong) return;
    const long now = strong->state();
    if (now == *last) return;
    timeline.emit("state",
                  "state " + std::to_string(*last) + " (" + name(*last) + ") -> " +
                      std::to_string(now) + " (" + name(now) + ")",
                  {{"from", *last}, {"to", now}});
    *last = now;
  };
}

/// The summary of a load that delivered no ad.
std::string noAd(const Heard& heard) {
  if (auto error = heard.lastError()) {
    return "no ad: " + error->domain + " " + std::to_string(error->code) + " " +
           error->localizedDescription();
  }
  return "no ad: nothing heard in time";
}

}  // namespace

Tour::Tour(Timeline& timeline, DemoRunLoop& loop, DemoHost& host, Config config)
    : timeline_(timeline), loop_(loop), host_(host), config_(std::move(config)) {}

std::vector<std::string> Tour::scenarioNames() {
  return {"banner",         "interstitial", "interstitial-video", "in-banner-video", "vast-wrapper",
          "vast-nonlinear", "no-fill",      "broken-response",    "network-timeout"};
}

std::vector<ScenarioResult> Tour::run() {
  if (config_.adunitId) return probes(*config_.adunitId);
  return {banner(),
          interstitialDisplay(),
          interstitialVideo("interstitial-video", "video"),
          inBannerVideo(),
          interstitialVideo("vast-wrapper", "video-wrapper"),
          nonLinear(),
          noFill(),
          brokenResponse(),
          slowAnswer()};
}

std::shared_ptr<ZVAdRequest> Tour::request(const std::string& adunit, unsigned long timeout) const {
  auto request = std::make_shared<ZVAdRequest>();
  request->publisherId = config_.publisherId;
  request->adunitId = adunit;
  request->serverUrl = config_.serverUrl;
  request->netoworkTimeout = timeout;
  return request;
}

void Tour::begin(const std::string& name, const std::string& description) {
  timeline_.setScenario(name);
  timeline_.emit("scenario", name + ": " + description);
}

ScenarioResult Tour::finish(const std::string& name, bool passed, const std::string& summary) {
  loop_.setObserver(nullptr);
  char line[48];
  std::snprintf(line, sizeof line, "%s  %-19s", passed ? "PASS" : "FAIL", name.c_str());
  timeline_.emit("summary", line + summary, {{"passed", passed}});
  return {name, passed, summary};
}

bool Tour::runUntil(const std::function<bool()>& done, double virtualSeconds) {
  return loop_.runUntil(done, std::chrono::seconds(15), platform::seconds(virtualSeconds));
}

bool Tour::playUntil(const std::function<bool()>& done,
                     const std::function<std::optional<float>()>& bar) {
  const double duration = DemoHost::kMediaSeconds;
  int shown = -1;
  // The demo's own one-second ticks: they read the player's progress bar as a viewer would.
  std::shared_ptr<platform::Timer> tick;
  std::function<void()> sample = [&] {
    if (auto fraction = bar()) {
      // The player's bar moves every 2.5 ms of play: allow for a tick not yet run.
      const int second = static_cast<int>(std::floor(*fraction * duration + 0.01));
      if (second != shown) {
        shown = second;
        timeline_.progress(*fraction * duration, duration);
      }
    }
    tick = platform::MainQueue::shared().scheduleTimer(platform::seconds(0.5), sample);
  };
  sample();
  const bool finished = runUntil(done, duration * 4 + 10);
  tick->invalidate();
  if (auto fraction = bar(); fraction && static_cast<int>(*fraction * duration + 0.01) != shown) {
    timeline_.progress(*fraction * duration, duration);
  }
  return finished;
}

void Tour::hold() {
  if (config_.stepPause > platform::Duration::zero()) loop_.wait(config_.stepPause);
}

std::size_t Tour::count(const std::string& kind, const std::string& text) const {
  std::size_t n = 0;
  for (const auto& event : timeline_.eventsOf(timeline_.scenario())) {
    if (event.kind == kind && event.text.find(text) != std::string::npos) ++n;
  }
  return n;
}

ScenarioResult Tour::banner() {
  const std::string name = "banner";
  begin(name, "an HTML banner, 320x50, refreshed every " + std::to_string(kRefreshSeconds) +
                  " s; the user taps its link, then closes the store sheet (ad unit \"banner\")");
  Heard heard(timeline_);
  auto delegate = bannerDelegate(heard);
  auto banner = ZVBannerView::create(request("banner"), kBannerSize);
  banner->setFrame(platform::Rect(0, 0, kBannerSize.width, kBannerSize.height));
  host_.rootViewController()->view()->addSubview(banner);
  banner->setDelegate(delegate);
  banner->setRefreshInterval(kRefreshSeconds);
  loop_.setObserver(stateWatcher(timeline_, banner, bannerStateName));

  timeline_.emit("app", "loadAd()");
  banner->loadAd();
  runUntil([&] { return heard.total() > 0; });
  if (heard.count("bannerViewDidReceiveAd") == 0) {
    banner->removeFromSuperview();
    return finish(name, false, noAd(heard));
  }
  const auto firstAt = platform::MainQueue::shared().now();
  hold();

  if (config_.snapshotPath) {
    // Shared with the callback: it may come after this wait has given up.
    auto outcome = std::make_shared<std::optional<std::optional<std::string>>>();
    Engines::snapshot(SimulatedUser::webViewIn(banner), *config_.snapshotPath,
                      [outcome](std::optional<std::string> error) { *outcome = std::move(error); });
    runUntil([&] { return outcome->has_value(); }, 10);
    if (!outcome->has_value() || outcome->value()) {
      banner->removeFromSuperview();
      return finish(name, false,
                    "no snapshot: " + (outcome->has_value() ? *outcome->value() : "timed out"));
    }
    timeline_.emit("note", "wrote a PNG of the banner to " + *config_.snapshotPath,
                   {{"snapshot", *config_.snapshotPath}});
  }

  std::optional<ClickDestination> destination;
  if (auto link = SimulatedUser::firstLink(banner)) {
    timeline_.emit("user", "taps the banner's link " + *link);
    SimulatedUser::tapLink(banner, *link, config_.pointer);
    runUntil(
        [&] { return SimulatedUser::destinationOnTop(host_.rootViewController()).has_value(); }, 1);
    destination = SimulatedUser::destinationOnTop(host_.rootViewController());
    if (destination) {
      timeline_.emit(
          "click", "opened the " + destination->describe(),
          {{"destination",
            destination->kind == ClickDestination::Kind::StoreSheet ? "store" : "browser"},
           {"parameters", destination->parameters},
           {"url", destination->url}});
      hold();
      timeline_.emit("user", "closes it");
      SimulatedUser::closeSheetOnTop(host_.rootViewController(), config_.pointer);
      runUntil([&] { return heard.count("bannerViewDidDismissModal") > 0; }, 1);
      hold();
    }
  }

  timeline_.emit("note", "waiting for the refresh");
  runUntil([&] { return heard.count("bannerViewDidReceiveAd") >= 2; }, kRefreshSeconds * 3);
  const double apart =
      std::chrono::duration<double>(platform::MainQueue::shared().now() - firstAt).count();
  hold();

  const bool stored = destination && destination->kind == ClickDestination::Kind::StoreSheet &&
                      destination->parameters.contains("id") &&
                      destination->parameters.contains("adNetworkIdentifier");
  const bool passed = heard.count("bannerViewDidReceiveAd") == 2 && count("request") == 2 &&
                      heard.count("bannerViewWillPresentModal") == 1 &&
                      heard.count("bannerViewDidDismissModal") == 1 && stored;
  char summary[256];
  std::snprintf(summary, sizeof summary, "%zu ads %.1f s apart; click -> %s; sheet closed: %s",
                heard.count("bannerViewDidReceiveAd"), apart,
                destination ? destination->describe().c_str() : "nothing opened",
                heard.count("bannerViewDidDismissModal") == 1 ? "yes" : "no");
  banner->removeFromSuperview();
  return finish(name, passed, summary);
}

ScenarioResult Tour::interstitialDisplay() {
  const std::string name = "interstitial";
  begin(name,
        "a full-screen HTML ad: loaded, shown, its link tapped, closed with its X button "
        "(ad unit \"interstitial\")");
  Heard heard(timeline_);
  auto delegate = interstitialDelegate(heard);
  auto ad = ZVInterstitialAd::create(request("interstitial"));
  ad->setDelegate(delegate);
  loop_.setObserver(stateWatcher(timeline_, ad, interstitialStateName));

  timeline_.emit("app", "loadAd()");
  ad->loadAd();
  runUntil([&] { return heard.total() > 0; });
  if (heard.count("interstitialDidReceiveAd") == 0) return finish(name, false, noAd(heard));
  timeline_.emit("app", "showFromViewController(root)");
  ad->showFromViewController(host_.rootViewController());
  runUntil([&] { return heard.count("interstitialWillPresentAd") > 0; }, 1);
  hold();

  std::optional<ClickDestination> destination;
  auto modal = ad->modalController();
  if (auto link = SimulatedUser::firstLink(modal ? modal->view() : nullptr)) {
    timeline_.emit("user", "taps the ad's link " + *link);
    SimulatedUser::tapLink(modal->view(), *link, config_.pointer);
    runUntil(
        [&] { return SimulatedUser::destinationOnTop(host_.rootViewController()).has_value(); }, 1);
    destination = SimulatedUser::destinationOnTop(host_.rootViewController());
    if (destination) {
      timeline_.emit("click", "opened the " + destination->describe(),
                     {{"parameters", destination->parameters}, {"url", destination->url}});
      hold();
      timeline_.emit("user", "closes it");
      SimulatedUser::closeSheetOnTop(host_.rootViewController(), config_.pointer);
      runUntil([&] { return SimulatedUser::topPresented(host_.rootViewController()) == modal; }, 1);
      hold();
    }
  }
  timeline_.emit("user", "presses the ad's X button");
  const bool pressed = modal && SimulatedUser::pressButton(modal->view(), "X", config_.pointer);
  runUntil([&] { return host_.rootViewController()->presentedViewController() == nullptr; }, 1);
  hold();
  const bool closed = host_.rootViewController()->presentedViewController() == nullptr;
  timeline_.emit("note", std::string("ad closed: ") + (closed ? "yes" : "no") +
                             "; the close is not reported to the app and the ad stays in state " +
                             std::to_string(ad->state()) + " (make a new one for the next ad)");

  const bool passed = heard.count("interstitialDidReceiveAd") == 1 &&
                      heard.count("interstitialWillPresentAd") == 1 &&
                      heard.count("interstitialDidClickAd") == 1 && destination && pressed &&
                      closed && heard.count("interstitialDidDismissAd") == 0 && ad->state() == 3;
  return finish(name, passed,
                std::string("loaded, shown, clicked -> ") +
                    (destination ? destination->describe() : "nothing opened") + ", closed");
}

ScenarioResult Tour::interstitialVideo(const std::string& name, const std::string& adunit) {
  const bool wrapper = adunit == "video-wrapper";
  begin(name, wrapper ? "a VAST Wrapper that points to a second Wrapper, which points to the "
                        "InLine video; trackers of all three are fired (ad unit \"" +
                            adunit + "\")"
                      : "switchToVideo: a VAST InLine linear video, shown and played to the end "
                        "(ad unit \"" +
                            adunit + "\")");
  Heard heard(timeline_);
  auto delegate = interstitialDelegate(heard);
  auto ad = ZVInterstitialAd::create(request(adunit));
  ad->setDelegate(delegate);
  ad->setSwitchToVideo(true);
  loop_.setObserver(stateWatcher(timeline_, ad, interstitialStateName));

  timeline_.emit("app", "setSwitchToVideo(true); loadAd()");
  ad->loadAd();
  runUntil([&] { return heard.total() > 0; });
  if (heard.count("interstitialDidReceiveAd") == 0) return finish(name, false, noAd(heard));
  timeline_.emit("app", "showFromViewController(root)");
  ad->showFromViewController(host_.rootViewController());
  runUntil([&] { return heard.count("interstitialWillPresentAd") > 0; }, 1);
  auto modal = ad->modalController();
  playUntil([&] { return count("vast", "complete at") > 0; },
            [&] { return SimulatedUser::progressShown(modal ? modal->view() : nullptr); });
  timeline_.emit("user", "presses the ad's X button");
  if (modal) SimulatedUser::pressButton(modal->view(), "X", config_.pointer);
  runUntil([&] { return host_.rootViewController()->presentedViewController() == nullptr; }, 1);
  hold();

  std::vector<std::string> order;
  std::set<std::string> documents;
  for (const auto& event : timeline_.eventsOf(name)) {
    if (event.kind == "vast") order.push_back(event.detail.value("event", ""));
    if (event.kind == "vast" && event.detail.contains("trackers")) {
      for (const auto& url : event.detail["trackers"]) {
        const auto text = url.get<std::string>();
        if (auto at = text.find("doc="); at != std::string::npos) {
          documents.insert(text.substr(at + 4, text.find('&', at) - at - 4));
        }
      }
    }
  }
  const std::vector<std::string> expected = {"start", "firstQuartile", "midpoint", "thirdQuartile",
                                             "complete"};
  bool passed = heard.count("interstitialDidReceiveAd") == 1 &&
                heard.count("interstitialWillPresentAd") == 1 && order == expected;
  std::string summary = "played to the end: " + std::to_string(order.size()) + " VAST events";
  if (config_.production) {
    // Each document's impression, start, three quartiles and complete, twice: the tracking
    // transport sends on its own threads, so the GETs are waited for in real time. It delivers
    // at least once, so a GET sent again after a slow answer, or one of the previous play's
    // arriving late, is not counted beyond what was expected of it.
    std::map<std::string, std::size_t> expected;
    for (const auto& doc : documents) {
      for (const char* event : {"impression", "start", "firstQuartile", "midpoint", "thirdQuartile",
                                "complete", "complete"}) {
        ++expected["doc=" + doc + "&event=" + event];
      }
    }
    const std::size_t gets = 7 * documents.size();
    const auto trackingGets = [&] {
      constexpr std::string_view kTrack = "GET /track?";
      std::map<std::string, std::size_t> seen;
      for (const auto& event : timeline_.eventsOf(name)) {
        const auto at = event.text.find(kTrack);
        if (event.kind != "server" || at == std::string::npos) continue;
        const auto query = at + kTrack.size();
        ++seen[event.text.substr(query, event.text.find(' ', query) - query)];
      }
      std::size_t arrived = 0;
      for (const auto& [url, times] : expected) arrived += std::min(times, seen[url]);
      return arrived;
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (trackingGets() < gets && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    passed = passed && trackingGets() == gets;
    summary = std::to_string(trackingGets()) + " tracking GETs at the server; " + summary;
  }
  if (wrapper) {
    const bool chain =
        count("server", "/vast/wrapper2.xml") == 1 && count("server", "/vast/inline.xml") == 1;
    const bool allTrackers = documents == std::set<std::string>{"inline", "wrapper1", "wrapper2"};
    passed = passed && chain && allTrackers;
    summary = std::string("chain wrapper1 -> wrapper2 -> inline ") +
              (chain ? "followed" : "NOT followed") + "; events carry trackers of " +
              std::to_string(documents.size()) + " documents; " + summary;
  } else {
    summary += " (" + [&] {
      std::string list;
      for (const auto& e : order) list += (list.empty() ? "" : ", ") + e;
      return list;
    }() + ")";
  }
  return finish(name, passed, summary);
}

ScenarioResult Tour::inBannerVideo() {
  const std::string name = "in-banner-video";
  begin(name,
        "a video in a 320x250 slot: received with nothing on screen, then playAd, played "
        "to the end; a further loadAd is refused (ad unit \"video\")");
  Heard heard(timeline_);
  auto delegate = inBannerDelegate(heard);
  auto video = ZVInBannerVideo::create(request("video"), kVideoSlotSize);
  video->setFrame(platform::Rect(0, 60, kVideoSlotSize.width, kVideoSlotSize.height));
  host_.rootViewController()->view()->addSubview(video);
  video->setDelegate(delegate);
  loop_.setObserver(stateWatcher(timeline_, video, bannerStateName));

  timeline_.emit("app", "loadAd()");
  video->loadAd();
  runUntil([&] { return heard.total() > 0; });
  if (heard.count("bannerViewDidReceiveAd") == 0) {
    video->removeFromSuperview();
    return finish(name, false, noAd(heard));
  }
  const bool emptyBeforePlay = video->subviews().empty();
  timeline_.emit("note", std::string("on screen before playAd: ") +
                             (emptyBeforePlay ? "nothing" : "a view (unexpected)"));
  timeline_.emit("app", "playAd()");
  video->playAd();
  playUntil([&] { return heard.count("bannerViewDidFinishPlayingAd") > 0; },
            [&] { return SimulatedUser::progressShown(video); });
  hold();

  const std::size_t requestsBefore = count("request");
  timeline_.emit("app", "loadAd() again");
  video->loadAd();
  runUntil([] { return false; }, 0.5);
  const bool refused =
      count("request") == requestsBefore && count("sdk", "Ad Not in loadable state") == 1;
  video->removeFromSuperview();

  const bool passed = heard.count("bannerViewDidReceiveAd") == 1 && emptyBeforePlay &&
                      count("vast") == 5 && heard.count("bannerViewDidFinishPlayingAd") == 1 &&
                      video->state() == 3 && refused;
  return finish(name, passed,
                std::string("received off screen, played: ") + std::to_string(count("vast")) +
                    " VAST events, finished (state " + std::to_string(video->state()) +
                    "); second loadAd " + (refused ? "refused" : "NOT refused"));
}

ScenarioResult Tour::nonLinear() {
  const std::string name = "vast-nonlinear";
  begin(name,
        "a VAST NonLinear creative (an image page), shown full screen (ad unit "
        "\"video-nonlinear\")");
  Heard heard(timeline_);
  auto delegate = interstitialDelegate(heard);
  auto ad = ZVInterstitialAd::create(request("video-nonlinear"));
  ad->setDelegate(delegate);
  ad->setSwitchToVideo(true);
  loop_.setObserver(stateWatcher(timeline_, ad, interstitialStateName));

  timeline_.emit("app", "setSwitchToVideo(true); loadAd()");
  ad->loadAd();
  runUntil([&] { return heard.total() > 0; });
  if (heard.count("interstitialDidReceiveAd") == 0) return finish(name, false, noAd(heard));
  timeline_.emit("app", "showFromViewController(root)");
  ad->showFromViewController(host_.rootViewController());
  runUntil([&] { return heard.count("interstitialWillPresentAd") > 0; }, 1);
  // A NonLinear page has no media clock: no progress events, it stays until closed.
  loop_.wait(platform::seconds(5));
  auto modal = ad->modalController();
  timeline_.emit("user", "presses the ad's X button after 5 s");
  if (modal) SimulatedUser::pressButton(modal->view(), "X", config_.pointer);
  runUntil([&] { return host_.rootViewController()->presentedViewController() == nullptr; }, 1);
  hold();

  const bool passed = heard.count("interstitialDidReceiveAd") == 1 &&
                      heard.count("interstitialWillPresentAd") == 1 && count("vast") == 0;
  return finish(name, passed,
                "loaded and shown; " + std::to_string(count("vast")) +
                    " progress events (a NonLinear creative reports none)");
}

ScenarioResult Tour::noFill() {
  const std::string name = "no-fill";
  begin(name, "the server has no ad and answers {} (ad unit \"nofill\")");
  Heard heard(timeline_);
  auto delegate = bannerDelegate(heard);
  auto banner = ZVBannerView::create(request("nofill"), kBannerSize);
  banner->setDelegate(delegate);
  loop_.setObserver(stateWatcher(timeline_, banner, bannerStateName));
  timeline_.emit("app", "loadAd()");
  banner->loadAd();
  runUntil([&] { return heard.total() > 0; }, 2);
  timeline_.emit("note",
                 "an answer without a bid is not an error to the SDK: it hands the player an ad "
                 "without creative, and the banner shows an empty page");
  const bool passed = heard.count("bannerViewDidReceiveAd") == 1 && heard.total() == 1;
  return finish(name, passed,
                passed ? "answered {}: bannerViewDidReceiveAd with an empty page, no error"
                       : "answered {}: " + std::to_string(heard.total()) + " callbacks");
}

ScenarioResult Tour::brokenResponse() {
  const std::string name = "broken-response";
  begin(name,
        "the server answers a body that is not JSON (ad unit \"broken\"), then JSON that "
        "is not a bid response (ad unit \"" +
            std::string(kUnreadableAdunit) + "\")");
  std::vector<std::optional<Error>> errors;
  std::vector<std::string> threads;
  for (const char* adunit : {"broken", kUnreadableAdunit}) {
    Heard heard(timeline_);
    auto delegate = bannerDelegate(heard);
    auto banner = ZVBannerView::create(request(adunit), kBannerSize);
    banner->setDelegate(delegate);
    loop_.setObserver(stateWatcher(timeline_, banner, bannerStateName));
    timeline_.emit("app", "loadAd()");
    banner->loadAd();
    runUntil([&] { return heard.total() > 0; }, 2);
    errors.push_back(heard.lastError());
    threads.push_back(heard.errorThread() + (banner->state() == 0 ? "" : " (not loadable)"));
  }
  auto describe = [](const std::optional<Error>& error) {
    return error ? error->domain + " " + std::to_string(error->code) : std::string("no failure");
  };
  // Not JSON: the JSON reader's own error. JSON without the expected shape: reading it raises,
  // which the loader reports as NoAdsError (0).
  const bool passed = errors[0] && errors[0]->domain == "nlohmann::json" && errors[1] &&
                      errors[1]->domain == "ZorvaSDK" && errors[1]->code == 0 &&
                      threads == std::vector<std::string>{"main", "main"};
  return finish(name, passed,
                "not JSON -> " + describe(errors[0]) + " on " + threads[0] +
                    "; not a bid response -> " + describe(errors[1]) + " on " + threads[1] +
                    "; banner loadable again");
}

ScenarioResult Tour::slowAnswer() {
  const std::string name = "network-timeout";
  begin(name,
        "the server takes longer than the request's netoworkTimeout of 1 s (ad unit "
        "\"slow\")");
  Heard heard(timeline_);
  auto delegate = bannerDelegate(heard);
  auto banner = ZVBannerView::create(request("slow", 1), kBannerSize);
  banner->setDelegate(delegate);
  loop_.setObserver(stateWatcher(timeline_, banner, bannerStateName));
  timeline_.emit("app", "loadAd() with netoworkTimeout 1");
  const auto start = std::chrono::steady_clock::now();
  banner->loadAd();
  runUntil([&] { return heard.total() > 0; }, 2);
  const double waited =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const auto error = heard.lastError();
  const bool passed =
      error && error->domain == "libcurl" && error->code == 28 && heard.errorThread() == "network";
  char summary[160];
  std::snprintf(
      summary, sizeof summary, "%s after %.1f s of real time, on the %s thread",
      error ? ("transport error " + error->domain + " " + std::to_string(error->code)).c_str()
            : "no failure",
      waited, heard.errorThread().c_str());
  return finish(name, passed, summary);
}

std::vector<ScenarioResult> Tour::probes(const std::string& adunit) {
  std::vector<ScenarioResult> results;
  auto outcome = [](const Heard& heard, const std::string& received) {
    if (auto error = heard.lastError()) {
      return "failed: " + error->domain + " " + std::to_string(error->code) + " " +
             error->localizedDescription();
    }
    // A video answer without any VAST Ad is never reported by the SDK: apps guard loads with a
    // time-out of their own, as the demo does here.
    return heard.count(received) > 0 ? std::string("ad received")
                                     : std::string("no callback at all (the app's own time-out)");
  };
  {
    begin("banner", "a 320x50 banner from ad unit \"" + adunit + "\"");
    Heard heard(timeline_);
    auto delegate = bannerDelegate(heard);
    auto banner = ZVBannerView::create(request(adunit), kBannerSize);
    host_.rootViewController()->view()->addSubview(banner);
    banner->setDelegate(delegate);
    loop_.setObserver(stateWatcher(timeline_, banner, bannerStateName));
    timeline_.emit("app", "loadAd()");
    banner->loadAd();
    runUntil([&] { return heard.total() > 0; });
    banner->removeFromSuperview();
    results.push_back(finish("banner",
                             heard.count("bannerViewDidReceiveAd") > 0 && !heard.lastError(),
                             outcome(heard, "bannerViewDidReceiveAd")));
  }
  for (const bool video : {false, true}) {
    const std::string name = video ? "interstitial-video" : "interstitial";
    begin(name, std::string("an interstitial") + (video ? " asking for video" : "") +
                    " from ad unit \"" + adunit + "\"");
    Heard heard(timeline_);
    auto delegate = interstitialDelegate(heard);
    auto ad = ZVInterstitialAd::create(request(adunit));
    ad->setDelegate(delegate);
    ad->setSwitchToVideo(video);
    loop_.setObserver(stateWatcher(timeline_, ad, interstitialStateName));
    timeline_.emit("app", video ? "setSwitchToVideo(true); loadAd()" : "loadAd()");
    ad->loadAd();
    runUntil([&] { return heard.total() > 0; });
    bool played = !video;
    if (heard.count("interstitialDidReceiveAd") > 0) {
      timeline_.emit("app", "showFromViewController(root)");
      ad->showFromViewController(host_.rootViewController());
      runUntil([&] { return heard.count("interstitialWillPresentAd") > 0; }, 1);
      auto modal = ad->modalController();
      if (video) {
        played = playUntil(
            [&] { return count("vast", "complete at") > 0; },
            [&] { return SimulatedUser::progressShown(modal ? modal->view() : nullptr); });
      }
      timeline_.emit("user", "presses the ad's X button");
      if (modal) SimulatedUser::pressButton(modal->view(), "X", config_.pointer);
      runUntil([&] { return host_.rootViewController()->presentedViewController() == nullptr; }, 1);
      hold();
    }
    results.push_back(
        finish(name, heard.count("interstitialDidReceiveAd") > 0 && played && !heard.lastError(),
               outcome(heard, "interstitialDidReceiveAd")));
  }
  {
    begin("in-banner-video", "a 320x250 in-banner video from ad unit \"" + adunit + "\"");
    Heard heard(timeline_);
    auto delegate = inBannerDelegate(heard);
    auto video = ZVInBannerVideo::create(request(adunit), kVideoSlotSize);
    host_.rootViewController()->view()->addSubview(video);
    video->setDelegate(delegate);
    loop_.setObserver(stateWatcher(timeline_, video, bannerStateName));
    timeline_.emit("app", "loadAd()");
    video->loadAd();
    runUntil([&] { return heard.total() > 0; });
    if (heard.count("bannerViewDidReceiveAd") > 0) {
      timeline_.emit("app", "playAd()");
      video->playAd();
      playUntil([&] { return heard.count("bannerViewDidFinishPlayingAd") > 0; },
                [&] { return SimulatedUser::progressShown(video); });
    }
    video->removeFromSuperview();
    results.push_back(finish("in-banner-video",
                             heard.count("bannerViewDidFinishPlayingAd") > 0 && !heard.lastError(),
                             outcome(heard, "bannerViewDidReceiveAd")));
  }
  return results;
}

}  // namespace zorva::demo
