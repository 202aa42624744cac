#pragma once

#include <cstddef>
#include <optional>
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
  listen,    // starts or stops syncing by listening
  undoSync,  // only while a sync by listening can be undone
  // The first of a range: reopenEncodingAction(i) reopens the file in
  // encoding i of the menu's list (0: guessed). Last, so the range is free.
  reopenEncoding,
};

inline MenuAction reopenEncodingAction(std::size_t choice) {
  return static_cast<MenuAction>(static_cast<int>(MenuAction::reopenEncoding) + static_cast<int>(choice));
}

inline std::optional<std::size_t> reopenEncodingChoice(MenuAction action) {
  const int offset = static_cast<int>(action) - static_cast<int>(MenuAction::reopenEncoding);
  if (offset < 0) return std::nullopt;
  return static_cast<std::size_t>(offset);
}

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
