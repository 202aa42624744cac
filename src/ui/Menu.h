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
};

struct MenuItem {
  std::string title;          // empty: a separator
  std::string keyEquivalent;  // pressed with Command; empty: none
  MenuAction action = MenuAction::none;
  std::vector<MenuItem> submenu;
  bool separator() const { return title.empty(); }
};

struct UiTexts;

// The status item's menu, top to bottom, in a platform's words; built once,
// never changed.
std::vector<MenuItem> statusMenu(const UiTexts& texts);

}  // namespace lumerix
