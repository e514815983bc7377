#pragma once

#include <memory>

#include "Common/ZVLinkResolver.h"
#include "Players/ZVHTMLPlayer.h"
#include "Players/ZVHTMLPlayerDelegate.h"
#include "Players/ZVVastAdplaying.h"

namespace zorva {

/// Shows the content of a VAST NonLinear creative in an HTML player; its view is the HTML
/// player's web view. The content starts loading in `load`; `play` does nothing.
///
/// Reports `playerDidLoad` after every finished page load and nothing else: a page that fails
/// is swallowed (no error, no error URL), and the ad has no end of its own. Clicks are cancelled
/// and handed to `linkResolver`, which nothing sets, so a click opens nothing and the VAST player
/// hears nothing of it. Main thread only.
class ZVVastNonLinearAdPlayer : public std::enable_shared_from_this<ZVVastNonLinearAdPlayer>,
                                public ZVVastAdplaying,
                                public ZVHTMLPlayerDelegate {
 public:
  static std::shared_ptr<ZVVastNonLinearAdPlayer> create();

  // ZVVastAdplaying
  /// Keeps `ad` and starts an HTML player on its creative's content (an empty page when the ad,
  /// its creative or the content is absent).
  void load(std::shared_ptr<ZVVastAd> ad) override;
  void play() override {}
  /// The HTML player's web view; null before `load`.
  std::shared_ptr<platform::View> plaerView() override;
  /// The creative's minSuggestedDuration read as a leading decimal number ("15" → 15, "00:00:15"
  /// → 0); 0 when absent or not numeric.
  double mediaDuration() override;
  const Value& skadn() const override { return skadn_; }
  void setSkadn(Value skadn) override { skadn_ = std::move(skadn); }
  std::shared_ptr<ZVVastAdplayerDelegate> delegate() const override { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<ZVVastAdplayerDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  std::shared_ptr<ZVVastAd> ad() const override { return ad_; }

  // ZVHTMLPlayerDelegate
  void htmlPlayerDidPlayAd() override;
  /// Swallowed.
  void htmlPlayerDidFailToPlayWithError(const Error& error) override;
  /// The display player's rule: the initial load and everything but a click is allowed; a
  /// click is cancelled and resolved through `linkResolver`, if anyone set one.
  bool htmlPlayerShouldLoadRequest(const platform::URLRequest& request,
                                   platform::NavigationType navigationType) override;

  const std::shared_ptr<ZVHTMLPlayer>& player() const { return player_; }
  const std::shared_ptr<ZVLinkResolver>& linkResolver() const { return linkResolver_; }
  void setLinkResolver(std::shared_ptr<ZVLinkResolver> resolver) {
    linkResolver_ = std::move(resolver);
  }

  /// The decimal number at the start of `text` (after white space), as the platform's
  /// string-to-double conversion reads it; 0 when there is none.
  static double leadingDouble(std::string_view text);

 private:
  ZVVastNonLinearAdPlayer() = default;

  std::weak_ptr<ZVVastAdplayerDelegate> delegate_;
  Value skadn_;
  std::shared_ptr<ZVVastAd> ad_;
  std::shared_ptr<ZVHTMLPlayer> player_;
  std::shared_ptr<ZVLinkResolver> linkResolver_;
};

}  // namespace zorva
