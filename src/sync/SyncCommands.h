#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sync/MediaRemoteSync.h"
#include "sync/TVSync.h"

namespace lumerix {

// How each platform runs the two sources' helpers.
struct SyncCommands {
  std::vector<std::string> poll;
  std::vector<std::string> consent;  // empty: no consent run
  MediaRemoteSync::CommandProvider stream;
  std::string streamTarget;  // the now-playing identity that counts; empty: any
  MediaRemoteSync::TargetMatch streamTargetMatch = MediaRemoteSync::TargetMatch::exact;
};

// macOS: osascript for the poller; perl running the adapter script and its
// framework from the application bundle for the stream.
SyncCommands macSyncCommands(std::optional<std::string> resourceDir, std::optional<std::string> privateFrameworksDir);

// Linux: the lumerix-mpris helper for both; player is an MPRIS name such as
// "mpv" (empty: whichever player is playing).
SyncCommands linuxSyncCommands(const std::string& helperPath, const std::string& player);

}  // namespace lumerix
