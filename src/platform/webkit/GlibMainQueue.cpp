#include <algorithm>

#include <glib.h>

#include <velora/platform/WebKitWebView.hpp>

namespace velora {
namespace {

using Work = std::function<void()>;

gboolean runOnce(gpointer data) {
  (*static_cast<Work*>(data))();
  return G_SOURCE_REMOVE;
}

void destroyWork(gpointer data) { delete static_cast<Work*>(data); }

void attach(GSource* source, Work work) {
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, runOnce, new Work(std::move(work)), destroyWork);
  g_source_attach(source, g_main_context_default());
  g_source_unref(source);
}

}  // namespace

void GlibMainQueue::post(std::function<void()> work) { attach(g_idle_source_new(), std::move(work)); }

void GlibMainQueue::postAfter(std::chrono::milliseconds delay, std::function<void()> work) {
  attach(g_timeout_source_new(static_cast<guint>(std::max<std::chrono::milliseconds::rep>(delay.count(), 0))),
         std::move(work));
}

bool GlibMainQueue::isCurrent() const { return g_main_context_is_owner(g_main_context_default()) != FALSE; }

void GlibMainQueue::run() {
  while (!quitRequested_.exchange(false)) g_main_context_iteration(g_main_context_default(), TRUE);
}

void GlibMainQueue::quit() {
  quitRequested_ = true;
  g_main_context_wakeup(g_main_context_default());
}

bool GlibMainQueue::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  auto* context = g_main_context_default();
  // Wakes the blocking iteration below once the time is up, even if nothing else happens.
  bool timedOut = false;
  GSource* timer = g_timeout_source_new(static_cast<guint>(timeout.count()));
  g_source_set_callback(
      timer,
      [](gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_REMOVE;
      },
      &timedOut, nullptr);
  g_source_attach(timer, context);
  bool met = done();
  while (!met && !timedOut) {
    g_main_context_iteration(context, TRUE);
    met = done();
  }
  g_source_destroy(timer);
  g_source_unref(timer);
  return met;
}

}  // namespace velora
