#pragma once

#include <glib.h>

#include <functional>

namespace lumerix::gtk {

// Drives the controller's tick on the main loop without waking it while
// nothing is due: after each tick the loop sleeps for as long as `nextIn`
// says (seconds), and whenever it wakes for anything else (an input event,
// a menu, a dialog, a D-Bus call, g_main_context_wakeup from a source's
// thread) the tick runs right after that, in the same turn of the loop:
// whatever reached the controller may have changed what is due.
class TickSource {
 public:
  TickSource(std::function<void()> tick, std::function<double()> nextIn);
  ~TickSource();
  TickSource(const TickSource&) = delete;
  TickSource& operator=(const TickSource&) = delete;

 private:
  struct Source;
  static gboolean prepare(GSource* source, gint* timeout);
  static gboolean dispatch(GSource* source, GSourceFunc, gpointer);

  std::function<void()> tick;
  std::function<double()> nextIn;
  GSource* source = nullptr;
};

}  // namespace lumerix::gtk
