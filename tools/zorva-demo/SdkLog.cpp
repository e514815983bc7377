#include "zorva-demo/SdkLog.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/LogSink.h>

#include <cstdlib>
#include <sstream>

#include "zorva-demo/Timeline.h"

namespace zorva::demo {

namespace {

using platform::Value;

constexpr std::string_view kPrefix = "Zorva SDK: ";

std::string_view trimNewlines(std::string_view text) {
  while (!text.empty() && (text.front() == '\n' || text.front() == ' ')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.remove_suffix(1);
  return text;
}

std::string sizeText(const Value& object) {
  if (!object.is_object() || !object.contains("w") || !object.contains("h")) return "";
  return object["w"].dump() + "x" + object["h"].dump();
}

std::string stringAt(const Value& object, const char* key) {
  if (!object.is_object() || !object.contains(key) || !object[key].is_string()) return "";
  return object[key].get<std::string>();
}

}  // namespace

SdkLog::SdkLog(Timeline& timeline, bool verbose) : timeline_(timeline), verbose_(verbose) {
  // Information level carries the bid requests, the VAST events and the store parameters.
  ZorvaSDK::setLevel(3);
  platform::LogSink::shared().setHandler([this](std::string_view entry) { handle(entry); });
}

SdkLog::~SdkLog() { platform::LogSink::shared().setHandler(nullptr); }

std::optional<SdkLogEntry> SdkLog::parseEntry(std::string_view entry) {
  if (!entry.starts_with(kPrefix)) return std::nullopt;
  entry.remove_prefix(kPrefix.size());
  SdkLogEntry parsed;
  static constexpr std::pair<std::string_view, unsigned long> kTags[] = {
      {"- E - ", 1}, {"- W - ", 2}, {"- I - ", 3}, {"- D - ", 4}, {"- V - ", 5}, {"|W| ", 0}};
  bool tagged = false;
  for (const auto& [tag, level] : kTags) {
    if (entry.starts_with(tag)) {
      parsed.level = level;
      entry.remove_prefix(tag.size());
      tagged = true;
      break;
    }
  }
  const auto hash = entry.find(" #");
  const auto arrow = entry.find(" => \n");
  if (!tagged || hash == std::string_view::npos || arrow == std::string_view::npos ||
      hash > arrow) {
    return std::nullopt;
  }
  parsed.file = std::string(entry.substr(0, hash));
  const auto functionStart = entry.find(' ', hash + 2);
  if (functionStart == std::string_view::npos || functionStart > arrow) return std::nullopt;
  parsed.function = std::string(entry.substr(functionStart + 1, arrow - functionStart - 1));
  std::string_view message = entry.substr(arrow + 5);
  // The entry ends with the newline the format adds after the message.
  if (message.ends_with('\n')) message.remove_suffix(1);
  parsed.message = std::string(message);
  return parsed;
}

std::optional<LoggedBidRequest> SdkLog::parseBidRequest(const SdkLogEntry& entry) {
  // "\nURL - <url>\n Data - <body>\n"
  const std::string_view message = entry.message;
  const auto url = message.find("URL - ");
  const auto data = message.find("\n Data - ");
  if (url == std::string_view::npos || data == std::string_view::npos || data < url) {
    return std::nullopt;
  }
  LoggedBidRequest request;
  request.url = std::string(message.substr(url + 6, data - url - 6));
  request.body = std::string(trimNewlines(message.substr(data + 9)));
  Value json = Value::parse(request.body, nullptr, false);
  if (!json.is_discarded()) request.json = std::move(json);
  return request;
}

std::optional<LoggedVastEvent> SdkLog::parseVastEvent(const SdkLogEntry& entry) {
  // "\nTime - <seconds> Event - <name>, Tracks - <list>\n"
  const std::string_view message = trimNewlines(entry.message);
  if (!message.starts_with("Time - ")) return std::nullopt;
  const auto event = message.find(" Event - ");
  const auto tracks = message.find(", Tracks - ");
  if (event == std::string_view::npos || tracks == std::string_view::npos || tracks < event) {
    return std::nullopt;
  }
  LoggedVastEvent parsed;
  parsed.time = std::strtod(std::string(message.substr(7, event - 7)).c_str(), nullptr);
  parsed.event = std::string(message.substr(event + 9, tracks - event - 9));
  parsed.trackers = urlsIn(message.substr(tracks + 11));
  return parsed;
}

std::optional<std::string> SdkLog::parseStoreParameters(const SdkLogEntry& entry) {
  constexpr std::string_view kLead = "Showing SKProductController, Params - ";
  const std::string_view message = trimNewlines(entry.message);
  if (!message.starts_with(kLead)) return std::nullopt;
  return std::string(message.substr(kLead.size()));
}

std::vector<std::string> SdkLog::urlsIn(std::string_view text) {
  std::vector<std::string> urls;
  for (std::size_t at = 0; (at = text.find("http", at)) != std::string_view::npos;) {
    std::size_t end = at;
    while (end < text.size() && text[end] != '"' && text[end] != '\'' && text[end] != ',' &&
           text[end] != ')' && text[end] != ']' && text[end] != ' ' && text[end] != '\n') {
      ++end;
    }
    const std::string_view candidate = text.substr(at, end - at);
    if (candidate.starts_with("http://") || candidate.starts_with("https://")) {
      urls.emplace_back(candidate);
    }
    at = end;
  }
  return urls;
}

std::string SdkLog::summarizeBidRequest(const Value& body) {
  if (!body.is_object()) return "a body that is not a JSON object";
  std::vector<std::string> parts;
  const Value& imp = body.contains("imp") && body["imp"].is_array() && !body["imp"].empty()
                         ? body["imp"][0]
                         : Value();
  if (imp.is_object()) {
    std::string what;
    if (imp.contains("video")) {
      what = "video " + sizeText(imp["video"]);
    } else if (imp.contains("banner")) {
      what = "banner " + sizeText(imp["banner"]);
    } else {
      what = "an impression without banner or video";
    }
    if (imp.value("instl", 0) == 1) what += ", interstitial";
    parts.push_back(what);
  }
  if (body.contains("app")) {
    const std::string name = stringAt(body["app"], "name");
    const std::string bundle = stringAt(body["app"], "bundle");
    std::string app = "app " + (name.empty() ? std::string("(no name)") : name);
    if (!bundle.empty()) app += " (" + bundle + ")";
    parts.push_back(app);
  }
  if (body.contains("device") && body["device"].is_object()) {
    const Value& device = body["device"];
    parts.push_back("device " + stringAt(device, "model") + " " + stringAt(device, "os") + " " +
                    stringAt(device, "osv"));
  }
  if (imp.is_object() && imp.contains("ext") && imp["ext"].contains("skadn")) {
    const Value& ids = imp["ext"]["skadn"].value("skadnetids", Value::array());
    parts.push_back(std::to_string(ids.size()) + " SKAdNetwork ids");
  }
  std::string summary;
  for (const auto& part : parts) summary += (summary.empty() ? "" : " · ") + part;
  return summary;
}

void SdkLog::handle(std::string_view text) {
  auto entry = parseEntry(text);
  if (!entry) {
    timeline_.emit("sdk", std::string(trimNewlines(text)));
    return;
  }
  if (auto request = parseBidRequest(*entry)) {
    Value detail = {{"url", request->url}, {"bytes", request->body.size()}};
    std::vector<std::string> more;
    std::string summary;
    if (request->json) {
      summary = summarizeBidRequest(*request->json);
      if (verbose_) {
        detail["body"] = *request->json;
        std::istringstream pretty(request->json->dump(2));
        for (std::string line; std::getline(pretty, line);) more.push_back(line);
      }
    } else {
      summary = "no JSON body: " + request->body;
    }
    detail["summary"] = summary;
    more.insert(more.begin(), summary);
    timeline_.emit("request",
                   "POST " + request->url + " (" + std::to_string(request->body.size()) + " B)",
                   std::move(detail), std::move(more));
    return;
  }
  if (auto event = parseVastEvent(*entry)) {
    // Once the five points have fired, every progress report (hundreds a second) logs a line
    // with no event and no URL: nothing happened, nothing to show.
    if (event->event == "(null)") return;
    char time[32];
    std::snprintf(time, sizeof time, "%.3f", event->time);
    const std::size_t count = event->trackers.size();
    timeline_.emit(
        "vast",
        event->event + " at " + time + " s of media, " + std::to_string(count) + " tracking URL" +
            (count == 1 ? "" : "s") + " handed over",
        {{"event", event->event}, {"mediaTime", event->time}, {"trackers", event->trackers}},
        event->trackers);
    return;
  }
  if (auto parameters = parseStoreParameters(*entry)) {
    timeline_.emit("click", "store sheet parameters: " + *parameters,
                   {{"parameters", *parameters}});
    return;
  }
  if (entry->level == 1 || entry->level == 2) {
    timeline_.emit("sdk",
                   std::string(entry->level == 1 ? "error " : "warning ") + entry->function + ": " +
                       std::string(trimNewlines(entry->message)),
                   {{"level", entry->level},
                    {"function", entry->function},
                    {"message", std::string(trimNewlines(entry->message))}});
  }
  // Other information entries (raw response bodies) repeat what the server log already shows.
}

}  // namespace zorva::demo
