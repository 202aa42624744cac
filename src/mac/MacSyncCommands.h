#pragma once

#include <optional>
#include <string>

#include "sync/SyncCommands.h"

namespace lumerix {

// The player Lumerix follows on macOS: Apple's TV app.
inline constexpr const char* tvAppBundleID = "com.apple.TV";

// Where the now-playing adapter lives in Lumerix.app, relative to
// Contents/. The framework goes where the bundle's private frameworks go:
// Contents/Frameworks (what NSBundle.privateFrameworksPath names, and where
// codesign --deep looks); the build copies both there.
inline constexpr const char* adapterScriptInBundle = "Resources/mediaremote-adapter.pl";
inline constexpr const char* adapterFrameworkInBundle = "Frameworks/MediaRemoteAdapter.framework";

// osascript for the poller; perl running the adapter script and its
// framework from the application bundle for the stream. contents: the
// bundle's Contents folder; none outside a bundle (the command-line tool),
// where the poller works alone. Plain C++, so the command lines are tested
// on every platform.
SyncCommands macSyncCommands(std::optional<std::string> contents);

}  // namespace lumerix
