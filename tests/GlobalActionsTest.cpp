#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "ControllerFakes.h"
#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "app/CommandLine.h"
#include "app/Controller.h"
#include "app/GlobalActions.h"
#include "platform/KeyCodes.h"

namespace lumerix {
namespace {

using ::testing::ElementsAre;

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

struct HidingHost : test::RecordingHost {
  void setPanelHidden(bool hidden) override { calls.push_back(hidden ? "hide" : "show"); }
};

struct Rig {
  test::FakeSystem clock;
  MemorySettingsStore settings;
  HidingHost host;
  test::RecordingDialogs dialogs;
  test::ScriptedSource* source = nullptr;
  std::unique_ptr<Controller> c;

  explicit Rig(std::optional<std::string> subtitle = std::nullopt, Conventions conventions = {}) {
    auto owned = std::make_unique<test::ScriptedSource>();
    source = owned.get();
    c = std::make_unique<Controller>(ControllerServices{clock, settings, host, dialogs, dialogs}, std::move(owned),
                                     subtitle, conventions);
  }
};

Chord chord(unsigned mods) {
  return Chord{mods};
}

// ---- the chord -------------------------------------------------------------------

TEST(GlobalChord, ReadsWhatPeopleWriteAndRefusesTheRest) {
  struct Row {
    const char* text;
    std::optional<unsigned> mods;
  };
  const Row rows[] = {
      {"Ctrl+Alt+Super", Chord::ctrl | Chord::alt | Chord::super},
      {"super + alt + CONTROL", Chord::ctrl | Chord::alt | Chord::super},
      {"Alt+Shift", Chord::alt | Chord::shift},
      {"Option+Command", Chord::alt | Chord::super},
      {"⌃⌥", std::nullopt},  // symbols come one to a word
      {"⌃+⌥", Chord::ctrl | Chord::alt},
      {"Meta", Chord::super},
      {"Shift", std::nullopt},  // Shift with a key is typing
      {"Shift+Shift", std::nullopt},
      {"", std::nullopt},
      {"Ctrl+", std::nullopt},
      {"+Ctrl", std::nullopt},
      {"Ctrl+Hyper", std::nullopt},
      {"Ctrl+Alt+Right", std::nullopt},  // a key is no modifier
  };
  for (const Row& r : rows) {
    const auto parsed = parseChord(r.text);
    EXPECT_EQ(parsed.has_value(), r.mods.has_value()) << r.text;
    if (parsed && r.mods) {
      EXPECT_EQ(parsed->mods, *r.mods) << r.text;
    }
  }
  // What is stored reads back as itself, on both platforms' lists.
  for (KeyNames names : {KeyNames::pc, KeyNames::mac}) {
    for (Chord each : chordChoices(names)) EXPECT_EQ(parseChord(chordSetting(each)), each) << chordSetting(each);
  }
}

TEST(GlobalChord, ChoicesStayClearOfTheDesktopsOwnShortcuts) {
  // Held with arrows, digits, H or F these already mean something: Ctrl+Alt
  // switches workspaces (GNOME, Xfce), Super+Alt too (GNOME), Ctrl+Super
  // (Plasma), Ctrl+Alt+Shift moves windows between them (GNOME, Xfce),
  // Super+Shift between monitors (GNOME), Super alone tiles and hides.
  const std::set<unsigned> taken = {
      Chord::ctrl | Chord::alt,
      Chord::super | Chord::alt,
      Chord::ctrl | Chord::super,
      Chord::ctrl | Chord::alt | Chord::shift,
      Chord::super | Chord::shift,
      Chord::super,
      Chord::ctrl,
      Chord::alt,
  };
  for (Chord each : chordChoices(KeyNames::pc)) EXPECT_FALSE(taken.contains(each.mods)) << chordSetting(each);
  // macOS: ⌃ with arrows switches spaces, ⌘ alone is every application's.
  for (Chord each : chordChoices(KeyNames::mac)) {
    EXPECT_NE(each.mods, Chord::ctrl) << chordSetting(each);
    EXPECT_NE(each.mods, Chord::super) << chordSetting(each);
  }
  EXPECT_EQ(chordText(chordChoices(KeyNames::pc).front(), KeyNames::pc), "Ctrl+Alt+Super");
  EXPECT_EQ(chordText(chordChoices(KeyNames::mac).front(), KeyNames::mac), "⌃⌥");
}

TEST(GlobalChord, ShownAndAskedForAsEachPlatformWritesIt) {
  const GlobalAction& right = *findGlobalAction("offset+0.5");
  const GlobalAction& comma = *findGlobalAction("offset-0.1");
  const Chord all = chord(Chord::ctrl | Chord::alt | Chord::shift | Chord::super);
  EXPECT_EQ(shortcutText(all, right, KeyNames::pc), "Ctrl+Alt+Shift+Super+→");
  EXPECT_EQ(shortcutText(all, comma, KeyNames::mac), "⌃⌥⇧⌘,");
  EXPECT_EQ(preferredTrigger(chord(Chord::ctrl | Chord::alt | Chord::super), right), "CTRL+ALT+LOGO+Right");
  EXPECT_EQ(preferredTrigger(chord(Chord::alt | Chord::shift), comma), "ALT+SHIFT+comma");
}

// ---- the actions -----------------------------------------------------------------

TEST(GlobalActionTable, NamesAndKeysAreOneEach) {
  std::set<std::string_view> names, keysyms, labels;
  for (const GlobalAction& a : globalActions()) {
    EXPECT_TRUE(names.insert(a.name).second) << a.name;
    EXPECT_TRUE(keysyms.insert(a.keysym).second) << a.keysym;
    EXPECT_TRUE(labels.insert(a.label).second) << a.label;
    EXPECT_FALSE(a.description.empty()) << a.name;
    EXPECT_EQ(findGlobalAction(a.name), &a);
  }
  EXPECT_EQ(findGlobalAction("Offset+0.5"), nullptr);
  EXPECT_EQ(findGlobalAction(""), nullptr);
  EXPECT_EQ(globalActionNames(),
            "offset+0.5, offset-0.5, offset+0.1, offset-0.1, rate-preset, mark1, mark2, toggle-bar, listen, switch");
}

TEST(GlobalActionTable, EachRunsWhatTheBarsKeyDoes) {
  test::TempDir dir;
  dir.write("a.srt", "1\n00:00:01,000 --> 00:00:03,000\nFirst\n");
  Rig r(dir.path("a.srt"));
  Controller& c = *r.c;
  EXPECT_TRUE(c.runAction("offset+0.5"));
  EXPECT_TRUE(c.runAction("offset-0.1"));
  EXPECT_DOUBLE_EQ(c.state().offset, 0.4);
  EXPECT_EQ(r.host.status, "Timing offset +0.4s");
  EXPECT_NE(slurp(dir.path("a.srt.sync.json")).find("\"offset\""), std::string::npos);
  EXPECT_TRUE(c.runAction("rate-preset"));
  EXPECT_EQ(c.state().scaleIdx, 1);
  r.source->next = test::playingAt(12);
  EXPECT_TRUE(c.runAction("mark1"));
  EXPECT_TRUE(c.runAction("mark2"));
  EXPECT_EQ(c.state().calPoints.count(1), 1u);
  EXPECT_EQ(c.state().calPoints.count(2), 1u);
  EXPECT_FALSE(c.runAction("offset+5"));
  EXPECT_DOUBLE_EQ(c.state().offset, 0.4) << "an unknown name changes nothing";
  // The keys of the second subtitle and of listening, as their bar keys say.
  EXPECT_TRUE(c.runAction("switch"));
  EXPECT_EQ(r.host.status, "No second subtitle — open one from the menu");
  EXPECT_TRUE(c.runAction("listen"));
  EXPECT_EQ(r.host.status, "Too few spoken lines in this subtitle to sync by listening");

  // h hides the bar until it is pressed again, from the bar or from afar.
  r.host.calls.clear();
  EXPECT_TRUE(c.handleKey(keycode::none, false, "h"));
  EXPECT_TRUE(c.state().barHidden);
  EXPECT_TRUE(c.runAction("toggle-bar"));
  EXPECT_FALSE(c.state().barHidden);
  EXPECT_FALSE(c.handleKey(keycode::none, true, "H")) << "as with the other letters, Shift is no shortcut";
  EXPECT_THAT(r.host.calls, ElementsAre("hide", "show"));
}

TEST(GlobalKeySettingsTest, OnByDefaultAndABadChordReadsAsTheDefault) {
  Rig pc({}, {linuxUiTexts(""), EpisodeRule::seasonEpisodeTag, MenuStyle::barKeys});
  GlobalKeySettings g = pc.c->globalKeySettings();
  EXPECT_TRUE(g.enabled);
  EXPECT_EQ(chordSetting(g.chord), "Ctrl+Alt+Super");
  pc.c->setGlobalChord(chord(Chord::alt | Chord::shift));
  pc.c->setGlobalShortcuts(false);
  EXPECT_EQ(pc.settings.stringFor("GlobalModifiers"), "Alt+Shift");
  EXPECT_FALSE(pc.c->globalKeySettings().enabled);
  EXPECT_EQ(pc.c->globalKeySettings().chord, chord(Chord::alt | Chord::shift));
  for (const char* bad : {"Shift", "Hyper+F", ""}) {
    pc.settings.set("GlobalModifiers", std::string(bad));
    EXPECT_EQ(chordSetting(pc.c->globalKeySettings().chord), "Ctrl+Alt+Super") << bad;
  }
  pc.settings.set("GlobalModifiers", 3LL);  // a number where words belong
  EXPECT_EQ(chordSetting(pc.c->globalKeySettings().chord), "Ctrl+Alt+Super");

  Rig mac;  // the default conventions are the Mac's
  EXPECT_EQ(chordText(mac.c->globalKeySettings().chord, KeyNames::mac), "⌃⌥");
}

TEST(GlobalKeySettingsTest, TakenKeysAreNamedOnceAfterTheStartHint) {
  Rig r({}, {linuxUiTexts(""), EpisodeRule::seasonEpisodeTag, MenuStyle::barKeys});
  const Chord def = r.c->globalKeySettings().chord;
  r.c->shortcutsRefused({}, def);
  r.c->shortcutsRefused({findGlobalAction("rate-preset")}, def);
  r.c->tick();
  EXPECT_NE(r.host.status, "Ctrl+Alt+Super+F is taken by another program") << "the start hint keeps its 3 s";
  r.clock.advance(3.01);
  r.c->tick();
  EXPECT_EQ(r.host.status, "Ctrl+Alt+Super+F is taken by another program");
  r.c->shortcutsRefused({findGlobalAction("offset+0.5"), findGlobalAction("toggle-bar")}, def);
  r.clock.advance(3.01);
  r.c->tick();
  EXPECT_EQ(r.host.status, "Ctrl+Alt+Super+→, Ctrl+Alt+Super+H are taken by other programs");
}

TEST(GlobalKeySettingsTest, PreferencesLineSaysWhatWorks) {
  const Chord def = chord(Chord::ctrl | Chord::alt | Chord::super);
  EXPECT_EQ(globalKeysLine(GlobalKeysState::active, def, {}, KeyNames::pc), "Ctrl+Alt+Super with → ← . , F 1 2 H L S");
  EXPECT_EQ(globalKeysLine(GlobalKeysState::active, def, {findGlobalAction("rate-preset")}, KeyNames::pc),
            "Ctrl+Alt+Super with → ← . , 1 2 H L S (taken: F)");
  EXPECT_EQ(globalKeysLine(GlobalKeysState::active, chord(Chord::ctrl | Chord::alt), {}, KeyNames::mac), "⌃⌥→←.,F12HLS");
  std::vector<const GlobalAction*> all;
  for (const GlobalAction& a : globalActions()) all.push_back(&a);
  EXPECT_EQ(globalKeysLine(GlobalKeysState::active, def, all, KeyNames::pc), "Every key is taken by other programs");
  EXPECT_EQ(globalKeysLine(GlobalKeysState::off, def, {}, KeyNames::pc), "Only on the bar, after a click");
  EXPECT_NE(globalKeysLine(GlobalKeysState::unavailable, def, {}, KeyNames::pc).find("lumerix --do ACTION"),
            std::string::npos);
}

// ---- lumerix --do ------------------------------------------------------------------

TEST(GlobalDoCommand, ParsedAloneAndByName) {
  using Mode = CommandLine::Mode;
  CommandLine cl = parseCommandLine({"--do", "offset-0.1"});
  EXPECT_EQ(cl.mode, Mode::doAction);
  EXPECT_EQ(cl.action, "offset-0.1");
  EXPECT_EQ(parseCommandLine({"--do=toggle-bar"}).action, "toggle-bar");
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"--do"}, {"--do="}, {"--do", "mark1", "a.srt"}, {"a.srt", "--do", "mark1"}, {"--do=mark1", "--headless"}}) {
    cl = parseCommandLine(args);
    EXPECT_EQ(cl.mode, Mode::usageError) << testing::PrintToString(args);
    EXPECT_EQ(cl.error.find('\n'), std::string::npos) << cl.error;
  }
  cl = parseCommandLine({"--do", "offset+5"});
  EXPECT_EQ(cl.mode, Mode::usageError);
  EXPECT_EQ(cl.error, "lumerix: unknown action 'offset+5'; one of: " + globalActionNames());
  // --help lists every action, however many there are.
  const std::string help = helpText(true, true);
  for (const GlobalAction& a : globalActions()) EXPECT_NE(help.find(std::string(a.name)), std::string::npos) << a.name;
  std::istringstream lines(help);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
}

TEST(GlobalDoCommand, WithNoBarRunningSaysSoAndExitsOne) {
  const std::string err = ::testing::TempDir() + "/lumerix-do-" + std::to_string(::getpid()) + ".err";
  // A session bus nobody listens on (an empty address would have GLib
  // start one of its own under X11).
  for (const char* bus : {"unix:path=/nonexistent/bus"}) {
    const std::string cmd = std::string("DBUS_SESSION_BUS_ADDRESS='") + bus +
                            "' '" LUMERIX_BINARY "' --do mark1 >/dev/null 2>'" + err + "'";
    const int raw = std::system(cmd.c_str());
    EXPECT_EQ(WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, 1) << bus;
    EXPECT_EQ(slurp(err), "Lumerix is not running\n") << bus;
  }
  const int raw = std::system(("'" LUMERIX_BINARY "' --do bogus 2>'" + err + "'").c_str());
  EXPECT_EQ(WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, 2);
  std::remove(err.c_str());
}

}  // namespace
}  // namespace lumerix
