#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lumerix {

// What the two sources say while they have no position. One table per
// platform: the macOS app speaks of the TV app and its Automation setting;
// the Linux build names the player it follows and never mentions either.
struct PollerTexts {
  std::string connecting;
  std::string permission;  // the system refused us the player
  std::string idle;        // the player is not playing
  std::string unreadable;
};

struct StreamTexts {
  std::string connecting;
  std::string missing;  // the helper is not installed
  std::string launchFailedPrefix;
  std::string restarting;
  std::string nothingPlaying;
  std::string noPosition;
  // "<prefix><identity of the active player><suffix>": another player is active.
  std::string otherPlayerPrefix;
  std::string otherPlayerSuffix;
};

struct SourceTexts {
  PollerTexts poller;
  StreamTexts stream;
};

// The TV app's words, byte for byte.
const SourceTexts& macSourceTexts();

// player: the MPRIS name followed ("mpv"), empty when any player will do;
// helperLookedIn: where the lumerix-mpris helper was looked for.
SourceTexts linuxSourceTexts(std::string_view player, const std::vector<std::string>& helperLookedIn);

}  // namespace lumerix
