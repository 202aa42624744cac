#include "gtk/TickSource.h"

#include <cmath>

namespace lumerix::gtk {

struct TickSource::Source {
  GSource base;
  TickSource* owner;
  bool ticked;  // in the loop's last turn; nothing else ran since
};

namespace {

GSourceFuncs funcs = {};

}  // namespace

TickSource::TickSource(std::function<void()> tick, std::function<double()> nextIn)
    : tick(std::move(tick)), nextIn(std::move(nextIn)) {
  funcs.prepare = &TickSource::prepare;
  funcs.dispatch = &TickSource::dispatch;
  source = g_source_new(&funcs, sizeof(Source));
  auto* s = reinterpret_cast<Source*>(source);
  s->owner = this;
  s->ticked = false;
  // Just below the default: events, timeouts and D-Bus calls that come in
  // the same turn are handled first, so the tick sees what they changed;
  // above GTK's redraws, which draw what the tick changed.
  g_source_set_priority(source, G_PRIORITY_DEFAULT + 1);
  g_source_set_name(source, "Lumerix tick");
  g_source_set_ready_time(source, 0);  // the first tick at once
  g_source_attach(source, nullptr);
}

TickSource::~TickSource() {
  g_source_destroy(source);
  g_source_unref(source);
}

gboolean TickSource::prepare(GSource* source, gint* timeout) {
  auto* s = reinterpret_cast<Source*>(source);
  *timeout = -1;  // the ready time wakes the loop when the next tick is due
  if (s->ticked) {
    s->ticked = false;
    return FALSE;
  }
  return TRUE;  // the loop turned for something else
}

gboolean TickSource::dispatch(GSource* source, GSourceFunc, gpointer) {
  auto* s = reinterpret_cast<Source*>(source);
  s->ticked = true;
  TickSource& self = *s->owner;
  self.tick();
  // Ready times are whole microseconds and the loop sleeps whole
  // milliseconds rounded up: the tick never comes before it is due.
  const double in = self.nextIn();
  const double micros = std::isfinite(in) && in > 0 ? std::ceil(in * 1e6) : 0;
  g_source_set_ready_time(source, g_get_monotonic_time() + static_cast<gint64>(micros));
  return G_SOURCE_CONTINUE;
}

}  // namespace lumerix::gtk
