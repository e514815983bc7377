// The on-screen host's cost. One frame of a banner: the tree flattened and painted with cairo
// (what the host does when the tree has changed) beside a bare cairo fill of the same area. And
// what a banner that does not change costs the app's process while it stays on screen: the CPU
// time over 10 s of a running GTK loop, which should be about nothing (no redraw loop).
// And video: the CPU the process spends playing the ad server's 4 s MP4 on screen (frames
// converted and drawn), bare and under a progress bar that moves as the linear player's does,
// against the same clip and bar headless (frames discarded unconverted), and the time from `play`
// to the first frame the X server shows.
// Needs a display: `xvfb-run -a build/default/bench/bench_gtk_host`.
#include <benchmark/benchmark.h>
#include <gtk/gtk.h>
#include <zorva/platform/Button.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/NotificationCenter.h>
#include <zorva/platform/ProgressView.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/WebView.h>
#include <zorva/platform/Window.h>

#include <chrono>
#include <ctime>

#include <zorva/platform/Player.h>
#include <zorva/platform/PlayerItem.h>
#include <zorva/platform/PlayerLayer.h>
#include "Scene.h"
#include "support/LoopbackServer.h"
#include "support/Ratio.h"
#include "support/XScreen.h"
#include "zorva-adserver/Media.h"
#include "zorva/engines/GStreamerMediaEngine.h"
#include "zorva/engines/GtkHost.h"
#include "zorva/engines/WebKitWebEngine.h"

namespace {

using zorva::platform::Color;
using zorva::platform::Rect;

const bool kRatio = zorva::bench::reportRatio("BM_BannerFrame", "BM_CairoFillBaseline");

// A 375 x 812 screen with a 320 x 50 banner of drawn parts at its foot: a background, a
// rounded button with its title and a progress bar (what a video banner draws besides its video).
std::shared_ptr<zorva::platform::Window> bannerWindow() {
  auto window = zorva::platform::Window::create(Rect(0, 0, 375, 812));
  auto root = zorva::platform::ViewController::create();
  window->setRootViewController(root);
  auto banner = zorva::platform::View::create(Rect(27, 762, 320, 50));
  banner->setBackgroundColor(Color::colorWithRed(0.1, 0.6, 0.2, 1));
  auto close = zorva::platform::Button::buttonWithType(zorva::platform::ButtonType::Custom);
  close->setFrame(Rect(284, 4, 32, 32));
  close->setTitle("X", zorva::platform::kControlStateNormal);
  close->setBackgroundColor(Color::darkGrayColor());
  close->layer()->setCornerRadius(15);
  auto bar = zorva::platform::ProgressView::create();
  bar->setFrame(Rect(0, 48, 320, 4));
  bar->setProgress(0.4f);
  banner->addSubview(close);
  banner->addSubview(bar);
  root->view()->addSubview(banner);
  return window;
}

cairo_surface_t* windowSurface() {
  return cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 375, 812);
}

void BM_BannerFrame(benchmark::State& state) {
  auto window = bannerWindow();
  cairo_surface_t* surface = windowSurface();
  cairo_t* cr = cairo_create(surface);
  for (auto _ : state) {
    auto scene = zorva::gtk::buildScene(window);
    std::vector<zorva::gtk::DrawOp> ops;
    for (auto& item : scene.items) {
      if (auto* op = std::get_if<zorva::gtk::DrawOp>(&item)) ops.push_back(std::move(*op));
    }
    zorva::gtk::paint(cr, ops);
    cairo_surface_flush(surface);
  }
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}
BENCHMARK(BM_BannerFrame);

void BM_CairoFillBaseline(benchmark::State& state) {
  cairo_surface_t* surface = windowSurface();
  cairo_t* cr = cairo_create(surface);
  for (auto _ : state) {
    cairo_rectangle(cr, 27, 762, 320, 50);
    cairo_set_source_rgb(cr, 0.1, 0.6, 0.2);
    cairo_fill(cr);
    cairo_surface_flush(surface);
  }
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}
BENCHMARK(BM_CairoFillBaseline);

double cpuSeconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}
double processCpuSeconds() { return cpuSeconds(CLOCK_PROCESS_CPUTIME_ID); }

