#include "sync/SourceTexts.h"

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
          name.empty() ? "No player is playing" : name + " is not playing",
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
