#pragma once

#include <zorva/platform/Value.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorva::demo {

class Timeline;

/// One entry of the SDK's log ("Zorva SDK: - I - File.cpp #12 -[Class method] => \n...\n"),
/// split into its parts.
struct SdkLogEntry {
  /// 1 error ... 5 verbose; 0 for a tag the SDK does not use.
  unsigned long level = 0;
  std::string file;
  std::string function;
  std::string message;
};

/// A bid request as the request builder logs it at information level.
struct LoggedBidRequest {
  std::string url;
  /// The body as sent ("(null)" when the request went out without one).
  std::string body;
  /// The body parsed, when it is JSON.
  std::optional<platform::Value> json;
};

/// A VAST progress event as the VAST player logs it: the media time it fired at, its name and
/// the tracking URLs it handed to the network handler.
struct LoggedVastEvent {
  double time = 0;
  std::string event;
  std::vector<std::string> trackers;
};

/// Listens to the SDK through the system log, as any host can: the demo raises the SDK's level
/// to information and reads the bid requests, VAST events, store sheet parameters, warnings and
/// errors from the entries, putting each on the timeline. Installs itself as the log handler
/// while it lives.
class SdkLog {
 public:
  SdkLog(Timeline& timeline, bool verbose);
  ~SdkLog();
  SdkLog(const SdkLog&) = delete;
  SdkLog& operator=(const SdkLog&) = delete;

  static std::optional<SdkLogEntry> parseEntry(std::string_view entry);
  static std::optional<LoggedBidRequest> parseBidRequest(const SdkLogEntry& entry);
  static std::optional<LoggedVastEvent> parseVastEvent(const SdkLogEntry& entry);
  /// The parameters text of "Showing SKProductController, Params - ...".
  static std::optional<std::string> parseStoreParameters(const SdkLogEntry& entry);
  /// Every http(s) URL in `text`, in order.
  static std::vector<std::string> urlsIn(std::string_view text);
  /// One line saying what a bid request asks for: "video 320x480, interstitial · app ... ·
  /// device ... · 3 SKAdNetwork ids".
  static std::string summarizeBidRequest(const platform::Value& body);

 private:
  void handle(std::string_view entry);

  Timeline& timeline_;
  const bool verbose_;
};

}  // namespace zorva::demo
