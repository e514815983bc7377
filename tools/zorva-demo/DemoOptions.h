#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zorva::demo {

/// What the command line asked for.
struct DemoOptions {
  /// A bid endpoint to use instead of the embedded ad server.
  std::optional<std::string> server;
  std::string publisherId = "zorva-demo";
  /// One ad unit for every format instead of the built-in tour's campaigns.
  std::optional<std::string> adunitId;
  bool verbose = false;
  bool json = false;
  bool realTime = false;
  /// Which engines decode and render: the real ones (GStreamer, WebKitGTK; real time) or the
  /// headless ones (virtual clock unless `realTime`). Auto takes the real ones when this build
  /// has them and they can run here (a display), else the headless ones.
  enum class Engines { Auto, Real, Headless } engines = Engines::Auto;
  /// Where to write a PNG of the rendered banner (real engines only).
  std::optional<std::string> snapshot;
  /// Show the tour in a window on the display, the user's taps made as real clicks (real engines;
  /// without a display the tour runs headless as it does without this).
  bool window = false;
  /// In a window: how long each visible step stays on the screen before the next.
  double pauseSeconds = 1.0;
  /// The SDK as an app in production sets it up: CDATA text and the tracking transport on; the
  /// embedded server writes its VAST documents in CDATA style.
  bool production = false;
  bool help = false;

  /// The tour of built-in campaigns runs only against the embedded server with its own ad units;
  /// a server or ad unit of the user's turns the demo into a probe of each format.
  bool probes() const { return server.has_value() || adunitId.has_value(); }

  /// Reads the arguments after the program name. On a bad command line: nothing, and `*error`
  /// says what is wrong in one line.
  static std::optional<DemoOptions> parse(const std::vector<std::string>& args, std::string* error);
  static const char* usage();
};

}  // namespace zorva::demo