// A static banner (drawn parts and a WebKit page) on screen for 10 s of the app's running loop:
// the process's CPU time over that span, as a share of one core. WebKit's own web process is
// another process and is not counted.
void BM_StaticBannerCpuOver10s(benchmark::State& state) {
  std::string whyNot;
  if (!zorva::platform::WebKitWebEngine::install(&whyNot)) {
    state.SkipWithError(whyNot.c_str());
    return;
  }
  auto window = bannerWindow();
  // The banner's page, rendered by WebKit in a widget of its own.
  auto page = zorva::platform::WebView::create(Rect(0, 0, 320, 44),
                                               zorva::platform::WebViewConfiguration());
  page->loadHTMLString("<body style='margin:0;background:#2a7'><b>Static banner</b></body>",
                       std::nullopt);
  window->rootViewController()->view()->subviews().front()->addSubview(page);
  auto host = zorva::gtk::Host::createWindow(window, "bench");
  auto& queue = zorva::platform::MainQueue::shared();
  // Up on the screen and drawn once before the span begins.
  queue.runUntil([&] { return gtk_widget_get_mapped(host->widget()) != FALSE; },
                 std::chrono::seconds(5));
  queue.runUntil([] { return false; }, std::chrono::milliseconds(500));
  double share = 0;
  for (auto _ : state) {
    // The app's own loop, as gtk_main runs it (the queue's runUntil looks at its predicate
    // every 2 ms, which is not what an app pays).
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_timeout_add_seconds(
        10, [](gpointer l) { return g_main_loop_quit(static_cast<GMainLoop*>(l)), FALSE; }, loop);
    const double before = processCpuSeconds();
    g_main_loop_run(loop);
    share = (processCpuSeconds() - before) / 10.0;
    g_main_loop_unref(loop);
  }
  state.counters["cpu_share_of_one_core"] = share;
}
BENCHMARK(BM_StaticBannerCpuOver10s)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

namespace {

// One play in the app's loop. On screen, the first frame is up when the layer's centre no longer
// shows the magenta below it, looked at every 2 ms until it does; the looking (a read of the
// screen's pixels) is the bench's, and its CPU is not counted as the play's.
struct Play {
  GMainLoop* loop;
  std::function<bool()> magentaShown;
  std::chrono::steady_clock::time_point start;
  double firstFrameMs;
  double lookingCpu = 0;
};

gboolean lookForFirstFrame(gpointer data) {
  auto* play = static_cast<Play*>(data);
  const double before = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
  const bool magenta = play->magentaShown();
  play->lookingCpu += cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - before;
  if (magenta) return G_SOURCE_CONTINUE;
  play->firstFrameMs =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - play->start)
          .count();
  return G_SOURCE_REMOVE;
}

