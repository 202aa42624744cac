// The X11 grabs behind the chord, and the Preferences row that drives them.
// The grab states need no display; the rest is skipped without an X display
// (CI runs it under Xvfb).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtkmm.h>

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

TEST(GlobalKeysElsewhere, AWaylandSessionHasNone) {
  auto keys = makeGlobalKeys(
      true, [](const GlobalAction&) {}, nullptr);
  keys->apply({true, kDefault});
  EXPECT_EQ(keys->state(), GlobalKeysState::unavailable);
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
  EXPECT_EQ(window.globalKeysLabel().get_text(), "Ctrl+Alt+Super with → ← . , F 1 H (taken: 2)");
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

}  // namespace
}  // namespace lumerix::gtk
