#pragma once

// Every key the program keeps in the settings store, in one place.
namespace lumerix::keys {

inline constexpr const char* fontSize = "FontSize";              // double, points
inline constexpr const char* panelAlpha = "PanelAlpha";          // double, 0.2 to 1
inline constexpr const char* bgMode = "BGMode";                  // integer: 0 outline, 1 black band
inline constexpr const char* strokeWidth = "StrokeWidth";        // double, percent of the font size
inline constexpr const char* didOnboard = "DidOnboard";          // bool: the first-run guide was shown
inline constexpr const char* debugLog = "DebugLog";              // bool, set by hand: the PXDBG line
inline constexpr const char* subtitleFolder = "SubtitleFolder";  // string: where the next episode is looked for
inline constexpr const char* listenAlways = "ListenAlways";      // bool: keep in sync by listening while playing
inline constexpr const char* targetPlayer = "TargetPlayer";      // string, Linux: the MPRIS player to follow
// The panel's frame, saved and restored by the shell under this name.
inline constexpr const char* panelFrame = "LumerixPanel";

}  // namespace lumerix::keys
