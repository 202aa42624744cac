#include "ui/Menu.h"

#include "ui/Texts.h"

namespace lumerix {

std::vector<MenuItem> statusMenu(const UiTexts& texts) {
  using A = MenuAction;
  const MenuItem separator{};
  return {
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
}

}  // namespace lumerix
