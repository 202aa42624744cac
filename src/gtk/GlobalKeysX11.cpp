#include <X11/Xlib.h>
#include <gdk/gdkx.h>

#include <algorithm>

#include "gtk/GlobalKeys.h"

namespace lumerix::gtk {

namespace {

// Xlib's mask bits, spelt out so the pure helpers below need no display.
constexpr unsigned kShift = ShiftMask, kLock = LockMask, kControl = ControlMask, kMod1 = Mod1Mask, kMod4 = Mod4Mask;

class NoGlobalKeys : public GlobalKeys {
 public:
  void apply(const GlobalKeySettings& settings) override { on = settings.enabled; }
  GlobalKeysState state() const override { return GlobalKeysState::unavailable; }
  const std::vector<const GlobalAction*>& refused() const override { return none; }

 private:
  bool on = false;
  std::vector<const GlobalAction*> none;
};

class GlobalKeysX11 : public GlobalKeys {
 public:
  GlobalKeysX11(GdkDisplay* display, Fired fired, Refused refusedKeys)
      : display(display),
        xdisplay(gdk_x11_display_get_xdisplay(display)),
        root(DefaultRootWindow(xdisplay)),
        fired(std::move(fired)),
        refusedKeys(std::move(refusedKeys)) {
    // Every window's events, the root's among them: a passive grab's key
    // arrives at the root whichever window has the focus.
    gdk_window_add_filter(nullptr, &GlobalKeysX11::filter, this);
  }
  ~GlobalKeysX11() override {
    gdk_window_remove_filter(nullptr, &GlobalKeysX11::filter, this);
    release();
  }

  void apply(const GlobalKeySettings& settings) override {
    release();
    enabled = settings.enabled;
    if (!enabled) return;
    chord = settings.chord;
    const unsigned numLock = numLockMask();
    std::vector<const GlobalAction*> taken;
    for (const GlobalAction& action : globalActions()) {
      const KeySym sym = XStringToKeysym(std::string(action.keysym).c_str());
      const KeyCode code = sym == NoSymbol ? 0 : XKeysymToKeycode(xdisplay, sym);
      if (code == 0) {  // no such key on this keyboard's layout
        taken.push_back(&action);
        continue;
      }
      const std::vector<unsigned> states = x11GrabStates(chord, numLock);
      // Another client's grab is refused with BadAccess, which arrives later,
      // through the error handler: trap it here, per key, so it becomes a
      // note naming the key rather than the end of the program.
      gdk_x11_display_error_trap_push(display);
      for (unsigned state : states) XGrabKey(xdisplay, code, state, root, False, GrabModeAsync, GrabModeAsync);
      if (gdk_x11_display_error_trap_pop(display) != 0) {
        gdk_x11_display_error_trap_push(display);
        for (unsigned state : states) XUngrabKey(xdisplay, code, state, root);
        gdk_x11_display_error_trap_pop_ignored(display);
        taken.push_back(&action);
        continue;
      }
      grabs.push_back({code, &action, states});
    }
    refusedNow = std::move(taken);
    if (!refusedNow.empty() && refusedKeys) refusedKeys(refusedNow, chord);
  }

  GlobalKeysState state() const override { return enabled ? GlobalKeysState::active : GlobalKeysState::off; }
  const std::vector<const GlobalAction*>& refused() const override { return refusedNow; }

 private:
  struct Grab {
    KeyCode code;
    const GlobalAction* action;
    std::vector<unsigned> states;
  };

  void release() {
    if (grabs.empty()) return;
    gdk_x11_display_error_trap_push(display);
    for (const Grab& g : grabs) {
      for (unsigned state : g.states) XUngrabKey(xdisplay, g.code, state, root);
    }
    gdk_x11_display_error_trap_pop_ignored(display);
    XSync(xdisplay, False);  // given back before anyone asks for them next
    grabs.clear();
    refusedNow.clear();
  }

  unsigned numLockMask() const {
    const KeyCode numLock = XKeysymToKeycode(xdisplay, XStringToKeysym("Num_Lock"));
    XModifierKeymap* map = XGetModifierMapping(xdisplay);
    unsigned mask = 0;
    for (int mod = 0; map && numLock && mod < 8; ++mod) {
      for (int k = 0; k < map->max_keypermod; ++k) {
        if (map->modifiermap[mod * map->max_keypermod + k] == numLock) mask = 1u << mod;
      }
    }
    if (map) XFreeModifiermap(map);
    return mask;
  }

  static GdkFilterReturn filter(GdkXEvent* native, GdkEvent*, gpointer self) {
    auto& keys = *static_cast<GlobalKeysX11*>(self);
    const XEvent& event = *static_cast<XEvent*>(native);
    if (event.type != KeyPress || keys.grabs.empty()) return GDK_FILTER_CONTINUE;
    const unsigned held = x11ChordBitsOf(event.xkey.state);
    if (held != x11ChordState(keys.chord)) return GDK_FILTER_CONTINUE;
    for (const Grab& g : keys.grabs) {
      if (g.code != event.xkey.keycode) continue;
      keys.fired(*g.action);
      return GDK_FILTER_REMOVE;
    }
    return GDK_FILTER_CONTINUE;
  }

  GdkDisplay* display;
  Display* xdisplay;
  Window root;
  Fired fired;
  Refused refusedKeys;
  bool enabled = false;
  Chord chord;
  std::vector<Grab> grabs;
  std::vector<const GlobalAction*> refusedNow;
};

}  // namespace

std::vector<unsigned> x11GrabStates(Chord chord, unsigned numLockMask) {
  const unsigned base = x11ChordState(chord);
  // A Num Lock on a bit the chord uses itself (or on none) adds nothing.
  const unsigned num = (numLockMask & (base | kLock)) ? 0 : numLockMask;
  std::vector<unsigned> states{base, base | kLock};
  if (num) states.insert(states.end(), {base | num, base | kLock | num});
  return states;
}

unsigned x11ChordState(Chord chord) {
  unsigned state = 0;
  if (chord.mods & Chord::ctrl) state |= kControl;
  if (chord.mods & Chord::alt) state |= kMod1;
  if (chord.mods & Chord::shift) state |= kShift;
  if (chord.mods & Chord::super) state |= kMod4;
  return state;
}

unsigned x11ChordBitsOf(unsigned eventState) {
  return eventState & (kControl | kMod1 | kShift | kMod4);
}

std::unique_ptr<GlobalKeys> makeGlobalKeys(bool waylandSession, GlobalKeys::Fired fired, GlobalKeys::Refused refused,
                                           std::function<void(std::string_view)> note) {
  GdkDisplay* display = gdk_display_get_default();
  if (waylandSession) {
    // The one way a Wayland desktop lets a program have keys: its portal,
    // where it has one (asked on the bus GTK shares).
    if (GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)) {
      auto keys = makePortalGlobalKeys(bus, std::move(fired), std::move(note));
      g_object_unref(bus);
      return keys;
    }
    return std::make_unique<NoGlobalKeys>();
  }
  if (!display || !GDK_IS_X11_DISPLAY(display)) return std::make_unique<NoGlobalKeys>();
  return std::make_unique<GlobalKeysX11>(display, std::move(fired), std::move(refused));
}

}  // namespace lumerix::gtk
