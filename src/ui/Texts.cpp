#include "ui/Texts.h"

namespace lumerix {

namespace {

// The guide's look is the same everywhere; only its words and icons differ.
constexpr GuideLayout kGuideLayout{.paragraphSpacing = 12,
                                   .lineSpacing = 2,
                                   .headIndent = 24,
                                   .fontSize = 13,
                                   .symbolPointSize = 15,
                                   .symbolSemibold = true,
                                   .width = 440,
                                   .extraHeight = 8};

const std::string kTimingRow =
    " — Click the bar once, then ← → (±0.5 s) · , . (±0.1 s) · + − text size · T background.\n";
// The Linux bar's keys are plain letters: the guide names them as typed.
const std::string kLinuxTimingRow =
    " — Click the bar once, then ← → (±0.5 s) · , . (±0.1 s) · + − text size · t background.\n";
const std::string kMoveRow = " — Drag the bar anywhere; drag its edges to resize. Hover shows the outline.\n";

}  // namespace

const UiTexts& macUiTexts() {
  static const UiTexts texts{
      "⇄ Auto-syncing with TV — click me once, then: ←→/,. offset · t background · ± font · o open",
      "Not connected to the TV app — cannot calibrate",
      "Grant TV Permission…",
      "Enable Lumerix → TV in the Automation list",
      "x-apple.systempreferences:com.apple.preference.security?Privacy_Automation",
      {Alert::Style::warning,
       "Lumerix can't follow the TV app",
       "Automation permission is turned off, so precise sync in windowed playback is unavailable.\n\n"
       "Enable it in System Settings › Privacy & Security › Automation › Lumerix → TV.",
       {"Open System Settings", "Later"},
       {},
       {}},
      {Alert::Style::informational,
       "Lumerix 0.1",
       "Floating subtitles for the Apple TV app — auto-synced to playback, even in full screen.\n\n"
       "Sync data via the MediaRemote Adapter project (BSD-3-Clause).",
       {},
       {},
       {}},
      {Alert::Style::informational,
       "Welcome to Lumerix",
       "",
       {"Get Started"},
       {
           {"tv", "Auto-sync", " — Play in the TV app — Lumerix follows automatically, windowed or full screen.\n"},
           {"doc.badge.plus", "Load subtitles",
            " — Drag an .srt/.vtt onto the bar, or 𝗣 menu → Open Subtitle. Next episodes load by number.\n"},
           {"arrow.up.and.down.and.arrow.left.and.right", "Move & resize", kMoveRow},
           {"keyboard", "Fine-tune", kTimingRow},
           {"lock.shield", "Permission", " — If macOS asks to let Lumerix control “TV”, click Allow.\n"},
       },
       kGuideLayout},
  };
  return texts;
}

UiTexts linuxUiTexts(std::string_view player) {
  const std::string name(player);
  const std::string who = name.empty() ? "your player" : name;
  // Icons are freedesktop icon-theme names here; a theme without one shows
  // the row without an icon.
  return {
      "⇄ Auto-syncing with " + who + " — click me once, then: ←→/,. offset · t background · ± font · o open",
      name.empty() ? "Not connected to a player — cannot calibrate"
                   : "Not connected to " + name + " — cannot calibrate",
      "Player Permission…",
      "Nothing to grant: players share their position over MPRIS",
      "",
      {Alert::Style::warning,
       name.empty() ? "Lumerix can't follow the player" : "Lumerix can't follow " + name,
       "The player refused to share its position, so precise sync in windowed playback is unavailable.",
       {"OK"},
       {},
       {}},
      {Alert::Style::informational,
       "Lumerix 0.1",
       "Floating subtitles for any media player — auto-synced to playback, even in full screen.\n\n"
       "Follows MPRIS players such as mpv, VLC and web browsers.",
       {},
       {},
       {}},
      {Alert::Style::informational,
       "Welcome to Lumerix",
       "",
       {"Get Started"},
       {
           {"video-display", "Auto-sync",
            " — Play in " + who + " — Lumerix follows automatically, windowed or full screen.\n"},
           {"document-open", "Load subtitles",
            " — Drag an .srt, .vtt, .ass or .ssa onto the bar, or right-click it → Open Subtitle. Next episodes load by "
            "number.\n"},
           {"view-fullscreen", "Move & resize", kMoveRow},
           {"input-keyboard", "Fine-tune", kLinuxTimingRow},
           {"media-playback-start", "Players",
            " — Any MPRIS player works; lumerix --player NAME follows one by name.\n"},
       },
       kGuideLayout},
  };
}

std::string consoleStartHint(std::string_view startHint) {
  const size_t instructions = startHint.find(" — ");
  return std::string(startHint.substr(0, instructions));
}

}  // namespace lumerix
