#pragma once

#include <string_view>
#include <vector>

#include "ui/Texts.h"

// What the program says about the desktop it runs on, where that desktop
// differs from the one the bar was first made for.
namespace lumerix::texts {

namespace desktop {

inline constexpr std::string_view noCompositor =
    "No compositor running: the bar cannot be see-through here — press t for the black band";
inline constexpr std::string_view gnomeWayland =
    "GNOME on Wayland: if full screen hides the bar, play windowed or log in to “GNOME on Xorg”";
// Another Wayland desktop, where this build found no layer shell to float in.
inline constexpr std::string_view noLayerShell =
    "No layer shell on this desktop: if a full-screen player hides the bar, play windowed";
// Stock GNOME and bare window managers show no tray icons.
inline constexpr std::string_view noTray = "No tray icon on this desktop: right-click the bar for its menu";
// One line on stderr, for a launch with no screen to show the bar on.
inline constexpr std::string_view noDisplay =
    "lumerix: no display to show the bar on; 'lumerix --headless' prints what it would show";

// One line on stderr, for a desktop without a session bus (ssh, a container):
// the bar works, but nothing can be followed and there is no tray.
inline constexpr std::string_view noSessionBus =
    "lumerix: no session bus, so no tray icon and no media player to follow; right-click the bar for its menu";

// Window titles of the dialogs, for the desktop's task switcher and title
// bars (macOS shows none on its panels and alerts).
inline constexpr std::string_view openSubtitleTitle = "Open Subtitle";
inline constexpr std::string_view chooseFolderTitle = "Choose the Subtitle Folder";

// What the window shell found out about the desktop.
struct Facts {
  bool composited = true;                 // translucent windows come out translucent
  bool waylandWithoutLayerShell = false;  // no way for the bar to stay above a full-screen Wayland window
  bool gnome = false;                     // the desktop says it is GNOME
};

// Whether $XDG_CURRENT_DESKTOP (a colon-separated list, "ubuntu:GNOME")
// names GNOME.
inline bool isGnome(std::string_view currentDesktop) {
  while (!currentDesktop.empty()) {
    const std::size_t colon = currentDesktop.find(':');
    if (currentDesktop.substr(0, colon) == "GNOME") return true;
    if (colon == std::string_view::npos) break;
    currentDesktop.remove_prefix(colon + 1);
  }
  return false;
}

// The notes the status line gives once at start, in order.
inline std::vector<std::string_view> notes(const Facts& facts) {
  std::vector<std::string_view> out;
  if (facts.waylandWithoutLayerShell) out.push_back(facts.gnome ? gnomeWayland : noLayerShell);
  if (!facts.composited) out.push_back(noCompositor);
  return out;
}

}  // namespace desktop
}  // namespace lumerix::texts
