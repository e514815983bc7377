#include "Vast/ZVVastNonLinearAdPlayer.h"

#include <cctype>
#include <string>

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Text.h>

#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"
#include "Vast/ZVVastNonLinear.h"

namespace zorva {

using platform::NavigationType;

std::shared_ptr<ZVVastNonLinearAdPlayer> ZVVastNonLinearAdPlayer::create() {
  return std::shared_ptr<ZVVastNonLinearAdPlayer>(new ZVVastNonLinearAdPlayer());
}

void ZVVastNonLinearAdPlayer::load(std::shared_ptr<ZVVastAd> ad) {
  ad_ = std::move(ad);
  const auto creative = ad_ ? ad_->adCreative() : nullptr;
  auto content = creative ? creative->creativeContent() : std::nullopt;
  // The VAST player pins the view to its own edges, so the frame starts empty.
  player_ = ZVHTMLPlayer::create(platform::Rect(), content.value_or(""));
  player_->setDelegate(std::weak_ptr<ZVHTMLPlayerDelegate>(shared_from_this()));
  player_->play();
}

std::shared_ptr<platform::View> ZVVastNonLinearAdPlayer::plaerView() {
  return player_ ? player_->contenView() : nullptr;
}

double ZVVastNonLinearAdPlayer::mediaDuration() {
  const auto nonLinear =
      std::dynamic_pointer_cast<ZVVastNonLinear>(ad_ ? ad_->adCreative() : nullptr);
  if (!nonLinear || !nonLinear->minSuggestedDuration()) return 0;
  return leadingDouble(*nonLinear->minSuggestedDuration());
}

double ZVVastNonLinearAdPlayer::leadingDouble(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  const std::size_t start = i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  const auto digits = [&] {
    const std::size_t from = i;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
    return i - from;
  };
  std::size_t mantissa = digits();
  if (i < text.size() && text[i] == '.') {
    ++i;
    mantissa += digits();
  }
  if (mantissa == 0) return 0;
  std::size_t end = i;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    if (digits() > 0) end = i;
  }
  // Only digits, a point, an exponent and signs are handed on: no hexadecimal, no "inf".
  const std::string number(text.substr(start, end - start));
  return platform::doubleFromText(number);
}

void ZVVastNonLinearAdPlayer::htmlPlayerDidPlayAd() {
  if (auto d = delegate()) d->playerDidLoad();
}

void ZVVastNonLinearAdPlayer::htmlPlayerDidFailToPlayWithError(const Error&) {}

bool ZVVastNonLinearAdPlayer::htmlPlayerShouldLoadRequest(const platform::URLRequest& request,
                                                          NavigationType navigationType) {
  const bool click = navigationType == NavigationType::LinkActivated ||
                     (navigationType == NavigationType::Other && player_->loadingFinished());
  if (!click) return true;
  // Click trackers go only to the tracking transport: without it a click hands nothing over.
  if (ad_ && ZorvaSDK::shared()->trackingTransport()) {
    ZVInstanceFactory::sharedNetworkhandler()->fetchUrls(ad_->aggregatedClickTrackers(), nullptr);
  }
  if (linkResolver_ && request.url) linkResolver_->resolve(*request.url, skadn_);
  return false;
}

}  // namespace zorva
