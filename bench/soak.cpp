// Soak: thousands of ad loads against the loopback ad server on a virtual clock, with the
// process's resident memory, open descriptors and threads reported as it goes.
//
//   soak [--loads N] [--warmup N] [--every N]
//
// Banners refresh every 30 virtual seconds, ten loads each, then are released and replaced;
// every fourth load is a VAST interstitial through the ad server's two-level wrapper chain. After
// the warm-up the figures must stay flat: memory within 1 MiB, descriptors and threads equal.
// The exit status is 0 when they do, 1 when not, 2 on a failed load or bad arguments.
//
// The ad server runs in a child process, so the figures are the SDK's alone (the server keeps a
// record of every request).
//
// A banner that refreshes for ever keeps every earlier ad's view underneath the new one; that
// cost is measured on its own at the end (bytes per refresh), outside the flat-memory check, and
// again with ZorvaSDK::setBannerRemovesEarlierAds, which takes the earlier views down.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <zorva/ZVBannerView.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/platform/MainQueue.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "support/TestEnvironment.h"
#include "zorva-adserver/AdServer.h"

namespace {

using zorva::platform::MainQueue;

struct Figures {
  long residentKiB = 0;
  long descriptors = 0;
  long threads = 0;
};

long statusField(const char* name) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::size_t length = std::strlen(name);
  while (std::getline(status, line)) {
    if (line.compare(0, length, name) == 0) return std::strtol(line.c_str() + length, nullptr, 10);
  }
  return -1;
}

// Freed memory goes back to the system first, so the figure is what is live, not what glibc's
// arenas happen to keep.
Figures measure() {
  malloc_trim(0);
  Figures figures;
  figures.residentKiB = statusField("VmRSS:");
  figures.threads = statusField("Threads:");
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++figures.descriptors;
  }
  return figures;
}

struct Options {
  long loads = 10000;
  long warmup = 1000;
  long every = 1000;
};

std::optional<Options> parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (i + 1 >= argc) return std::nullopt;
    char* end = nullptr;
    const long value = std::strtol(argv[++i], &end, 10);
    if (*end != '\0' || value <= 0) return std::nullopt;
    if (flag == "--loads") {
      options.loads = value;
    } else if (flag == "--warmup") {
      options.warmup = value;
    } else if (flag == "--every") {
      options.every = value;
    } else {
      return std::nullopt;
    }
  }
  return options;
}

std::shared_ptr<zorva::ZVAdRequest> requestFor(const std::string& servadUrl, const char* aid) {
  auto request = std::make_shared<zorva::ZVAdRequest>();
  request->publisherId = "soak";
  request->adunitId = aid;
  request->serverUrl = servadUrl;
  request->netoworkTimeout = 10;
  return request;
}

// Counts what the app hears; a failure ends the run.
struct Tally {
  long received = 0;
  long failed = 0;
};

bool waitForAnswer(const Tally& tally, long expected) {
  return MainQueue::shared().runUntil([&] { return tally.received + tally.failed >= expected; },
                                      std::chrono::seconds(10));
}

class Soak {
 public:
  explicit Soak(std::string servadUrl) : servadUrl_(std::move(servadUrl)) {
    bannerDelegate_->bannerViewDidReceiveAd = [this](zorva::ZVBannerView&) { ++tally_.received; };
    bannerDelegate_->bannerViewDidFailToReceiveAdWithError =
        [this](zorva::ZVBannerView&, const zorva::Error&) { ++tally_.failed; };
    interstitialDelegate_->interstitialDidReceiveAd = [this](zorva::ZVInterstitialAd&) {
      ++tally_.received;
    };
    interstitialDelegate_->interstitialDidFailToReceiveAdWithError =
        [this](zorva::ZVInterstitialAd&, const zorva::Error&) { ++tally_.failed; };
  }

  // One load: the current banner's next refresh (a new banner every ten), or a VAST
  // interstitial on every fourth.
  bool load(long n) {
    const long expected = tally_.received + tally_.failed + 1;
    if (n % 4 == 3) {
      auto ad = zorva::ZVInterstitialAd::create(requestFor(servadUrl_, "video-wrapper"));
      ad->setDelegate(interstitialDelegate_);
      ad->loadAd();
      return waitForAnswer(tally_, expected) && tally_.failed == 0;
    }
    if (!banner_ || refreshes_ == 9) {
      loadNewBanner();
      refreshes_ = 0;
    } else {
      MainQueue::shared().advanceBy(zorva::platform::seconds(30));
      ++refreshes_;
    }
    return waitForAnswer(tally_, expected) && tally_.failed == 0;
  }

