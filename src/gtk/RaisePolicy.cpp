#include "gtk/RaisePolicy.h"

#include <algorithm>

namespace lumerix::gtk {

namespace {

bool overlaps(const Rect& a, const Rect& b) {
  return std::min(a.maxX(), b.maxX()) > std::max(a.minX(), b.minX()) &&
         std::min(a.maxY(), b.maxY()) > std::max(a.minY(), b.minY());
}

}  // namespace

Restack placeBar(const std::vector<StackedWindow>& stack, bool screenLocked, RaiseMemory& memory) {
  const auto barAt = std::find_if(stack.begin(), stack.end(), [](const StackedWindow& w) { return w.bar; });
  if (screenLocked || barAt == stack.end()) return {};
  const long bar = barAt - stack.begin();
  long foreign = -1, dialog = -1;  // the topmost of each kind over the bar's area
  for (long i = 0; i < static_cast<long>(stack.size()); ++i) {
    const StackedWindow& w = stack[i];
    if (w.bar || w.overrideRedirect || !overlaps(w.frame, barAt->frame)) continue;
    (w.ours ? dialog : foreign) = i;
  }
  if (dialog > foreign) {
    // Our dialog is the topmost thing over the bar: the bar belongs between
    // the foreign windows and it.
    memory = {};
    if (bar > dialog || bar < foreign) return {Restack::Kind::below, stack[dialog].id};
    return {};
  }
  if (foreign < bar) {
    memory = {};
    return {};
  }
  if (stack[foreign].id != memory.culprit) memory = {stack[foreign].id, 0};
  if (memory.raisesInARow >= kMaxRaisesInARow) return {};
  ++memory.raisesInARow;
  return {Restack::Kind::top, 0};
}

}  // namespace lumerix::gtk
