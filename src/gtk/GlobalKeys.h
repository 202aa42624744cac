#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/GlobalActions.h"

namespace lumerix::gtk {

// The bar's keys with a chord while another program has the keyboard, as
// this desktop allows: grabs on X11 (GlobalKeysX11.cpp), nothing elsewhere
// (`lumerix --do` bound by the user is the way there). Main thread only.
class GlobalKeys {
 public:
  using Fired = std::function<void(const GlobalAction&)>;
  // Called for the keys another program holds already, after each apply().
  using Refused = std::function<void(const std::vector<const GlobalAction*>&, Chord)>;
  virtual ~GlobalKeys() = default;
  // Takes the keys, lets them go or takes them with another chord; at once,
  // no restart. Keys not given back before are released first.
  virtual void apply(const GlobalKeySettings& settings) = 0;
  virtual GlobalKeysState state() const = 0;
  // The keys another program held when they were last taken.
  virtual const std::vector<const GlobalAction*>& refused() const = 0;
  // Where the desktop chose the keys: what it bound; empty elsewhere.
  virtual std::vector<BoundKey> bound() const { return {}; }
  virtual bool choosesKeys() const { return false; }  // the desktop, not the chord
  // Called when state() or bound() change later than apply() returns (the
  // desktop answers in its own time); nullptr stops it.
  void onChange(std::function<void()> changed) { this->changed = std::move(changed); }

 protected:
  void tellChanged() const {
    if (changed) changed();
  }

 private:
  std::function<void()> changed;
};

// The service this display has. waylandSession: the session is Wayland,
// whatever GDK talks to (an X11 bar under XWayland gets keys only while
// an X11 window has the focus, which a native player never is).
// note: a sentence for the status line, once (the desktop said no, or stopped).
std::unique_ptr<GlobalKeys> makeGlobalKeys(bool waylandSession, GlobalKeys::Fired fired, GlobalKeys::Refused refused,
                                           std::function<void(std::string_view)> note = nullptr);

// The desktop portal's global shortcuts (KDE Plasma, Hyprland on Wayland),
// on the given session bus; asks for the chord as each key's preferred
// trigger. Unavailable where the portal has no such interface.
std::unique_ptr<GlobalKeys> makePortalGlobalKeys(GDBusConnection* bus, GlobalKeys::Fired fired,
                                                 std::function<void(std::string_view)> note);
// What BindShortcuts is given: one (id, {description, preferred_trigger})
// an action.
GVariant* portalShortcutList(Chord chord);
// The answer's shortcuts (a(sa{sv})), by action, in table order.
std::vector<BoundKey> portalBoundKeys(GVariant* shortcuts);

// The X11 modifier states one key is grabbed with: the chord's, alone and
// with Caps Lock, Num Lock and both, as the server matches states exactly.
// numLockMask: the modifier bit Num Lock sits on (0 where it has none).
std::vector<unsigned> x11GrabStates(Chord chord, unsigned numLockMask);
// The chord's bits among a key event's state, locks and other modifiers
// (AltGr's, mouse buttons) left out.
unsigned x11ChordState(Chord chord);
unsigned x11ChordBitsOf(unsigned eventState);

}  // namespace lumerix::gtk
