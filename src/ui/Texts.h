#pragma once

#include <string_view>
#include <vector>

#include "platform/Dialogs.h"

// The program's own words, byte for byte, in one place.
namespace lumerix::texts {

inline constexpr std::string_view startHint =
    "⇄ Auto-syncing with TV — click me once, then: ←→/,. offset · t background · ± font · o open";
inline constexpr std::string_view hoverKeyHint =
    "Shortcuts active — ←→/,. offset · t background · ± font · o open · q quit";
inline constexpr std::string_view hoverHint = "Drag anywhere to move · click once to enable shortcuts";
inline constexpr std::string_view noSubtitle = "no subtitle loaded (press O)";
inline constexpr std::string_view brandName = "Lumerix";
inline constexpr std::string_view autoPickOn = "Episode auto-pick re-enabled";
inline constexpr std::string_view bandOn = "Background: black band";
inline constexpr std::string_view bandOff = "Background: transparent + outline";
inline constexpr std::string_view grantHint = "Enable Lumerix → TV in the Automation list";
inline constexpr std::string_view automationSettingsURL =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Automation";

inline constexpr std::string_view notConnected = "Not connected to the TV app — cannot calibrate";
inline constexpr std::string_view needFirstPoint = "Align near the beginning first and press 1";
inline constexpr std::string_view pointsTooClose = "Points too close — try again a few minutes apart";

inline Alert permissionAlert() {
  return {Alert::Style::warning,
          "Lumerix can't follow the TV app",
          "Automation permission is turned off, so precise sync in windowed playback is unavailable.\n\n"
          "Enable it in System Settings › Privacy & Security › Automation › Lumerix → TV.",
          {"Open System Settings", "Later"},
          {}};
}

inline Alert aboutAlert() {
  return {Alert::Style::informational,
          "Lumerix 0.1",
          "Floating subtitles for the Apple TV app — auto-synced to playback, even in full screen.\n\n"
          "Sync data via the MediaRemote Adapter project (BSD-3-Clause).",
          {},
          {}};
}

inline Alert onboardingAlert() {
  return {Alert::Style::informational,
          "Welcome to Lumerix",
          "",
          {"Get Started"},
          {
              {"tv", "Auto-sync", " — Play in the TV app — Lumerix follows automatically, windowed or full screen.\n"},
              {"doc.badge.plus", "Load subtitles",
               " — Drag an .srt/.vtt onto the bar, or 𝗣 menu → Open Subtitle. Next episodes load by number.\n"},
              {"arrow.up.and.down.and.arrow.left.and.right", "Move & resize",
               " — Drag the bar anywhere; drag its edges to resize. Hover shows the outline.\n"},
              {"keyboard", "Fine-tune",
               " — Click the bar once, then ← → (±0.5 s) · , . (±0.1 s) · + − text size · T background.\n"},
              {"lock.shield", "Permission", " — If macOS asks to let Lumerix control “TV”, click Allow.\n"},
          },
          GuideLayout{.paragraphSpacing = 12,
                      .lineSpacing = 2,
                      .headIndent = 24,
                      .fontSize = 13,
                      .symbolPointSize = 15,
                      .symbolSemibold = true,
                      .width = 440,
                      .extraHeight = 8}};
}

}  // namespace lumerix::texts
