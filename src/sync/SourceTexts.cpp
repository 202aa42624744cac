#include "sync/SourceTexts.h"

#include "util/Unicode.h"

namespace lumerix {

const SourceTexts& macSourceTexts() {
  static const SourceTexts texts{
      {
          "Connecting to the TV app…",
          "Automation permission needed — System Settings › Privacy & Security › Automation › Lumerix → enable TV",
          "TV app is not playing",
          "Cannot read the TV app (check Automation permission)",
      },
      {
          "Connecting to media services…",
          "Sync helper is missing from the app bundle",
          "Cannot launch sync helper: ",
          "Sync helper stopped — restarting…",
          "Nothing is playing",
          "TV app reports no playback position yet",
          "Active player is ",
          " — waiting for the TV app",
      },
  };
  return texts;
}

namespace {

// Browsers register on MPRIS only while a video with sound plays: a muted
// tab is invisible, and the user should hear why rather than "not playing".
bool isBrowser(std::string_view name) {
  const std::string lower = unicode::lowercased(name);
  for (std::string_view browser : {"chromium", "chrome", "firefox", "brave", "vivaldi", "opera", "edge", "epiphany"}) {
    if (lower == browser) return true;
  }
  return false;
}

}  // namespace

SourceTexts linuxSourceTexts(std::string_view player, const std::vector<std::string>& helperLookedIn) {
  const std::string name(player);
  std::string lookedIn;
  for (const std::string& place : helperLookedIn) lookedIn += (lookedIn.empty() ? "" : ", ") + place;
  return {
      {
          "Connecting to the player…",
          // Players share their position over the session bus without asking;
          // a refusal can only come from the player itself.
          name.empty() ? "The player refused to answer" : name + " refused to answer",
          name.empty()      ? "No player is playing"
          : isBrowser(name) ? "Browsers announce only videos with sound: unmute the tab"
                            : name + " is not playing",
          "Cannot read the player",
      },
      {
          "Connecting to media services…",
          "Sync helper lumerix-mpris is missing (looked in " + lookedIn + ")",
          "Cannot launch sync helper: ",
          "Sync helper stopped — restarting…",
          "Nothing is playing",
          name.empty() ? "The player reports no playback position yet" : name + " reports no playback position yet",
          "Active player is ",
          name.empty() ? " — waiting for a player" : " — waiting for " + name,
      },
  };
}

}  // namespace lumerix
