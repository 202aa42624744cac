#include "ui/Menu.h"

#include "ui/Texts.h"

namespace lumerix {

std::vector<MenuItem> statusMenu(const UiTexts& texts, MenuStyle style, MenuState state) {
  using A = MenuAction;
  const MenuItem separator{};
  std::vector<MenuItem> menu{
      {"Open Subtitle…", "o", A::open, {}},
      {"Re-enable Episode Auto-pick", "a", A::autoPick, {}},
      separator,
      {"Subtitle Timing",
       "",
       A::none,
       {
           {"−0.5 s", "", A::offsetM5, {}},  // typographic minus
           {"−0.1 s", "", A::offsetM1, {}},
           {"+0.1 s", "", A::offsetP1, {}},
           {"+0.5 s", "", A::offsetP5, {}},
       }},
      {state.listening ? "Stop Listening" : "Sync by Listening", "l", A::listen, {}},
      {"Bigger Text", "+", A::fontUp, {}},
      {"Smaller Text", "-", A::fontDown, {}},
      {"Toggle Background Style", "t", A::toggleBG, {}},
      separator,
      {"Preferences…", ",", A::prefs, {}},
      {"Check for Updates…", "", A::checkUpdates, {}},
      {texts.grantMenuTitle, "", A::grantPermission, {}},
      {"How to Use…", "", A::howTo, {}},
      {"About Lumerix", "", A::about, {}},
      separator,
      {"Quit Lumerix", "q", A::quit, {}},
  };
  if (state.canUndoSync) {
    menu.insert(menu.begin() + 5, {"Undo Sync", "", A::undoSync, {}});
  }
  if (style == MenuStyle::commandShortcuts) return menu;

  // The bar's keys: what a click on the bar and then this key does too.
  auto barKey = [](MenuAction action) -> const char* {
    switch (action) {
      case A::open:
        return "o";
      case A::autoPick:
        return "a";
      case A::offsetM5:
        return "←";
      case A::offsetM1:
        return ",";
      case A::offsetP1:
        return ".";
      case A::offsetP5:
        return "→";
      case A::fontUp:
        return "+";
      case A::fontDown:
        return "-";
      case A::toggleBG:
        return "t";
      case A::listen:
        return "l";
      case A::quit:
        return "q";
      default:
        return "";
    }
  };
  auto useBarKey = [&](MenuItem& item) {
    item.keyEquivalent = barKey(item.action);
    item.plainKey = true;
  };
  std::vector<MenuItem> out;
  for (MenuItem& item : menu) {
    if (item.action == A::checkUpdates) continue;
    useBarKey(item);
    for (MenuItem& sub : item.submenu) useBarKey(sub);
    out.push_back(std::move(item));
  }
  return out;
}

}  // namespace lumerix