// Plays the ad server's MP4 once, on screen in a 375 x 211 layer (a host window) or headless,
// and returns the process's CPU time for the whole clip, negative when the window never showed.
// With `bar`, a progress bar over the video's foot follows the play every 2.5 ms, as the linear
// player's does. On screen, `firstFrameMs` gets the time from `play` to the first frame shown.
double playOnce(zorva::test::LoopbackServer& server, bool onScreen, bool bar,
                double& firstFrameMs) {
  auto& queue = zorva::platform::MainQueue::shared();
  auto window = zorva::platform::Window::create(Rect(0, 0, 375, 211));
  auto root = zorva::platform::ViewController::create();
  window->setRootViewController(root);
  root->view()->setBackgroundColor(Color::colorWithRed(1, 0, 1, 1));
  auto item = zorva::platform::PlayerItem::create(
      *zorva::platform::URL::URLWithString(server.url("/zorva.mp4")));
  auto player = zorva::platform::Player::create(item);
  auto layer = zorva::platform::PlayerLayer::create(player);
  layer->setFrame(Rect(0, 0, 375, 211));
  root->view()->layer()->insertSublayer(layer, 0);
  auto progress = zorva::platform::ProgressView::create();
  progress->setFrame(Rect(0, 205, 375, 6));
  root->view()->addSubview(progress);
  std::shared_ptr<zorva::platform::Player::TimeObserver> ticks;
  if (bar) {
    ticks = player->addPeriodicTimeObserverForInterval(
        zorva::platform::MediaTime::make(1, 400), [&](const zorva::platform::MediaTime& time) {
          progress->setProgress(static_cast<float>(time.seconds() / 4.0));
        });
  }
  std::unique_ptr<zorva::gtk::Host> host;
  if (onScreen) host = zorva::gtk::Host::createWindow(window, "clip");
  queue.runUntil([&] { return item->status() == zorva::platform::PlayerItemStatus::ReadyToPlay; },
                 std::chrono::seconds(10));
  if (host) {
    queue.runUntil([&] { return gtk_widget_get_mapped(host->widget()) != FALSE; },
                   std::chrono::seconds(5));
  }
  zorva::test::XScreen screen;
  int x = 0, y = 0;
  auto magentaAtCentre = [&] {
    const auto p = screen.grab(x + 187, y + 105, 1, 1).at(x + 187, y + 105);
    return p.near(zorva::test::Pixel{255, 0, 255}, 30);
  };
  if (host) {
    gdk_window_get_origin(gtk_widget_get_window(host->widget()), &x, &y);
    if (!queue.runUntil(magentaAtCentre, std::chrono::seconds(5))) return -1;
  }
  // The play runs in the app's own loop, as gtk_main runs it (the queue's runUntil would look
  // at a predicate every 2 ms, which an app does not pay), until the item's end is announced.
  Play play{g_main_loop_new(nullptr, FALSE), magentaAtCentre, {}, -1};
  auto ended = std::make_shared<int>();
  zorva::platform::NotificationCenter::defaultCenter().addObserver(
      ended, [&](const auto&) { g_main_loop_quit(play.loop); },
      zorva::platform::kPlayerItemDidPlayToEndTimeNotification, item.get());
  const double before = processCpuSeconds();
  play.start = std::chrono::steady_clock::now();
  player->play();
  const guint watch = host ? g_timeout_add(2, lookForFirstFrame, &play) : 0;
  g_main_loop_run(play.loop);
  const double cpu = processCpuSeconds() - before - play.lookingCpu;
  if (watch && play.firstFrameMs < 0) g_source_remove(watch);
  if (host) firstFrameMs = play.firstFrameMs;
  g_main_loop_unref(play.loop);
  if (ticks) player->removeTimeObserver(ticks);
  return cpu;
}

// Each iteration plays the clip headless, then on screen, so that the two figures share the
// machine's moment (plays of the same kind drift by a fifth between runs); the iteration's time
// is the on-screen play's CPU, the counters the means of both and their ratio.
void playPairs(benchmark::State& state, bool bar) {
  std::string whyNot;
  if (!zorva::platform::WebKitWebEngine::install(&whyNot) ||
      !zorva::platform::GStreamerMediaEngine::install(&whyNot)) {
    state.SkipWithError(whyNot.c_str());
    return;
  }
  zorva::test::LoopbackServer server;
  server.respond("/zorva.mp4", {.body = std::string(zorva::tools::media::zorvaMp4()),
                                .contentType = "video/mp4"});
  double headless = 0, onScreen = 0, firstFrameMs = 0;
  for (auto _ : state) {
    const double alone = playOnce(server, false, bar, firstFrameMs);
    const double shown = playOnce(server, true, bar, firstFrameMs);
    if (shown < 0) {
      state.SkipWithError("the window never showed its background");
      return;
    }
    headless += alone;
    onScreen += shown;
    state.SetIterationTime(shown);
  }
  const auto plays = static_cast<double>(state.iterations());
  state.counters["headless_cpu_ms"] = headless / plays * 1e3;
  state.counters["on_screen_cpu_ms"] = onScreen / plays * 1e3;
  state.counters["on_screen_per_headless"] = onScreen / headless;
  state.counters["play_to_first_frame_ms"] = firstFrameMs;
}

void BM_ClipOnScreenAndHeadless(benchmark::State& state) { playPairs(state, false); }
BENCHMARK(BM_ClipOnScreenAndHeadless)
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_ClipOnScreenAndHeadlessUnderABar(benchmark::State& state) { playPairs(state, true); }
BENCHMARK(BM_ClipOnScreenAndHeadlessUnderABar)
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
