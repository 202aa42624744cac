// The X11 grabs behind the chord, and the Preferences row that drives them.
// The grab states need no display; the rest is skipped without an X display
// (CI runs it under Xvfb).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtkmm.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "ControllerFakes.h"
#include "FakeSystem.h"
#include "app/Controller.h"
#include "gtk/GlobalKeys.h"
#include "gtk/PreferencesWindow.h"

// Last: Xlib's macros (None, Bool) clash with names in the headers above.
#include <X11/Xlib.h>
#include <gdk/gdkx.h>

namespace lumerix::gtk {
namespace {

const Chord kDefault{Chord::ctrl | Chord::alt | Chord::super};

TEST(GlobalKeysX11States, EveryLockCombinationOnceAndNothingElse) {
  const unsigned chord = ControlMask | Mod1Mask | Mod4Mask;
  EXPECT_EQ(x11ChordState(kDefault), chord);
  const auto states = x11GrabStates(kDefault, Mod2Mask);
  EXPECT_EQ(std::set<unsigned>(states.begin(), states.end()),
            (std::set<unsigned>{chord, chord | LockMask, chord | Mod2Mask, chord | LockMask | Mod2Mask}));
  EXPECT_EQ(states.size(), 4u);
  // No Num Lock, or Num Lock on a bit the chord holds anyway: twice, not four times.
  EXPECT_EQ(x11GrabStates(kDefault, 0).size(), 2u);
  EXPECT_EQ(x11GrabStates(kDefault, Mod4Mask).size(), 2u);
  EXPECT_EQ(x11ChordState(Chord{Chord::alt | Chord::shift}), unsigned(Mod1Mask | ShiftMask));
  // An event's state: locks, AltGr (Mod5) and mouse buttons do not change the chord.
  EXPECT_EQ(x11ChordBitsOf(chord | LockMask | Mod2Mask | Mod5Mask | Button1Mask), chord);
  EXPECT_EQ(x11ChordBitsOf(ControlMask | Mod1Mask), unsigned(ControlMask | Mod1Mask));
}

class WithX11 : public ::testing::Test {
 protected:
  void SetUp() override {
    static const bool display = gtk_init_check(nullptr, nullptr) && GDK_IS_X11_DISPLAY(gdk_display_get_default());
    if (!display) GTEST_SKIP() << "no X display";
    static Glib::RefPtr<Gtk::Application> keep =
        Gtk::Application::create("io.lumerix.GlobalKeysTests", Gio::APPLICATION_NON_UNIQUE);
  }
};

// Another client of the same display, as a desktop's shortcut daemon is.
class OtherClient {
 public:
  OtherClient() : d(XOpenDisplay(nullptr)) {}
  ~OtherClient() { XCloseDisplay(d); }
  // Whether it could take the key with these modifiers (and gives it back).
  bool canTake(const char* keysym, unsigned mods) {
    const KeyCode code = XKeysymToKeycode(d, XStringToKeysym(keysym));
    refused = false;
    XErrorHandler before = XSetErrorHandler(&OtherClient::onError);
    XGrabKey(d, code, mods, DefaultRootWindow(d), False, GrabModeAsync, GrabModeAsync);
    XSync(d, False);
    const bool took = !refused;
    if (took) XUngrabKey(d, code, mods, DefaultRootWindow(d));
    XSync(d, False);
    XSetErrorHandler(before);
    return took;
  }
  void hold(const char* keysym, unsigned mods) {
    XGrabKey(d, XKeysymToKeycode(d, XStringToKeysym(keysym)), mods, DefaultRootWindow(d), False, GrabModeAsync,
             GrabModeAsync);
    XSync(d, False);
  }

