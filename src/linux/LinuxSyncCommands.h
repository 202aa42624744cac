#pragma once

#include <string>

#include "sync/SyncCommands.h"

namespace lumerix {

// The lumerix-mpris helper for both sources; player is an MPRIS name such as
// "mpv" (empty: whichever player is playing).
SyncCommands linuxSyncCommands(const std::string& helperPath, const std::string& player);

}  // namespace lumerix
