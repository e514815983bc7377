#include "zorva-adserver/Campaign.h"

#include <fstream>
#include <set>
#include <sstream>

namespace zorva::tools {

using platform::Error;
using platform::Value;

namespace {

std::optional<Campaign> fail(std::optional<Error>* error, const std::string& text) {
  if (error)
    *error = Error::withDescription(Campaign::kErrorDomain, Campaign::kMalformedFile, text);
  return std::nullopt;
}

const std::set<std::string>& knownKeys() {
  static const std::set<std::string> keys = {"aid",   "adm",   "vast",     "w",      "h",
                                             "price", "skadn", "delay_ms", "status", "raw_body"};
  return keys;
}

}  // namespace

std::optional<Campaign> Campaign::fromJson(const Value& entry, const std::string& where,
                                           std::optional<Error>* error) {
  if (!entry.is_object()) return fail(error, where + ": a campaign must be a JSON object");
  for (const auto& [key, value] : entry.items()) {
    if (!knownKeys().contains(key)) return fail(error, where + ": unknown key \"" + key + "\"");
  }
  auto bad = [&](const char* key, const char* what) {
    return fail(error, where + ": \"" + key + "\" must be " + what);
  };

  Campaign campaign;
  auto aid = entry.find("aid");
  if (aid == entry.end() || !aid->is_string() || aid->get<std::string>().empty()) {
    return bad("aid", "a non-empty string");
  }
  campaign.aid = aid->get<std::string>();
  const std::string named = where + " (aid \"" + campaign.aid + "\")";
  auto badNamed = [&](const char* key, const char* what) {
    return fail(error, named + ": \"" + key + "\" must be " + what);
  };

  if (entry.contains("adm") && entry.contains("vast")) {
    return fail(error, named + ": \"adm\" and \"vast\" exclude each other");
  }
  for (const char* key : {"adm", "vast"}) {
    if (auto it = entry.find(key); it != entry.end()) {
      if (!it->is_string()) return badNamed(key, "a string");
      campaign.adm = it->get<std::string>();
      campaign.vast = std::string(key) == "vast";
    }
  }
  for (auto [key, slot] : {std::pair{"w", &campaign.w}, std::pair{"h", &campaign.h}}) {
    if (auto it = entry.find(key); it != entry.end()) {
      if (!it->is_number() || it->get<double>() < 0) return badNamed(key, "a number of 0 or more");
      *slot = it->get<double>();
    }
  }
  if (auto it = entry.find("price"); it != entry.end()) {
    if (!it->is_number()) return badNamed("price", "a number");
    campaign.price = *it;
  }
  if (auto it = entry.find("skadn"); it != entry.end()) {
    if (!it->is_object()) return badNamed("skadn", "an object");
    campaign.skadn = *it;
  }
  if (auto it = entry.find("delay_ms"); it != entry.end()) {
    if (!it->is_number_integer() || it->get<std::int64_t>() < 0) {
      return badNamed("delay_ms", "an integer of 0 or more");
    }
    campaign.delay = std::chrono::milliseconds(it->get<std::int64_t>());
  }
  if (auto it = entry.find("status"); it != entry.end()) {
    if (!it->is_number_integer() || it->get<std::int64_t>() < 100 ||
        it->get<std::int64_t>() > 599) {
      return badNamed("status", "an integer from 100 to 599");
    }
    campaign.status = it->get<int>();
  }
  if (auto it = entry.find("raw_body"); it != entry.end()) {
    if (!it->is_string()) return badNamed("raw_body", "a string");
    campaign.rawBody = it->get<std::string>();
  }
  return campaign;
}

std::optional<std::vector<Campaign>> Campaign::loadFile(const std::string& path,
                                                        std::optional<Error>* error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    if (error) {
      *error = Error::withDescription(kErrorDomain, kUnreadableFile,
                                      path + ": cannot read the campaigns file");
    }
    return std::nullopt;
  }
  std::ostringstream text;
  text << file.rdbuf();
  auto malformed = [&](const std::string& text) -> std::optional<std::vector<Campaign>> {
    if (error) *error = Error::withDescription(kErrorDomain, kMalformedFile, text);
    return std::nullopt;
  };

  Value document;
  try {
    document = Value::parse(text.str());
  } catch (const Value::parse_error& e) {
    return malformed(path + ": not valid JSON (" + e.what() + ")");
  }
  if (!document.is_array()) return malformed(path + ": expected a JSON array of campaigns");

  std::vector<Campaign> campaigns;
  std::set<std::string> seen;
  for (std::size_t i = 0; i < document.size(); ++i) {
    auto campaign = fromJson(document[i], path + ": campaign " + std::to_string(i + 1), error);
    if (!campaign) return std::nullopt;
    if (!seen.insert(campaign->aid).second) {
      return malformed(path + ": campaign " + std::to_string(i + 1) + ": aid \"" + campaign->aid +
                       "\" appears twice");
    }
    campaigns.push_back(std::move(*campaign));
  }
  return campaigns;
}

}  // namespace zorva::tools