 private:
  static int onError(Display*, XErrorEvent* e) {
    refused = refused || e->error_code == BadAccess;
    return 0;
  }
  static inline bool refused = false;
  Display* d;
};

TEST_F(WithX11, GrabsFollowTheSettingWithoutARestartAndTakenKeysAreNamed) {
  std::vector<std::vector<const GlobalAction*>> told;
  auto keys = makeGlobalKeys(
      false, [](const GlobalAction&) {},
      [&](const std::vector<const GlobalAction*>& refused, Chord) { told.push_back(refused); });
  OtherClient other;
  const unsigned chord = x11ChordState(kDefault);

  keys->apply({true, kDefault});
  EXPECT_EQ(keys->state(), GlobalKeysState::active);
  EXPECT_TRUE(keys->refused().empty());
  for (unsigned lock : {0u, unsigned(LockMask)}) {
    EXPECT_FALSE(other.canTake("Right", chord | lock)) << lock;
    EXPECT_FALSE(other.canTake("h", chord | lock)) << lock;
  }
  EXPECT_TRUE(other.canTake("Right", ControlMask | Mod1Mask)) << "only the chord is ours";

  // Another chord: the old one goes back to the desktop.
  const Chord altShift{Chord::alt | Chord::shift};
  keys->apply({true, altShift});
  EXPECT_TRUE(other.canTake("Right", chord));
  EXPECT_FALSE(other.canTake("Right", x11ChordState(altShift)));

  keys->apply({false, altShift});
  EXPECT_EQ(keys->state(), GlobalKeysState::off);
  EXPECT_TRUE(other.canTake("Right", x11ChordState(altShift)));
  EXPECT_TRUE(told.empty());

  // A key held elsewhere: named, and the others taken all the same.
  other.hold("f", chord);
  keys->apply({true, kDefault});
  ASSERT_EQ(told.size(), 1u);
  EXPECT_THAT(told[0], ::testing::ElementsAre(findGlobalAction("rate-preset")));
  EXPECT_EQ(keys->refused(), told[0]);
  EXPECT_FALSE(other.canTake("period", chord));

  keys.reset();  // at exit the keys go back
  EXPECT_TRUE(other.canTake("Right", chord));
  EXPECT_TRUE(other.canTake("period", chord | LockMask));
}

class RecordingKeys : public GlobalKeys {
 public:
  std::vector<GlobalKeySettings> applied;
  GlobalKeysState shown = GlobalKeysState::active;
  std::vector<const GlobalAction*> taken;
  void apply(const GlobalKeySettings& s) override {
    applied.push_back(s);
    shown = s.enabled ? GlobalKeysState::active : GlobalKeysState::off;
  }
  GlobalKeysState state() const override { return shown; }
  const std::vector<const GlobalAction*>& refused() const override { return taken; }
};

TEST_F(WithX11, PreferencesRowWritesTheSettingAndTheKeysFollowAtOnce) {
  lumerix::test::FakeSystem clock;
  MemorySettingsStore settings;
  lumerix::test::RecordingHost host;
  lumerix::test::RecordingDialogs dialogs;
  Controller controller({clock, settings, host, dialogs, dialogs}, std::make_unique<lumerix::test::ScriptedSource>(),
                        std::nullopt, {linuxUiTexts(""), EpisodeRule::seasonEpisodeTag, MenuStyle::barKeys});
  RecordingKeys keys;
  keys.taken = {findGlobalAction("mark2")};
  PreferencesWindow window(controller, &keys);
  window.showFromController();
  EXPECT_TRUE(window.globalKeysBox().get_active());
  EXPECT_EQ(window.chordPopup().get_active_text(), "Ctrl+Alt+Super");
  EXPECT_EQ(window.globalKeysLabel().get_text(), "Ctrl+Alt+Super with → ← . , F 1 H L S (taken: 2)");
  EXPECT_TRUE(keys.applied.empty()) << "showing changes nothing";

  window.chordPopup().set_active(1);
  EXPECT_EQ(settings.stringFor("GlobalModifiers"), "Alt+Shift");
  ASSERT_EQ(keys.applied.size(), 1u);
  EXPECT_EQ(keys.applied.back().chord, (Chord{Chord::alt | Chord::shift}));

  window.globalKeysBox().set_active(false);
  EXPECT_FALSE(settings.boolFor("GlobalShortcuts"));
  ASSERT_EQ(keys.applied.size(), 2u);
  EXPECT_FALSE(keys.applied.back().enabled);
  EXPECT_EQ(window.globalKeysLabel().get_text(), "Only on the bar, after a click");
  EXPECT_FALSE(window.chordPopup().get_sensitive());

  // A chord written by hand shows as itself; a desktop without keys says so.
  settings.set("GlobalModifiers", std::string("Ctrl+Shift+Super"));
  keys.shown = GlobalKeysState::unavailable;
  window.showFromController();
  EXPECT_EQ(window.chordPopup().get_active_text(), "Ctrl+Shift+Super");
  EXPECT_FALSE(window.globalKeysBox().get_sensitive());
  EXPECT_NE(std::string(window.globalKeysLabel().get_text()).find("lumerix --do ACTION"), std::string::npos);
  EXPECT_EQ(keys.applied.size(), 2u);
}

// ---- the desktop portal -------------------------------------------------------------

// A private session bus with a stand-in portal on it (tests/helpers), so the
// test never talks to the desktop it runs on.
class PortalRig {
 public:
  explicit PortalRig(const char* mode) {
    const char* daemon[] = {"dbus-daemon", "--session", "--nofork", "--print-address=1", nullptr};
    int out = -1;
    // Its own complaints (an fd limit it may not raise) are not ours.
    if (!g_spawn_async_with_pipes(nullptr, const_cast<char**>(daemon), nullptr,
                                  GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL), nullptr, nullptr,
                                  &busPid, nullptr, &out, nullptr, nullptr)) {
      return;
    }
    const std::string address = readLine(out);
    ::close(out);
    std::vector<std::string> env{"DBUS_SESSION_BUS_ADDRESS=" + address};
    for (char** e = g_get_environ(); e && *e; ++e) {
      if (!g_str_has_prefix(*e, "DBUS_SESSION_BUS_ADDRESS=")) env.emplace_back(*e);
    }
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    const std::string script = std::string(LUMERIX_SOURCE_DIR) + "/tests/helpers/fake-shortcuts-portal.py";
    // The system's Python, which has the GObject bindings (python3-gi).
    const char* python = g_file_test("/usr/bin/python3", G_FILE_TEST_IS_EXECUTABLE) ? "/usr/bin/python3" : "python3";
    const char* portal[] = {python, script.c_str(), mode, nullptr};
    if (!g_spawn_async_with_pipes(nullptr, const_cast<char**>(portal), envp.data(), G_SPAWN_SEARCH_PATH, nullptr,
                                  nullptr, &portalPid, &portalIn, &portalOut, nullptr, nullptr)) {
      return;
    }
    if (readLine(portalOut) != "ready") return;
    bus = g_dbus_connection_new_for_address_sync(address.c_str(),
                                                 GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                                      G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                                                 nullptr, nullptr, nullptr);
  }
  ~PortalRig() {
    if (bus) g_object_unref(bus);
    if (portalIn >= 0) ::close(portalIn);
    if (portalOut >= 0) ::close(portalOut);
    for (GPid pid : {portalPid, busPid}) {
      if (pid > 0) ::kill(pid, SIGTERM);
      if (pid > 0) ::waitpid(pid, nullptr, 0);
    }
  }
  void tell(const std::string& line) const {
    const std::string l = line + "\n";
    ASSERT_EQ(::write(portalIn, l.data(), l.size()), static_cast<ssize_t>(l.size()));
  }
  std::string heard() const { return readLine(portalOut); }
  // Runs the main loop until cond holds, for at most five seconds.
  static bool until(const std::function<bool()>& cond) {
    const gint64 end = g_get_monotonic_time() + 5 * G_USEC_PER_SEC;
    while (!cond() && g_get_monotonic_time() < end) g_main_context_iteration(nullptr, FALSE), g_usleep(1000);
    return cond();
  }

