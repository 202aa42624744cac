#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ui/Menu.h"

namespace lumerix {

class Controller;
class SettingsStore;

// What the bar's keys do while another program has the keyboard: the same
// operations, reached through a chord of modifiers held with the bar's own
// key, or through `lumerix --do NAME` from anything that can run a command.
struct GlobalAction {
  std::string_view name;         // for --do, and the id a desktop's shortcut service keeps
  std::string_view keysym;       // the key, by its X keysym name ("Right", "comma", "f")
  std::string_view label;        // the key as people read it ("→", ",", "F")
  std::string_view description;  // for lists of shortcuts the desktop shows
  void (*run)(Controller&);
};

// Every action, one row each, in the order lists show them.
std::span<const GlobalAction> globalActions() noexcept;
const GlobalAction* findGlobalAction(std::string_view name) noexcept;
// "offset+0.5, offset-0.5, ...", for messages about a name not among them.
std::string globalActionNames();

// The modifiers held with the key. Stored in the settings as words joined
// by "+" ("Ctrl+Alt+Super") on every platform; shown as the platform says.
struct Chord {
  static constexpr unsigned ctrl = 1, alt = 2, shift = 4, super = 8;
  unsigned mods = 0;
  bool operator==(const Chord&) const = default;
};

// macOS shows ⌃⌥⇧⌘ glued to the key; the others words joined by "+".
enum class KeyNames { mac, pc };
KeyNames keyNamesFor(MenuStyle style) noexcept;

// None for text that names no modifier, an unknown word, or Shift alone
// (Shift with a key is typing, not a shortcut).
std::optional<Chord> parseChord(std::string_view text) noexcept;
std::string chordSetting(Chord chord);  // the stored form
std::string chordText(Chord chord, KeyNames names);
// The chord with the action's key, as a hint or a list shows it.
std::string shortcutText(Chord chord, const GlobalAction& action, KeyNames names);

// The default first, then the alternatives Preferences offers. None of them
// is a default shortcut of GNOME, KDE Plasma, Xfce or macOS for the keys
// above (Ctrl+Alt with arrows switches workspaces on several desktops;
// Super+Alt does on GNOME, Ctrl+Super on Plasma).
std::span<const Chord> chordChoices(KeyNames names) noexcept;

// The "GlobalShortcuts" switch and the "GlobalModifiers" chord, with their
// defaults; a stored chord that does not parse reads as the default.
void registerGlobalKeyDefaults(SettingsStore& settings, KeyNames names);
struct GlobalKeySettings {
  bool enabled = true;
  Chord chord;
};
GlobalKeySettings readGlobalKeySettings(const SettingsStore& settings, KeyNames names);

// What a shell's key service reports for Preferences' one line about it.
enum class GlobalKeysState {
  active,       // the chord works everywhere, but for the refused keys
  off,          // the user turned it off
  unavailable,  // this desktop gives programs no such keys: --do instead
  waiting,      // the desktop was asked and has not answered yet
};
std::string globalKeysLine(GlobalKeysState state, Chord chord, const std::vector<const GlobalAction*>& refused,
                           KeyNames names);
// Where the desktop binds the keys itself (and may choose others, or let
// the user choose): what it bound, action by action, in its own words.
struct BoundKey {
  const GlobalAction* action;
  std::string trigger;  // empty: bound to nothing
};
std::string boundKeysLine(const std::vector<BoundKey>& bound);
// Said once when the desktop's shortcut service says no, or stops.
inline constexpr std::string_view shortcutsDeclinedNote =
    "The desktop declined the shortcuts: bind lumerix --do ACTION to keys instead";
inline constexpr std::string_view shortcutsEndedNote =
    "The desktop ended the shortcuts: bind lumerix --do ACTION to keys instead";
// Preferences' words around it.
inline constexpr std::string_view globalKeysTitle = "Shortcuts";
inline constexpr std::string_view globalKeysCheckTitle = "Also while other programs have the keyboard";

// The trigger a desktop's shortcut service is asked for ("CTRL+ALT+LOGO+Right").
std::string preferredTrigger(Chord chord, const GlobalAction& action);

}  // namespace lumerix
