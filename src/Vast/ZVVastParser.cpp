#include "Vast/ZVVastParser.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/MainQueue.h>

#include <algorithm>

#include "Common/ZVInstanceFactory.h"
#include "Common/ZVUtility.h"
#include "Network/ZVNetworkHandler.h"
#include "Vast/XMLReader.h"
#include "Vast/ZVVastError.h"

namespace zorva {

namespace {

constexpr const char* kMinimumVersion = "2.0";

// The document of a VAST answer: its "VAST" element, or an empty document when the text is not
// well-formed or its document element is something else.
std::shared_ptr<ZVVast> documentFromData(const Data& data, unsigned long options,
                                         std::optional<Error>* error) {
  const auto root = XMLReader::dictionaryForXMLData(data, options, error);
  return ZVVast::create(root ? (*root)["VAST"] : XMLNode());
}

}  // namespace

std::shared_ptr<ZVVastParser> ZVVastParser::create() {
  auto parser = std::shared_ptr<ZVVastParser>(new ZVVastParser());
  // Read once, so that every document of a wrapper chain is read the same way.
  if (ZorvaSDK::shared()->vastCdataText()) parser->xmlOptions_ |= XMLReader::kGatherCdata;
  parser->fetchBudget_ = ZorvaSDK::shared()->vastFetchBudget();
  return parser;
}

void ZVVastParser::parse(const std::string& text, Completion completion) {
  std::optional<Error> error;
  auto document = documentFromData(text, xmlOptions_, &error);
  if (error) {
    completion(nullptr, ZVVastError::vastErrorForErrorCode(100));
    return;
  }
  if (!isVASTVersionSupported(document->version)) {
    completion(nullptr, ZVVastError::vastErrorForErrorCode(101));
    return;
  }
  // A document without any ad (or not VAST at all) would finish no walk: no fill, when asked.
  if (document->ads.empty() && ZorvaSDK::shared()->videoLoadBounded()) {
    completion(nullptr, ZVUtility::noFillError());
    return;
  }
  procesVast(std::move(document),
             [completion = std::move(completion)](std::vector<std::shared_ptr<ZVVastAd>> ads,
                                                  std::optional<Error> error) {
               if (error) {
                 completion(nullptr, std::move(error));
                 return;
               }
               if (ads.empty()) {
                 completion(nullptr, ZVVastError::vastErrorForErrorCode(303));
                 return;
               }
               const bool playable = std::any_of(ads.begin(), ads.end(),
                                                 [](const auto& ad) { return ad->adCreative(); });
               if (!playable) {
                 completion(nullptr, ZVVastError::vastErrorForErrorCode(302));
                 return;
               }
               platform::MainQueue::shared().post(
                   [completion, result = vast(ads)] { completion(result, std::nullopt); });
             });
}

bool ZVVastParser::isVASTVersionSupported(const std::optional<std::string>& version) {
  return !version || *version >= kMinimumVersion;
}

void ZVVastParser::procesVast(std::shared_ptr<ZVVast> vast, Block completion) {
  {
    std::lock_guard lock(mutex_);
    block_ = std::move(completion);
  }
  procesWrapperAd(vast, 0);
}

void ZVVastParser::procesWrapperAd(const std::shared_ptr<ZVVast>& vast, int depth) {
  {
    std::lock_guard lock(mutex_);
    outstandingRequests_ += static_cast<long>(vast->ads.size());
  }
  // Leaves finish before any fetch starts, so they are ahead of everything a fetch brings even
  // when an answer comes back at once.
  std::vector<std::shared_ptr<ZVVastAd>> wrappers;
  for (const auto& ad : vast->ads) {
    if (!ad->adTagURL() || depth >= kMaximumWrapperDepth) {
      {
        std::lock_guard lock(mutex_);
        ads_.push_back(ad);
      }
      markRequestComplete();
    } else {
      wrappers.push_back(ad);
    }
  }
  for (auto& wrapper : wrappers) fetchWrapper(std::move(wrapper), depth);
}

void ZVVastParser::fetchWrapper(std::shared_ptr<ZVVastAd> wrapper, int depth) {
  bool withinBudget = true;
  Block exhausted;
  {
    std::lock_guard lock(mutex_);
    withinBudget = fetchBudget_ == 0 || fetches_ < fetchBudget_;
    if (withinBudget) {
      ++fetches_;
    } else {
      exhausted = std::move(block_);
      block_ = nullptr;
    }
  }
  if (!withinBudget) {
    if (exhausted) exhausted({}, ZVVastError::vastErrorForErrorCode(302));
    markRequestComplete();
    return;
  }
  const std::string url(*wrapper->adTagURL());
  ZVInstanceFactory::sharedNetworkhandler()->fetchUrlString(
      url, [self = shared_from_this(), wrapper = std::move(wrapper), depth](
               std::optional<Data> data, std::optional<Error>) {
        // Only the body counts: no body, or one that is not VAST, is a document without ads.
        std::optional<Error> ignored;
        auto document = documentFromData(data.value_or(Data()), self->xmlOptions_, &ignored);
        for (const auto& ad : document->ads) ad->setParent(wrapper);
        self->procesWrapperAd(document, depth + 1);
        self->markRequestComplete();
      });
}

void ZVVastParser::markRequestComplete() {
  Block block;
  std::vector<std::shared_ptr<ZVVastAd>> finished;
  {
    std::lock_guard lock(mutex_);
    if (--outstandingRequests_ != 0) return;
    // Called once; letting go of it frees whatever the caller's completion holds.
    block = std::move(block_);
    block_ = nullptr;
    finished = ads_;
  }
  if (block) block(std::move(finished), std::nullopt);
}

std::shared_ptr<ZVVast> ZVVastParser::vast(const std::vector<std::shared_ptr<ZVVastAd>>& ads) {
  auto document = std::make_shared<ZVVast>();
  if (!ads.empty()) document->ads.push_back(ads.front());
  return document;
}

long ZVVastParser::outstandingRequests() const {
  std::lock_guard lock(mutex_);
  return outstandingRequests_;
}

std::vector<std::shared_ptr<ZVVastAd>> ZVVastParser::ads() const {
  std::lock_guard lock(mutex_);
  return ads_;
}

}  // namespace zorva
