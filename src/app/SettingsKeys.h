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
// The second subtitle: how it is drawn, and the start-up pair it was last
// loaded in (the file and the first it was shown with).
inline constexpr const char* secondPosition = "SecondPosition";     // string: "below" (else) or "above"
inline constexpr const char* secondFontSize = "SecondFontSize";     // double, points; unset: 0.8 x FontSize
inline constexpr const char* secondColor = "SecondColor";           // string "#RRGGBB"
inline constexpr const char* secondSubtitlePath = "SecondSubtitlePath";  // string; empty: none
inline constexpr const char* secondPairedWith = "SecondSubtitleFirst";   // string: the first's path then
inline constexpr const char* globalShortcuts = "GlobalShortcuts";  // bool: the bar's keys with a chord, anywhere
inline constexpr const char* globalModifiers = "GlobalModifiers";  // string: that chord, "Ctrl+Alt+Super"
// string: the encoding read when the guess is unsure; unset or empty: none
inline constexpr const char* fallbackEncoding = "FallbackEncoding";
// The panel's frame, saved and restored by the shell under this name.
inline constexpr const char* panelFrame = "LumerixPanel";

}  // namespace lumerix::keys
