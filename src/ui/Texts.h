#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Dialogs.h"

// The program's own words, byte for byte, in one place.
namespace lumerix::texts {

inline constexpr std::string_view hoverKeyHint =
    "Shortcuts active — ←→/,. offset · t background · ± font · o open · q quit";
inline constexpr std::string_view hoverHint = "Drag anywhere to move · click once to enable shortcuts";
inline constexpr std::string_view noSubtitle = "no subtitle loaded (press O)";
inline constexpr std::string_view brandName = "Lumerix";
inline constexpr std::string_view autoPickOn = "Episode auto-pick re-enabled";
inline constexpr std::string_view bandOn = "Background: black band";
inline constexpr std::string_view bandOff = "Background: transparent + outline";
inline constexpr std::string_view needFirstPoint = "Align near the beginning first and press 1";
inline constexpr std::string_view pointsTooClose = "Points too close — try again a few minutes apart";
inline constexpr std::string_view reopenWithEncodingTitle = "Reopen with Encoding";
inline constexpr std::string_view reopenWithoutFile = "No subtitle loaded to reopen — press O to choose one";

}  // namespace lumerix::texts

namespace lumerix {

// The words that differ between the platforms' builds. The macOS app speaks
// of the TV app and its Automation permission; the Linux build names the
// player it follows and never mentions either.
struct UiTexts {
  std::string startHint;
  std::string notConnected;  // calibrating with no position
  std::string grantMenuTitle;
  std::string grantHint;
  std::string permissionSettingsURL;  // empty: there is nothing to open
  Alert permissionAlert;
  Alert aboutAlert;
  Alert onboardingAlert;
};

const UiTexts& macUiTexts();

// player: the MPRIS name followed ("mpv"); empty when any player will do.
UiTexts linuxUiTexts(std::string_view player);

// A console has no bar to click: its start hint stops before the bar's
// instructions ("⇄ Auto-syncing with mpv").
std::string consoleStartHint(std::string_view startHint);

}  // namespace lumerix
