#include "zorva/engines/GLibMainLoopBridge.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <memory>

#include "zorva/platform/MainQueue.h"

namespace zorva::platform {

namespace {

// How long the queue's current `waitUntil` may last; the far future when the queue is not
// waiting (a host drives GLib itself). Main thread only.
TimePoint waitDeadline = TimePoint::max();
bool installed = false;

// The earliest moment the queue needs the loop back: now when tasks wait, else the next timer
// (real clock only: virtual timers fire through `advanceBy`), else the end of the current wait.
TimePoint queueDeadline() {
  MainQueue& queue = MainQueue::shared();
  if (queue.pendingTaskCount() > 0) return TimePoint::min();
  TimePoint deadline = waitDeadline;
  if (!queue.clock().isVirtual()) {
    if (auto next = queue.nextFireDate()) deadline = std::min(deadline, *next);
  }
  return deadline;
}

gboolean prepareQueue(GSource* /*source*/, gint* timeout) {
  const TimePoint deadline = queueDeadline();
  const TimePoint now = std::chrono::steady_clock::now();
  if (deadline <= now) {
    *timeout = 0;
    return TRUE;
  }
  if (deadline == TimePoint::max()) {
    *timeout = -1;
    return FALSE;
  }
  // Rounded up: waking early would only spin until the timer is due.
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
  *timeout = static_cast<gint>(std::min<long long>(ms, INT_MAX));
  return FALSE;
}

gboolean checkQueue(GSource* /*source*/) {
  return queueDeadline() <= std::chrono::steady_clock::now() ? TRUE : FALSE;
}

gboolean dispatchQueue(GSource* /*source*/, GSourceFunc /*callback*/, gpointer /*data*/) {
  MainQueue::shared().runUntilIdle();
  return G_SOURCE_CONTINUE;
}

GSourceFuncs queueSourceFuncs = {prepareQueue, checkQueue, dispatchQueue,
                                 nullptr,      nullptr,    nullptr};

class GLibEventLoop final : public EventLoop {
 public:
  void waitUntil(TimePoint deadline) override {
    // A task may wait again from inside a dispatch (a nested `runUntil`): keep the outer wait's
    // bound for when the inner one returns.
    const TimePoint outer = waitDeadline;
    waitDeadline = deadline;
    g_main_context_iteration(nullptr, TRUE);
    waitDeadline = outer;
  }
  void wake() override { g_main_context_wakeup(nullptr); }
};

}  // namespace

void GLibMainLoopBridge::install() {
  if (installed) return;
  installed = true;
  GSource* source = g_source_new(&queueSourceFuncs, sizeof(GSource));
  g_source_set_name(source, "zorva main queue");
  // Tasks may run a nested loop (`runUntil` inside a task); the queue must still be served there.
  g_source_set_can_recurse(source, TRUE);
  g_source_attach(source, nullptr);
  g_source_unref(source);  // the context keeps it for the life of the process
  MainQueue::shared().setEventLoop(std::make_shared<GLibEventLoop>());
}

bool GLibMainLoopBridge::isInstalled() { return installed; }

}  // namespace zorva::platform