  // Refreshes one banner `count` times and answers the memory it kept, in bytes per refresh.
  double stackingCost(long count) {
    loadNewBanner();
    if (!waitForAnswer(tally_, tally_.received + 1)) return -1;
    const Figures before = measure();
    for (long i = 0; i < count; ++i) {
      const long expected = tally_.received + 1;
      MainQueue::shared().advanceBy(zorva::platform::seconds(30));
      if (!waitForAnswer(tally_, expected)) return -1;
    }
    const Figures after = measure();
    banner_.reset();
    return (after.residentKiB - before.residentKiB) * 1024.0 / static_cast<double>(count);
  }

  const Tally& tally() const { return tally_; }

 private:
  // Replaces the banner with a new one refreshing every 30 s, and loads it.
  void loadNewBanner() {
    banner_ =
        zorva::ZVBannerView::create(requestFor(servadUrl_, "banner"), zorva::ZVAdSize{320, 50});
    banner_->setRefreshInterval(30);
    banner_->setDelegate(bannerDelegate_);
    banner_->loadAd();
  }

  std::string servadUrl_;
  Tally tally_;
  std::shared_ptr<zorva::ZVBannerViewDelegate> bannerDelegate_ =
      std::make_shared<zorva::ZVBannerViewDelegate>();
  std::shared_ptr<zorva::ZVInterstitialAdDelegate> interstitialDelegate_ =
      std::make_shared<zorva::ZVInterstitialAdDelegate>();
  std::shared_ptr<zorva::ZVBannerView> banner_;
  long refreshes_ = 0;
};

// Forks the ad server's process and answers its bid endpoint. The server lives until this
// process ends (its end of the pipe closes).
std::optional<std::string> startServer() {
  int port[2];
  int lifeline[2];
  if (pipe(port) != 0 || pipe(lifeline) != 0) return std::nullopt;
  const pid_t child = fork();
  if (child < 0) return std::nullopt;
  if (child == 0) {
    close(port[0]);
    close(lifeline[1]);
    std::optional<zorva::platform::Error> error;
    auto server = zorva::tools::AdServer::start({.log = {}}, &error);
    if (!server) {
      std::fprintf(stderr, "soak: %s\n", error->localizedDescription().c_str());
      _exit(2);
    }
    const int number = server->port();
    if (write(port[1], &number, sizeof number) != sizeof number) _exit(2);
    char byte;
    while (read(lifeline[0], &byte, 1) > 0) {
    }
    server->stop();
    _exit(0);
  }
  close(port[1]);
  close(lifeline[0]);
  int number = 0;
  const bool started = read(port[0], &number, sizeof number) == sizeof number;
  close(port[0]);
  if (!started) {
    waitpid(child, nullptr, 0);
    return std::nullopt;
  }
  return "http://127.0.0.1:" + std::to_string(number) + zorva::tools::AdServer::kServadPath;
}

void print(long loads, const Figures& figures) {
  std::printf("loads=%ld rss_kib=%ld fds=%ld threads=%ld\n", loads, figures.residentKiB,
              figures.descriptors, figures.threads);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const auto options = parse(argc, argv);
  if (!options || options->warmup >= options->loads) {
    std::fprintf(stderr, "usage: soak [--loads N] [--warmup N < loads] [--every N]\n");
    return 2;
  }
  const std::optional<std::string> servadUrl = startServer();
  if (!servadUrl) return 2;
  zorva::test::resetProcessState();
  zorva::test::useVirtualClock();

  Soak soak(*servadUrl);
  Figures warm;
  print(0, measure());
  for (long n = 0; n < options->loads; ++n) {
    if (!soak.load(n)) {
      std::fprintf(stderr, "soak: load %ld got no ad (%ld received, %ld failed)\n", n,
                   soak.tally().received, soak.tally().failed);
      return 2;
    }
    if (n + 1 == options->warmup) warm = measure();
    if ((n + 1) % options->every == 0) print(n + 1, measure());
  }
  const Figures end = measure();
  const long growth = end.residentKiB - warm.residentKiB;
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf(
      "after warm-up (%ld loads): %ld more loads, rss %+ld KiB, fds %+ld, threads %+ld; "
      "cpu %.1f s\n",
      options->warmup, options->loads - options->warmup, growth, end.descriptors - warm.descriptors,
      end.threads - warm.threads,
      static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
          static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6);
  std::printf("one banner refreshed 200 times keeps %.0f bytes per refresh\n",
              soak.stackingCost(200));
  // The app conventions' banner setting takes each earlier ad's view down.
  zorva::ZorvaSDK::shared()->setBannerRemovesEarlierAds(true);
  std::printf("with setBannerRemovesEarlierAds, 1000 refreshes keep %.0f bytes per refresh\n",
              soak.stackingCost(1000));
  const bool flat =
      growth < 1024 && end.descriptors == warm.descriptors && end.threads == warm.threads;
  std::printf("%s\n", flat ? "flat" : "NOT flat");
  return flat ? 0 : 1;
}
