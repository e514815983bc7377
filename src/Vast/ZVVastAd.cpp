#include "Vast/ZVVastAd.h"

#include <algorithm>
#include <iterator>

#include "Vast/XMLReader.h"
#include "Vast/ZVVastLinear.h"
#include "Vast/ZVVastNonLinear.h"

namespace zorva {

namespace {

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

std::string replacingAll(std::string text, std::string_view macro, const std::string& value) {
  for (auto at = text.find(macro); at != std::string::npos;
       at = text.find(macro, at + value.size())) {
    text.replace(at, macro.size(), value);
  }
  return text;
}

}  // namespace

template <class Visit>
void ZVVastAd::forEachInChain(Visit visit) const {
  // Each step holds the next ad, so the walk is safe even while a parent is being replaced.
  std::shared_ptr<const ZVVastAd> held;
  for (const ZVVastAd* ad = this; ad != nullptr; ad = held.get()) {
    visit(*ad);
    held = ad->parent();
  }
}

std::shared_ptr<ZVVastAd> ZVVastAd::create(const XMLNode& dictionary, ZVXMLStrings& strings) {
  if (!dictionary.isDictionary()) return nullptr;
  auto ad = std::make_shared<ZVVastAd>();
  ad->strings_ = strings.owner();
  // One pass over the ad's entries (a dictionary's keys are unique) instead of a path query per
  // field. As `XMLReader::valueForPath` reads it, a field is the text of its element, of the first
  // one when the element is repeated; as `forEachNodeAtPath` visits them, every Impression
  // element counts whatever it is, but a lone string (an attribute) is no element.
  for (const XMLNode::Entry& entry : dictionary.entries()) {
    const XMLNode& value = entry.value;
    const XMLNode& first = value.isArray() ? value.elements().front() : value;
    const auto text = [&] { return strings.copy(first.find(kXMLReaderTextNodeKey)); };
    if (entry.key == "Impression") {
      if (value.isArray()) {
        ad->impressions_.reserve(value.size());
        for (const XMLNode& impression : value.elements()) {
          ad->impressions_.push_back(strings.copy(impression.find(kXMLReaderTextNodeKey)));
        }
      } else if (value.isDictionary()) {
        ad->impressions_.push_back(text());
      }
    } else if (entry.key == "VASTAdTagURI") {
      ad->adTagURL_ = text();
    } else if (entry.key == "AdSystem") {
      ad->system_ = text();
    } else if (entry.key == "AdTitle") {
      ad->title_ = text();
    } else if (entry.key == "Description") {
      ad->desc_ = text();
    } else if (entry.key == "Error") {
      ad->errUrl_ = text();
    }
  }
  ad->adCreative_ =
      XMLReader::firstObject<ZVVastLinear>("Creatives/Creative/Linear", dictionary, strings);
  if (!ad->adCreative_) {
    ad->adCreative_ = XMLReader::firstObject<ZVVastNonLinear>(
        "Creatives/Creative/NonLinearAds/NonLinear", dictionary, strings);
  }
  return ad;
}

std::shared_ptr<ZVVastAd> ZVVastAd::parent() const {
  std::lock_guard lock(mutex_);
  return parent_;
}

void ZVVastAd::setParent(std::shared_ptr<ZVVastAd> parent) {
  std::lock_guard lock(mutex_);
  parent_ = std::move(parent);
}

std::shared_ptr<ZVVastCreative> ZVVastAd::adCreative() const {
  std::lock_guard lock(mutex_);
  return adCreative_;
}

void ZVVastAd::setAdCreative(std::shared_ptr<ZVVastCreative> creative) {
  std::lock_guard lock(mutex_);
  adCreative_ = std::move(creative);
}

std::vector<std::string> ZVVastAd::aggregatedErrorUrlsbyReplacingErrorWithValue(
    const std::string& value) const {
  std::vector<std::string> urls;
  forEachInChain([&](const ZVVastAd& ad) {
    if (ad.errUrl_) urls.push_back(replacingAll(std::string(*ad.errUrl_), "[ERRORCODE]", value));
  });
  return urls;
}

Value ZVVastAd::aggregatedImpressionUrl() const {
  Value urls = Value::array();
  forEachInChain([&](const ZVVastAd& ad) {
    for (const auto& impression : ad.impressions_) {
      urls.push_back(impression ? Value(std::string(*impression)) : Value());
    }
  });
  return urls;
}

std::vector<std::string> ZVVastAd::aggregatedTrackersForEvent(std::string_view event) const {
  std::vector<std::string> urls;
  forEachInChain([&](const ZVVastAd& ad) {
    const auto creative = ad.adCreative();
    if (!creative) return;
    for (const auto& tracker : trackerForEvent(event, creative->trackers())) {
      if (tracker->url) urls.emplace_back(*tracker->url);
    }
  });
  return urls;
}

std::vector<std::string> ZVVastAd::aggregatedClickTrackers() const {
  std::vector<std::string> urls;
  forEachInChain([&](const ZVVastAd& ad) {
    if (const auto creative = ad.adCreative()) {
      urls.insert(urls.end(), creative->clickTrackers().begin(), creative->clickTrackers().end());
    }
  });
  return urls;
}

std::vector<std::shared_ptr<ZVTracker>> ZVVastAd::trackerForEvent(
    std::string_view event, const std::vector<std::shared_ptr<ZVTracker>>& trackers) {
  std::vector<std::shared_ptr<ZVTracker>> matching;
  std::copy_if(trackers.begin(), trackers.end(), std::back_inserter(matching),
               [&](const auto& tracker) {
                 return tracker->event && equalIgnoringCase(*tracker->event, event);
               });
  return matching;
}

}  // namespace zorva