  GDBusConnection* bus = nullptr;

 private:
  static std::string readLine(int fd) {
    std::string line;
    char c = 0;
    while (::read(fd, &c, 1) == 1 && c != '\n') line += c;
    return line;
  }
  GPid busPid = 0, portalPid = 0;
  int portalIn = -1, portalOut = -1;
};

TEST(GlobalKeysPortalList, AsksForTheChordAndReadsWhatWasBound) {
  GVariant* list = g_variant_ref_sink(portalShortcutList(kDefault));
  EXPECT_EQ(g_variant_n_children(list), globalActions().size());
  const gchar *id = nullptr, *trigger = nullptr, *description = nullptr;
  GVariant* info = nullptr;
  g_variant_get_child(list, 0, "(&s@a{sv})", &id, &info);
  EXPECT_STREQ(id, "offset+0.5");
  ASSERT_TRUE(g_variant_lookup(info, "preferred_trigger", "&s", &trigger));
  EXPECT_STREQ(trigger, "CTRL+ALT+LOGO+Right");
  ASSERT_TRUE(g_variant_lookup(info, "description", "&s", &description));
  EXPECT_STREQ(description, "Subtitles later by 0.5 s");
  g_variant_unref(info);
  g_variant_unref(list);

  // The answer, in any order, with some left out and some unknown: by action, in table order.
  GVariant* answer = g_variant_ref_sink(g_variant_new_parsed(
      "[('toggle-bar', {'trigger_description': <'Meta+H'>}), ('offset+0.5', {'trigger_description': <'F9'>}),"
      " ('mark1', @a{sv} {}), ('no-such', {'trigger_description': <'F1'>})]"));
  const std::vector<BoundKey> bound = portalBoundKeys(answer);
  g_variant_unref(answer);
  ASSERT_EQ(bound.size(), 3u);
  EXPECT_EQ(bound[0].action->name, "offset+0.5");
  EXPECT_EQ(bound[1].action->name, "mark1");
  EXPECT_EQ(bound[1].trigger, "");
  EXPECT_EQ(boundKeysLine(bound), "Bound by the desktop: → F9 · H Meta+H");
  EXPECT_EQ(boundKeysLine({}), "The desktop bound no keys: choose them in its shortcut settings");
}

TEST(GlobalKeysPortal, BindsTheActionsFiresThemAndLetsGoWhenTheDesktopEndsIt) {
  PortalRig rig("bind");
  if (!rig.bus) GTEST_SKIP() << "no dbus-daemon or python3-gi";
  std::vector<std::string> fired, notes;
  auto keys = makePortalGlobalKeys(
      rig.bus, [&](const GlobalAction& a) { fired.emplace_back(a.name); },
      [&](std::string_view n) { notes.emplace_back(n); });
  int changes = 0;
  keys->onChange([&] { ++changes; });
  keys->apply({true, kDefault});
  EXPECT_EQ(keys->state(), GlobalKeysState::waiting);
  ASSERT_TRUE(PortalRig::until([&] { return keys->state() == GlobalKeysState::active; }));
  EXPECT_EQ(changes, 1) << "Preferences hears of the answer";
  EXPECT_THAT(rig.heard(), ::testing::StartsWith("bind offset+0.5=CTRL+ALT+LOGO+Right offset-0.5=CTRL+ALT+LOGO+Left"));
  EXPECT_TRUE(keys->choosesKeys());
  ASSERT_EQ(keys->bound().size(), globalActions().size());
  EXPECT_EQ(keys->bound()[0].trigger, "CTRL+ALT+Meta+Right");

  rig.tell("activate offset-0.1");
  rig.tell("activate no-such-action");
  rig.tell("activate toggle-bar");
  ASSERT_TRUE(PortalRig::until([&] { return fired.size() == 2; }));
  EXPECT_THAT(fired, ::testing::ElementsAre("offset-0.1", "toggle-bar"));

  // Another chord: the session is closed and a new one bound.
  keys->apply({true, Chord{Chord::alt | Chord::shift}});
  EXPECT_THAT(rig.heard(), ::testing::StartsWith("close "));
  ASSERT_TRUE(PortalRig::until([&] { return keys->state() == GlobalKeysState::active; }));
  EXPECT_THAT(rig.heard(), ::testing::StartsWith("bind offset+0.5=ALT+SHIFT+Right"));

  rig.tell("close");
  ASSERT_TRUE(PortalRig::until([&] { return keys->state() == GlobalKeysState::unavailable; }));
  EXPECT_THAT(notes, ::testing::ElementsAre(std::string(shortcutsEndedNote)));
  EXPECT_TRUE(keys->bound().empty());

  // Turned off and on again: bound anew, nothing stuck.
  keys->apply({false, kDefault});
  EXPECT_EQ(keys->state(), GlobalKeysState::off);
  keys->apply({true, kDefault});
  EXPECT_TRUE(PortalRig::until([&] { return keys->state() == GlobalKeysState::active; }));
}

TEST(GlobalKeysPortal, ADeclineOrNoInterfaceLeavesItUnavailable) {
  {
    PortalRig rig("decline");
    if (!rig.bus) GTEST_SKIP() << "no dbus-daemon or python3-gi";
    std::vector<std::string> notes;
    auto keys = makePortalGlobalKeys(
        rig.bus, [](const GlobalAction&) {}, [&](std::string_view n) { notes.emplace_back(n); });
    keys->apply({true, kDefault});
    ASSERT_TRUE(PortalRig::until([&] { return keys->state() == GlobalKeysState::unavailable; }));
    EXPECT_THAT(notes, ::testing::ElementsAre(std::string(shortcutsDeclinedNote)));
  }
  PortalRig rig("absent");
  if (!rig.bus) GTEST_SKIP() << "no dbus-daemon or python3-gi";
  std::vector<std::string> notes;
  auto keys = makePortalGlobalKeys(
      rig.bus, [](const GlobalAction&) {}, [&](std::string_view n) { notes.emplace_back(n); });
  keys->apply({true, kDefault});
  ASSERT_TRUE(PortalRig::until([&] { return keys->state() == GlobalKeysState::unavailable; }));
  EXPECT_TRUE(notes.empty()) << "a desktop without the portal is said in Preferences, not every start";
  keys.reset();  // gone with a call under way: nothing reaches it
}

}  // namespace
}  // namespace lumerix::gtk
