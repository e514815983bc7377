#include "zorva-demo/DemoOptions.h"

#include <zorva/platform/URL.h>

#include <exception>
#include <string>

namespace zorva::demo {

const char* DemoOptions::usage() {
  return R"(Usage: zorva-demo [options]
Shows the Zorva SDK at work: starts an ad server on a loopback port and runs every ad format
against it (banner with refresh and a click, interstitial display and video, in-banner video,
a VAST wrapper chain, a non-linear creative, no fill, a broken answer, a time-out), printing a
timeline of what the SDK did. Exit status 0 when every scenario behaved as expected.

Options:
  --server URL   post bid requests to URL (an OpenRTB 2.x endpoint) instead of the embedded
                 server; each format is then loaded once and whatever comes back is shown
  --pid ID       publisher id sent as "pid" (default zorva-demo)
  --aid ID       ad unit id sent as "aid" for every format (with the embedded server: one of
                 banner, interstitial, video, video-wrapper, video-nonlinear, nofill, broken, slow)
  --verbose      also print each bid request as pretty JSON
  --json         print the timeline as JSON lines, one object per event
  --real-time    wait out timers in real time (default: a virtual clock, so the tour takes
                 seconds)
  --engines KIND real: GStreamer decodes the videos and WebKit renders the pages, in real
                 time (needs a display, e.g. under xvfb-run -a); headless: nothing is decoded
                 or rendered, the platform simulates pages and videos; auto (the default): real
                 when this build has the engines and a display is there, else headless
  --snapshot FILE  write a PNG of the rendered banner to FILE (needs the real engines)
  --window       show the tour in a window (real engines, real time; needs an X display, e.g.
                 xvfb-run -a): the user's taps are real pointer clicks; without a display the
                 tour runs headless
  --pause SECONDS  with --window, how long each step stays on the screen (default 1)
  --production   turn on the SDK's production settings, CDATA text and the tracking
                 transport (its queue in a temporary folder), so the tracking GETs reach the
                 server; the embedded server writes its VAST URLs in CDATA sections
  --help         show this help and exit

Exit status: 0 when every scenario behaved as expected, 1 when one did not (or the embedded
server could not start), 2 for a bad command line.
)";
}

std::optional<DemoOptions> DemoOptions::parse(const std::vector<std::string>& args,
                                              std::string* error) {
  DemoOptions options;
  bool pauseGiven = false;
  auto fail = [&](std::string message) {
    *error = std::move(message);
    return std::nullopt;
  };
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    // Both "--flag value" and "--flag=value" for the flags that take one.
    std::string flag = arg;
    std::optional<std::string> value;
    if (auto equals = arg.find('='); arg.starts_with("--") && equals != std::string::npos) {
      flag = arg.substr(0, equals);
      value = arg.substr(equals + 1);
    }
    const bool takesValue = flag == "--server" || flag == "--pid" || flag == "--aid" ||
                            flag == "--engines" || flag == "--snapshot" || flag == "--pause";
    if (!takesValue) {
      if (value) return fail("option '" + flag + "' takes no value");
      if (flag == "--verbose") {
        options.verbose = true;
      } else if (flag == "--json") {
        options.json = true;
      } else if (flag == "--real-time") {
        options.realTime = true;
      } else if (flag == "--window") {
        options.window = true;
      } else if (flag == "--production") {
        options.production = true;
      } else if (flag == "--help" || flag == "-h") {
        options.help = true;
      } else {
        return fail("unknown option '" + arg + "'");
      }
      continue;
    }
    if (!value) {
      if (i + 1 >= args.size()) return fail("option '" + flag + "' needs a value");
      value = args[++i];
    }
    if (value->empty()) return fail("option '" + flag + "' needs a non-empty value");
    if (flag == "--server") {
      auto url = platform::URL::URLWithString(*value);
      if (!url || (url->scheme() != "http" && url->scheme() != "https") || url->host().empty()) {
        return fail("--server wants an http or https URL, not '" + *value + "'");
      }
      options.server = *value;
    } else if (flag == "--pid") {
      options.publisherId = *value;
    } else if (flag == "--engines") {
      if (*value == "real") {
        options.engines = Engines::Real;
      } else if (*value == "headless") {
        options.engines = Engines::Headless;
      } else if (*value == "auto") {
        options.engines = Engines::Auto;
      } else {
        return fail("--engines wants real, headless or auto, not '" + *value + "'");
      }
    } else if (flag == "--snapshot") {
      options.snapshot = *value;
    } else if (flag == "--pause") {
      std::size_t end = 0;
      double seconds = -1;
      try {
        seconds = std::stod(*value, &end);
      } catch (const std::exception&) {
        end = 0;
      }
      if (end != value->size() || !(seconds >= 0 && seconds <= 60)) {
        return fail("--pause wants seconds from 0 to 60, not '" + *value + "'");
      }
      options.pauseSeconds = seconds;
      pauseGiven = true;
    } else {
      options.adunitId = *value;
    }
  }
  if (options.snapshot && options.engines == Engines::Headless) {
    return fail("--snapshot needs the real engines: the headless web engine renders no pixels");
  }
  if (options.window && options.engines == Engines::Headless) {
    return fail("--window needs the real engines: the headless web engine shows no pages");
  }
  if (pauseGiven && !options.window) return fail("--pause applies only with --window");
  return options;
}

}  // namespace zorva::demo
