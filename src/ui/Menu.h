#pragma once

#include <string>
#include <vector>

namespace lumerix {

enum class MenuAction {
  none,  // separators and submenu headers
  open,
  autoPick,
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
  listen,    // starts or stops syncing by listening
  undoSync,  // only while a sync by listening can be undone
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
// bar has no others) and has no update command: the package updates it.
enum class MenuStyle { commandShortcuts, barKeys };

// What changes the menu: listening turns its item into the stop item, and
// a sync by listening adds the item that undoes it.
struct MenuState {
  bool listening = false;
  bool canUndoSync = false;
};

// The status item's menu, top to bottom, in a platform's words.
std::vector<MenuItem> statusMenu(const UiTexts& texts, MenuStyle style = MenuStyle::commandShortcuts,
                                 MenuState state = {});

}  // namespace lumerix
