#pragma once

#include <cstdint>
#include <vector>

#include "platform/Geometry.h"

namespace lumerix::gtk {

// A top-level window as the X server stacks it.
struct StackedWindow {
  std::uint64_t id = 0;           // the X window (a window manager's frame, where it has one)
  Rect frame;                     // in root coordinates
  bool overrideRedirect = false;  // menus, tooltips, lock screens, other programs' bars
  bool ours = false;              // one of Lumerix's own windows, or a frame around one
  bool bar = false;               // the bar itself
};

// What the last decisions were, so that a window that keeps itself on top is
// not fought for ever.
struct RaiseMemory {
  std::uint64_t culprit = 0;  // the window the last raise was for
  int raisesInARow = 0;       // against that window, with nothing else in between
};

struct Restack {
  enum class Kind { stay, top, below } kind = Kind::stay;
  std::uint64_t sibling = 0;  // for below: the window to go just under
  bool operator==(const Restack&) const = default;
};

// Where the bar goes, given the stack bottom to top. Only a managed window
// that overlaps the bar and is not one of ours earns a raise: override-redirect
// windows (another program's menu, a lock screen) come and go on their own and
// belong on top. Our own dialogs stay above the bar: where one overlaps it and
// is stacked below it, the bar goes just under the dialog, unless a foreign
// window above the dialog covers the bar (then the bar rises to the top as for
// any foreign window). Nothing moves while the screen is locked or blanked, and
// after kMaxRaisesInARow raises against the same window the bar gives way to
// it until something else happens.
Restack placeBar(const std::vector<StackedWindow>& stack, bool screenLocked, RaiseMemory& memory);

inline constexpr int kMaxRaisesInARow = 3;

}  // namespace lumerix::gtk
