#include "zorva-demo/Timeline.h"

#include <zorva/platform/MainQueue.h>
#include <zorva/platform/URLSession.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <optional>

namespace zorva::demo {

namespace {

thread_local std::optional<std::string> thisThreadName;
std::atomic<int> otherThreads{0};

const char* colorOf(const std::string& kind) {
  if (kind == "callback") return "\033[32m";                     // green
  if (kind == "app" || kind == "user") return "\033[36m";        // cyan
  if (kind == "request" || kind == "server") return "\033[2m";   // dim
  if (kind == "vast" || kind == "click") return "\033[35m";      // magenta
  if (kind == "sdk") return "\033[33m";                          // yellow
  if (kind == "scenario" || kind == "result") return "\033[1m";  // bold
  return "";
}

}  // namespace

Timeline::Timeline(std::ostream& out, Format format, bool color)
    : out_(out), format_(format), color_(color && format == Format::Text) {}

void Timeline::setOrigin(platform::TimePoint origin) {
  std::lock_guard lock(mutex_);
  origin_ = origin;
  originSet_ = true;
}

void Timeline::setScenario(std::string scenario) {
  std::lock_guard lock(mutex_);
  scenario_ = std::move(scenario);
}

std::string Timeline::scenario() const {
  std::lock_guard lock(mutex_);
  return scenario_;
}

void Timeline::emit(std::string kind, std::string text, platform::Value detail,
                    std::vector<std::string> more) {
  TimelineEvent event;
  event.thread = threadName();
  event.kind = std::move(kind);
  event.text = std::move(text);
  event.detail = std::move(detail);
  event.more = std::move(more);
  const auto now = platform::MainQueue::shared().now();
  std::lock_guard lock(mutex_);
  event.time = originSet_ ? std::chrono::duration<double>(now - origin_).count() : 0.0;
  event.scenario = scenario_;
  write(event);
  events_.push_back(std::move(event));
}

void Timeline::progress(double position, double duration) {
  const double fraction = duration > 0 ? position / duration : 0;
  char numbers[64];
  std::snprintf(numbers, sizeof numbers, " %3.0f%%  %.1f / %.1f s",
                std::clamp(fraction, 0.0, 1.0) * 100, position, duration);
  emit("progress", progressBar(fraction, 24) + numbers,
       {{"position", position}, {"duration", duration}});
}

std::vector<TimelineEvent> Timeline::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

std::vector<TimelineEvent> Timeline::eventsOf(const std::string& scenario) const {
  std::lock_guard lock(mutex_);
  std::vector<TimelineEvent> result;
  std::copy_if(events_.begin(), events_.end(), std::back_inserter(result),
               [&](const TimelineEvent& e) { return e.scenario == scenario; });
  return result;
}

std::string Timeline::threadName() {
  if (thisThreadName) return *thisThreadName;
  if (platform::MainQueue::shared().isCurrent()) return "main";
  if (platform::URLSession::sharedSession()->isDelegateQueue()) return "network";
  thisThreadName = "thread-" + std::to_string(++otherThreads);
  return *thisThreadName;
}

void Timeline::nameThisThread(std::string name) { thisThreadName = std::move(name); }

std::string Timeline::progressBar(double fraction, int width) {
  if (!(fraction >= 0)) fraction = 0;  // NaN too
  fraction = std::min(fraction, 1.0);
  const int filled = static_cast<int>(std::lround(fraction * width));
  return "[" + std::string(filled, '#') + std::string(width - filled, '-') + "]";
}

std::string Timeline::formatText(const TimelineEvent& event) {
  if (event.kind == "scenario") return "\n== " + event.text + "\n";
  if (event.kind == "summary") return event.text + "\n";
  if (event.kind == "result") return "\n" + event.text + "\n";
  char head[64];
  std::snprintf(head, sizeof head, "%8.3f  %-8s %-9s ", event.time, event.thread.c_str(),
                event.kind.c_str());
  std::string text = head + event.text + "\n";
  for (const auto& line : event.more) text += std::string(29, ' ') + line + "\n";
  return text;
}

std::string Timeline::formatJson(const TimelineEvent& event) {
  platform::Value object = platform::Value::object();
  object["t"] = std::round(event.time * 1000) / 1000;
  object["thread"] = event.thread;
  object["scenario"] = event.scenario;
  object["kind"] = event.kind;
  object["text"] = event.text;
  if (event.detail.is_object()) {
    for (const auto& [key, value] : event.detail.items()) object[key] = value;
  }
  // Invalid UTF-8 from a server must not make the line unwritable.
  return object.dump(-1, ' ', false, platform::Value::error_handler_t::replace);
}

void Timeline::write(const TimelineEvent& event) {
  if (format_ == Format::Json) {
    out_ << formatJson(event) << '\n';
  } else if (color_ && *colorOf(event.kind) != '\0') {
    std::string text = formatText(event);
    text.pop_back();
    out_ << colorOf(event.kind) << text << "\033[0m\n";
  } else {
    out_ << formatText(event);
  }
  out_.flush();
}

}  // namespace zorva::demo
