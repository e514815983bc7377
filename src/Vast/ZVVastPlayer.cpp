#include "Vast/ZVVastPlayer.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/MainQueue.h>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"
#include "Common/ZVReleaseOnMainQueue.h"
#include "Common/ZVViewUtils.h"
#include "Network/ZVNetworkHandler.h"
#include "Vast/ZVVastLinear.h"
#include "Vast/ZVVastLinearAdPlayer.h"
#include "Vast/ZVVastNonLinearAdPlayer.h"
#include "Vast/ZVVastParser.h"

namespace zorva {

namespace {

constexpr const char* kProgressEvents[] = {"start", "firstQuartile", "midpoint", "thirdQuartile",
                                           "complete"};

// How the platform prints a list of strings in a formatted message.
std::string describe(const std::vector<std::string>& list) {
  if (list.empty()) return "(\n)";
  std::string text = "(";
  for (std::size_t i = 0; i < list.size(); ++i) {
    text += (i == 0 ? "\n    \"" : ",\n    \"") + list[i] + "\"";
  }
  return text + "\n)";
}

}  // namespace

std::shared_ptr<ZVVastPlayer> ZVVastPlayer::create(const ZVPlayerConfig& config) {
  std::shared_ptr<ZVVastPlayer> player(new ZVVastPlayer(config.ad));
  player->networkHandler_ = ZVInstanceFactory::sharedNetworkhandler();
  player->linkResolver_ = ZVLinkResolver::create();
  player->linkResolver_->setDelegate(std::weak_ptr<ZVLinkResolverDelegate>(player->self()));
  player->setBackgroundColor(platform::Color::blackColor());
  return player;
}

void ZVVastPlayer::play() {
  // Markup that is not a string parses as an empty document: malformed, code 100.
  const std::string creative =
      ad_ && ad_->creative.is_string() ? ad_->creative.get<std::string>() : std::string();
  std::weak_ptr<ZVVastPlayer> weakSelf = self();
  ZVVastParser::create()->parse(
      creative, [weakSelf](std::shared_ptr<ZVVast> vast, std::optional<Error> error) {
        auto player = weakSelf.lock();
        if (!player) return;
        // A failure of the wrapper chain is made on the network thread; the app asked to hear
        // everything on the main queue.
        auto& queue = platform::MainQueue::shared();
        if (!queue.isCurrent() && ZorvaSDK::shared()->callbacksOnMainQueue()) {
          queue.post([player, vast, error] { player->parsed(vast, error); });
          return;
        }
        player->parsed(vast, error);
        // A failure of the wrapper chain arrives on the network thread: if the app let go of
        // the ad meanwhile, this player, a view, must still die on the main thread.
        releaseOnMainQueue(std::move(player));
      });
}

void ZVVastPlayer::parsed(const std::shared_ptr<ZVVast>& vast, const std::optional<Error>& error) {
  if (error) {
    if (vast && !vast->ads.empty()) trackErrors(*error, vast->ads.front());
    auto d = delegate();
    if (d) d->playerDidFailWithError(*error);
    releaseOnMainQueue(std::move(d));
    return;
  }
  const auto ad = vast ? firstInlineAd(*vast) : nullptr;
  vastAdPlayer_ = vastAdPlayer(ad);
  vastAdPlayer_->setDelegate(std::weak_ptr<ZVVastAdplayerDelegate>(self()));
  vastAdPlayer_->load(ad);
}

std::shared_ptr<ZVVastAd> ZVVastPlayer::firstInlineAd(const ZVVast& vast) {
  for (const auto& ad : vast.ads) {
    if (ad && ad->adCreative()) return ad;
  }
  return nullptr;
}

std::shared_ptr<ZVVastAdplaying> ZVVastPlayer::vastAdPlayer(const std::shared_ptr<ZVVastAd>& ad) {
  std::shared_ptr<ZVVastAdplaying> player;
  if (ad && std::dynamic_pointer_cast<ZVVastLinear>(ad->adCreative())) {
    player = ZVVastLinearAdPlayer::create();
  } else {
    player = ZVVastNonLinearAdPlayer::create();
  }
  player->setSkadn(ad_ ? ad_->skadn : Value());
  return player;
}

void ZVVastPlayer::trackErrors(const Error& error, const std::shared_ptr<ZVVastAd>& ad) {
  handOver(ad ? ad->aggregatedErrorUrlsbyReplacingErrorWithValue(std::to_string(error.code))
              : std::vector<std::string>());
}

void ZVVastPlayer::playerDidLoad() {
  if (auto d = delegate()) d->playerDidLoad();
  if (!vastAdPlayer_) return;
  if (auto view = vastAdPlayer_->plaerView()) {
    addSubview(view);
    ZVViewUtils::alignToParent(view);
  }
  addEventPointsForAd(vastAdPlayer_->ad());
}

void ZVVastPlayer::handOver(const std::vector<std::string>& urls) {
  networkHandler_->fetchUrls(urls, nullptr);
}

void ZVVastPlayer::addEventPointsForAd(const std::shared_ptr<ZVVastAd>& ad) {
  trackingPoints_.clear();
  // Single-precision quarters, as the points were always computed; they are exact.
  float fraction = 0.0f;
  for (const char* event : kProgressEvents) {
    trackingPoints_.push_back(
        ZVTrackingPoint{vastAdPlayer_->mediaDuration() * static_cast<double>(fraction), event,
                        ad ? ad->aggregatedTrackersForEvent(event) : std::vector<std::string>()});
    fraction += 0.25f;
  }
}

// Called every 2.5 ms of play: between the five points it compares one number, and once they
// are spent it hands over an empty list; it allocates only when a point fires (or the info
// level is on).
void ZVVastPlayer::playerDidProgress(double seconds) {
  // An empty list reads as a point due at 0: each report then logs no event and hands over
  // no URL.
  const double due = trackingPoints_.empty() ? 0.0 : trackingPoints_.front().time;
  if (due > seconds) return;
  ZVTrackingPoint point;
  const bool fired = !trackingPoints_.empty();
  if (fired) {
    point = std::move(trackingPoints_.front());
    trackingPoints_.erase(trackingPoints_.begin());
  }
  if (ZVLog::level() >= 3) {
    ZV_LOG(3, "-[ZVVastPlayer playerDidProgress:]", "\nTime - %f Event - %s, Tracks - %s\n",
           seconds, fired ? point.event.c_str() : "(null)",
           fired ? describe(point.trackers).c_str() : "(null)");
  }
  handOver(point.trackers);
}

void ZVVastPlayer::playerDidStartPlaying() {
  std::vector<std::string> impressions;
  const auto ad = vastAdPlayer_ ? vastAdPlayer_->ad() : nullptr;
  if (ad) {
    for (const auto& url : ad->aggregatedImpressionUrl()) {
      if (url.is_string()) impressions.push_back(url.get<std::string>());
    }
  }
  handOver(impressions);
  if (auto d = delegate()) d->playerDidStartPlaying();
}

void ZVVastPlayer::playerDidEndPlaying() {
  const auto ad = vastAdPlayer_ ? vastAdPlayer_->ad() : nullptr;
  // Handed over whether or not the last progress point already did.
  handOver(ad ? ad->aggregatedTrackersForEvent("complete") : std::vector<std::string>());
  if (auto d = delegate()) d->playerDidEndPlaying();
}

void ZVVastPlayer::playerDidFailedWithError(const Error& error) {
  trackErrors(error, vastAdPlayer_ ? vastAdPlayer_->ad() : nullptr);
  if (auto d = delegate()) d->playerDidFailWithError(error);
}

void ZVVastPlayer::playerDidIteractedWithTargetUrl(const std::optional<std::string>& url) {
  const auto ad = vastAdPlayer_ ? vastAdPlayer_->ad() : nullptr;
  // Click trackers go only to the tracking transport: without it a click hands nothing over.
  if (ad && ZorvaSDK::shared()->trackingTransport()) handOver(ad->aggregatedClickTrackers());
  // Asked even without a (valid) click-through, which often sits in CDATA the reader leaves out:
  // the store sheet needs none, and the browser logs that it has nowhere to go.
  linkResolver_->resolve(url ? platform::URL::URLWithString(*url) : std::nullopt,
                         ad_ ? ad_->skadn : Value());
}

void ZVVastPlayer::resolverWillPresentModal(ZVLinkResolver&) {
  auto d = delegate();
  if (d && d->respondsToPlayerWillPresentModal()) d->playerWillPresentModal();
}

void ZVVastPlayer::resolverDidDismissModal(ZVLinkResolver&) {
  auto d = delegate();
  if (d && d->respondsToPlayerDidDismissModal()) d->playerDidDismissModal();
}

}  // namespace zorva
