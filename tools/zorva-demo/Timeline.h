#pragma once

#include <zorva/platform/Clock.h>
#include <zorva/platform/Value.h>

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace zorva::demo {

/// One thing that happened, as the timeline shows it.
struct TimelineEvent {
  /// Seconds since the tour began, on the main queue's clock (virtual unless --real-time).
  double time = 0;
  /// "main", "network", "server" or "thread-N".
  std::string thread;
  /// The scenario under way ("" before the first).
  std::string scenario;
  /// "app" (a call into the SDK), "request" (a bid request leaving), "server" (the ad server's
  /// log), "callback" (a delegate callback), "state", "vast" (a VAST event and its trackers),
  /// "user" (a simulated tap or close), "click" (where a click went), "progress", "sdk" (an SDK
  /// warning or error), "note", "scenario" (a scenario begins), "summary" (one per scenario),
  /// "result" (the last line).
  std::string kind;
  std::string text;
  /// Structured fields, written into the event's JSON object (an object, or null).
  platform::Value detail;
  /// Lines printed under the event in text mode (pretty JSON, tracker URLs).
  std::vector<std::string> more;
};

/// The demo's output: every event is written as soon as it happens, as a readable line or a JSON
/// line, and kept for the scenario checks. Safe from any thread; lines never interleave.
class Timeline {
 public:
  enum class Format { Text, Json };

  Timeline(std::ostream& out, Format format, bool color);

  /// The time that reads 0.000 (the main queue's clock when the tour starts).
  void setOrigin(platform::TimePoint origin);
  void setScenario(std::string scenario);
  std::string scenario() const;

  void emit(std::string kind, std::string text, platform::Value detail = nullptr,
            std::vector<std::string> more = {});
  /// A progress bar line for a video `position` seconds into `duration`.
  void progress(double position, double duration);

  /// The events so far (all of them, or those of one scenario).
  std::vector<TimelineEvent> events() const;
  std::vector<TimelineEvent> eventsOf(const std::string& scenario) const;

  /// The name of the calling thread as the timeline prints it.
  static std::string threadName();
  /// Names the calling thread ("server" for the ad server's threads).
  static void nameThisThread(std::string name);

  /// "[#####-----]" with `width` cells for `fraction` (clamped to 0...1).
  static std::string progressBar(double fraction, int width);
  /// One event as the text line (and following lines) the timeline prints, without colour.
  static std::string formatText(const TimelineEvent& event);
  /// One event as a JSON object on one line.
  static std::string formatJson(const TimelineEvent& event);

 private:
  void write(const TimelineEvent& event);

  std::ostream& out_;
  const Format format_;
  const bool color_;
  mutable std::mutex mutex_;
  platform::TimePoint origin_{};
  bool originSet_ = false;
  std::string scenario_;
  std::vector<TimelineEvent> events_;
};

}  // namespace zorva::demo
