#pragma once

#include <optional>
#include <string>

#include "sync/SyncCommands.h"

namespace lumerix {

// The player Lumerix follows on macOS: Apple's TV app.
inline constexpr const char* tvAppBundleID = "com.apple.TV";

// osascript for the poller; perl running the adapter script and its
// framework from the application bundle for the stream. Plain C++, so the
// command lines are tested on every platform.
SyncCommands macSyncCommands(std::optional<std::string> resourceDir, std::optional<std::string> privateFrameworksDir);

}  // namespace lumerix
