#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <zorva/ZVTypes.h>

#include "Vast/XMLReader.h"
#include "Vast/ZVVast.h"

namespace zorva {

/// Turns one VAST answer into a document holding the one ad to play, following Wrapper ads
/// through their "VASTAdTagURI" (fetched with the shared network handler) down to
/// `kMaximumWrapperDepth` fetched documents; a Wrapper met deeper is kept as it is.
///
/// Outcome, reported once to the completion of `parse`:
/// - a document holding the first ad that finished, when some finished ad has a creative — on
///   the main queue. Ads of the first answer finish at once, so an InLine ad beside a Wrapper
///   always wins over what the Wrapper resolves to;
/// - error 100 (not well-formed XML) or 101 (version below "2.0"): synchronously, on the thread
///   that called `parse`;
/// - error 303 when no ad finished (Wrapper fetches failed or brought no ad), or 302 when none of
///   the ads that finished has a creative: on the thread that finished last — the network
///   handler's thread when a fetch was involved, else the caller's;
/// - nothing at all when the first answer holds no Ad: callers guard with a time-out of their own.
///
/// With a fetch budget (`ZorvaSDK::vastFetchBudget`), the fetch that would go past it ends the
/// parse at once with error 302, on the thread that met it; what is still in flight then finishes
/// unheard.
///
/// A fetch's error and HTTP status are not looked at: a failed fetch or a body that is not VAST
/// counts as a document without ads. While fetches are in flight the parser keeps itself alive;
/// one parser serves one `parse` call.
class ZVVastParser : public std::enable_shared_from_this<ZVVastParser> {
 public:
  using Completion = std::function<void(std::shared_ptr<ZVVast> vast, std::optional<Error> error)>;
  /// Receives the finished ads once every ad has finished.
  using Block =
      std::function<void(std::vector<std::shared_ptr<ZVVastAd>> ads, std::optional<Error> error)>;

  /// How many documents below the first one a chain may fetch.
  static constexpr int kMaximumWrapperDepth = 3;

  static std::shared_ptr<ZVVastParser> create();

  void parse(const std::string& text, Completion completion);

  /// True for versions at or above "2.0" in plain string order ("10.0" sorts below it) and for
  /// an absent version.
  static bool isVASTVersionSupported(const std::optional<std::string>& version);

  /// Stores `completion` as `block` and resolves `vast` from depth 0.
  void procesVast(std::shared_ptr<ZVVast> vast, Block completion);
  /// Counts every ad of `vast` as outstanding, then finishes its leaves (ads without
  /// "VASTAdTagURI", or any ad at `kMaximumWrapperDepth`) and fetches its Wrappers.
  void procesWrapperAd(const std::shared_ptr<ZVVast>& vast, int depth);
  /// One ad less outstanding; at none left, `block` gets the finished ads.
  void markRequestComplete();
  /// A new document holding only the first of `ads`, without version.
  static std::shared_ptr<ZVVast> vast(const std::vector<std::shared_ptr<ZVVastAd>>& ads);

  long outstandingRequests() const;
  /// The finished ads, in the order they finished.
  std::vector<std::shared_ptr<ZVVastAd>> ads() const;

 private:
  ZVVastParser() = default;
  void fetchWrapper(std::shared_ptr<ZVVastAd> wrapper, int depth);

  // The count and the list change on the caller's thread and on the network thread.
  mutable std::mutex mutex_;
  long outstandingRequests_ = 0;
  std::vector<std::shared_ptr<ZVVastAd>> ads_;
  Block block_;
  std::size_t fetches_ = 0;
  std::size_t fetchBudget_ = 0;
  unsigned long xmlOptions_ = XMLReader::kProcessNamespaces;
};

}  // namespace zorva
