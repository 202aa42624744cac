#pragma once

#include <string_view>
#include <vector>

#include "ui/Texts.h"

// What the program says about the desktop it runs on, where that desktop
// differs from the one the bar was first made for, and where "Grant …
// Permission…" leads on each platform.
namespace lumerix::texts {

// Where the user lets Lumerix follow the player.
struct ConsentRoute {
  std::string_view settingsURL;  // opened by the menu item; empty: nothing to open
  std::string_view hint;         // the status line's answer to the menu item
};

// The system's privacy settings, where the player must be allowed.
inline constexpr ConsentRoute automationConsent{automationSettingsURL, grantHint};
// Players followed over MPRIS: nobody asks, so there is nothing to grant.
inline constexpr ConsentRoute noConsentNeeded{
    "", "Nothing to grant on Linux: media players are followed over MPRIS without asking"};

namespace desktop {

inline constexpr std::string_view noCompositor =
    "No compositor running: the bar cannot be see-through here — press t for the black band";
inline constexpr std::string_view gnomeWayland =
    "GNOME on Wayland: if a full-screen player hides the bar, play windowed or log in with “GNOME on Xorg”";
// One line on stderr, for a launch with no screen to show the bar on.
inline constexpr std::string_view noDisplay =
    "lumerix: no display to show the bar on; 'lumerix --headless' prints what it would show";

// What the window shell found out about the desktop.
struct Facts {
  bool composited = true;     // translucent windows come out translucent
  bool gnomeWayland = false;  // no way for the bar to stay above a full-screen Wayland window
};

// The notes the status line gives once at start, in order.
inline std::vector<std::string_view> notes(const Facts& facts) {
  std::vector<std::string_view> out;
  if (facts.gnomeWayland) out.push_back(gnomeWayland);
  if (!facts.composited) out.push_back(noCompositor);
  return out;
}

}  // namespace desktop
}  // namespace lumerix::texts
