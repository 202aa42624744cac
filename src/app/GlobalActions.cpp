#include "app/GlobalActions.h"

#include <array>

#include "app/Controller.h"
#include "app/SettingsKeys.h"
#include "platform/SettingsStore.h"

namespace lumerix {

namespace {

// A new action is one more row; the shells and --do take it from here.
constexpr GlobalAction kActions[] = {
    {"offset+0.5", "Right", "→", "Subtitles later by 0.5 s", [](Controller& c) { c.bumpOffset(+0.5); }},
    {"offset-0.5", "Left", "←", "Subtitles earlier by 0.5 s", [](Controller& c) { c.bumpOffset(-0.5); }},
    {"offset+0.1", "period", ".", "Subtitles later by 0.1 s", [](Controller& c) { c.bumpOffset(+0.1); }},
    {"offset-0.1", "comma", ",", "Subtitles earlier by 0.1 s", [](Controller& c) { c.bumpOffset(-0.1); }},
    {"rate-preset", "f", "F", "Next frame-rate ratio", [](Controller& c) { c.cycleFPS(); }},
    {"mark1", "1", "1", "Calibration mark 1 (a line early in the video)", [](Controller& c) { c.markPoint(1); }},
    {"mark2", "2", "2", "Calibration mark 2 (a line near the end)", [](Controller& c) { c.markPoint(2); }},
    {"toggle-bar", "h", "H", "Hide or show the subtitle bar", [](Controller& c) { c.toggleBar(); }},
    {"listen", "l", "L", "Sync by listening, or stop listening", [](Controller& c) { c.toggleListening(); }},
    {"switch", "s", "S", "Adjust the other subtitle (first or second)", [](Controller& c) { c.switchAdjusted(); }},
};

struct ModifierName {
  unsigned bit;
  std::string_view word, symbol, trigger;
};
// In the order each platform writes them: Apple puts ⌃⌥⇧⌘, the others
// Ctrl+Alt+Shift+Super.
constexpr ModifierName kModifiers[] = {
    {Chord::ctrl, "Ctrl", "⌃", "CTRL"},
    {Chord::alt, "Alt", "⌥", "ALT"},
    {Chord::shift, "Shift", "⇧", "SHIFT"},
    {Chord::super, "Super", "⌘", "LOGO"},
};

constexpr Chord kPcChoices[] = {
    {Chord::ctrl | Chord::alt | Chord::super}, {Chord::alt | Chord::shift}, {Chord::ctrl | Chord::shift}};
// ⌃⌥ only clashes with VoiceOver's keys, and only while VoiceOver runs.
constexpr Chord kMacChoices[] = {
    {Chord::ctrl | Chord::alt}, {Chord::ctrl | Chord::alt | Chord::super}, {Chord::ctrl | Chord::shift}};

bool sameWord(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char ch) { return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::optional<unsigned> modifierBit(std::string_view word) {
  struct Alias {
    std::string_view word;
    unsigned bit;
  };
  // What people write in config files and what other platforms call the keys.
  static constexpr Alias aliases[] = {
      {"ctrl", Chord::ctrl},  {"control", Chord::ctrl}, {"⌃", Chord::ctrl},        {"alt", Chord::alt},
      {"option", Chord::alt}, {"opt", Chord::alt},      {"⌥", Chord::alt},         {"shift", Chord::shift},
      {"⇧", Chord::shift},    {"super", Chord::super},  {"meta", Chord::super},    {"logo", Chord::super},
      {"win", Chord::super},  {"cmd", Chord::super},    {"command", Chord::super}, {"⌘", Chord::super},
  };
  for (const Alias& a : aliases) {
    if (sameWord(word, a.word)) return a.bit;
  }
  return std::nullopt;
}

}  // namespace

std::span<const GlobalAction> globalActions() noexcept {
  return kActions;
}

const GlobalAction* findGlobalAction(std::string_view name) noexcept {
  for (const GlobalAction& a : kActions) {
    if (a.name == name) return &a;
  }
  return nullptr;
}

std::string globalActionNames() {
  std::string names;
  for (const GlobalAction& a : kActions) {
    if (!names.empty()) names += ", ";
    names += a.name;
  }
  return names;
}

KeyNames keyNamesFor(MenuStyle style) noexcept {
  return style == MenuStyle::commandShortcuts ? KeyNames::mac : KeyNames::pc;
}

std::optional<Chord> parseChord(std::string_view text) noexcept {
  Chord chord;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find('+', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view word = text.substr(start, end - start);
    while (!word.empty() && word.front() == ' ') word.remove_prefix(1);
    while (!word.empty() && word.back() == ' ') word.remove_suffix(1);
    const auto bit = modifierBit(word);
    if (!bit) return std::nullopt;
    chord.mods |= *bit;
    start = end + 1;
  }
  if ((chord.mods & ~Chord::shift) == 0) return std::nullopt;
  return chord;
}

std::string chordSetting(Chord chord) {
  std::string text;
  for (const ModifierName& m : kModifiers) {
    if (!(chord.mods & m.bit)) continue;
    if (!text.empty()) text += '+';
    text += m.word;
  }
  return text;
}

std::string chordText(Chord chord, KeyNames names) {
  if (names == KeyNames::pc) return chordSetting(chord);
  std::string text;
  for (const ModifierName& m : kModifiers) {
    if (chord.mods & m.bit) text += m.symbol;
  }
  return text;
}

std::string shortcutText(Chord chord, const GlobalAction& action, KeyNames names) {
  return chordText(chord, names) + (names == KeyNames::pc ? "+" : "") + std::string(action.label);
}

std::span<const Chord> chordChoices(KeyNames names) noexcept {
  if (names == KeyNames::mac) return kMacChoices;
  return kPcChoices;
}

void registerGlobalKeyDefaults(SettingsStore& settings, KeyNames names) {
  settings.registerDefaults(
      {{keys::globalShortcuts, true}, {keys::globalModifiers, chordSetting(chordChoices(names).front())}});
}

GlobalKeySettings readGlobalKeySettings(const SettingsStore& settings, KeyNames names) {
  GlobalKeySettings g;
  g.enabled = settings.boolFor(keys::globalShortcuts);
  const auto stored = settings.stringFor(keys::globalModifiers);
  const auto parsed = stored ? parseChord(*stored) : std::nullopt;
  g.chord = parsed ? *parsed : chordChoices(names).front();
  return g;
}

std::string preferredTrigger(Chord chord, const GlobalAction& action) {
  std::string text;
  for (const ModifierName& m : kModifiers) {
    if (!(chord.mods & m.bit)) continue;
    text += m.trigger;
    text += '+';
  }
  return text + std::string(action.keysym);
}

std::string globalKeysLine(GlobalKeysState state, Chord chord, const std::vector<const GlobalAction*>& refused,
                           KeyNames names) {
  switch (state) {
    case GlobalKeysState::off:
      return "Only on the bar, after a click";
    case GlobalKeysState::unavailable:
      return "This desktop gives no such keys to programs: bind lumerix --do ACTION to keys in its settings";
    case GlobalKeysState::waiting:
      return "Waiting for the desktop to bind the keys…";
    case GlobalKeysState::active:
      break;
  }
  std::string keys;
  for (const GlobalAction& a : kActions) {
    bool taken = false;
    for (const GlobalAction* r : refused) taken = taken || r == &a;
    if (taken) continue;
    if (!keys.empty()) keys += names == KeyNames::pc ? " " : "";
    keys += a.label;
  }
  std::string line = keys.empty() ? "Every key is taken by other programs"
                                  : chordText(chord, names) + (names == KeyNames::pc ? " with " : "") + keys;
  if (!refused.empty() && !keys.empty()) {
    line += " (taken: ";
    for (std::size_t i = 0; i < refused.size(); ++i) line += (i ? " " : "") + std::string(refused[i]->label);
    line += ")";
  }
  return line;
}

std::string boundKeysLine(const std::vector<BoundKey>& bound) {
  std::string line;
  for (const BoundKey& b : bound) {
    if (b.trigger.empty()) continue;
    line += line.empty() ? "" : " · ";
    line += std::string(b.action->label) + " " + b.trigger;
  }
  return line.empty() ? "The desktop bound no keys: choose them in its shortcut settings"
                      : "Bound by the desktop: " + line;
}

// ---- the controller's side ---------------------------------------------------

bool Controller::runAction(std::string_view name) noexcept {
  const GlobalAction* action = findGlobalAction(name);
  if (!action) return false;
  action->run(*this);
  return true;
}

void Controller::toggleBar() noexcept {
  s.barHidden = !s.barHidden;
  services.host.setPanelHidden(s.barHidden);
}

void Controller::shortcutsRefused(const std::vector<const GlobalAction*>& refused, Chord chord) noexcept {
  if (refused.empty()) return;
  std::string keys;
  for (const GlobalAction* a : refused) {
    if (!keys.empty()) keys += ", ";
    keys += shortcutText(chord, *a, keyNamesFor(conventions.menu));
  }
  // A note, not a hint: it must outlast the start hint it may arrive under.
  postNote(keys + (refused.size() == 1 ? " is taken by another program" : " are taken by other programs"));
}

GlobalKeySettings Controller::globalKeySettings() const noexcept {
  return readGlobalKeySettings(services.defaults, keyNamesFor(conventions.menu));
}

void Controller::setGlobalShortcuts(bool on) noexcept {
  services.defaults.set(keys::globalShortcuts, on);
}

void Controller::setGlobalChord(Chord chord) noexcept {
  services.defaults.set(keys::globalModifiers, chordSetting(chord));
}

}  // namespace lumerix
