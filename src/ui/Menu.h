#pragma once

#include <string>
#include <vector>

namespace lumerix {

enum class MenuAction {
  none,  // separators and submenu headers
  open,
  autoPick,
  openSecond,
  removeSecond,
  secondToFirst,
  offsetM5,
  offsetM1,
  offsetP1,
  offsetP5,
  fontUp,
  fontDown,
  toggleBG,
  prefs,
  checkUpdates,
  grantPermission,
  howTo,
  about,
  quit,
};

struct MenuItem {
  std::string title;          // empty: a separator
  std::string keyEquivalent;  // pressed with Command (or alone, see below); empty: none
  MenuAction action = MenuAction::none;
  std::vector<MenuItem> submenu;
  bool plainKey = false;  // the key alone, as the bar takes it, not with Command
  bool separator() const { return title.empty(); }
};

struct UiTexts;

// How a platform's menu shows its keys. The macOS menu has Command
// shortcuts of its own; the Linux menu names the bar's own plain keys (the
// bar has no others) and has neither an update command (the package
// updates it) nor a permission command (there is nothing to grant).
enum class MenuStyle { commandShortcuts, barKeys };

// The status item's menu, top to bottom, in a platform's words; built once,
// never changed.
std::vector<MenuItem> statusMenu(const UiTexts& texts, MenuStyle style = MenuStyle::commandShortcuts);

}  // namespace lumerix
