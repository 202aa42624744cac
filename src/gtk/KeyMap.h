#pragma once

#include <string>

namespace lumerix::gtk {

// A key press as the controller takes it: a code from platform/KeyCodes.h
// (or keycode::none), the Shift flag and the characters ignoring modifiers.
struct KeyStroke {
  int code;
  bool shift;
  std::string characters;  // UTF-8; empty for keys that type nothing
};

// keyval: the GDK key value, which already carries the effect of Shift and
// the layout ("Q" with Shift, "+" from the keypad), as the characters
// ignoring modifiers do elsewhere; state: the GDK modifier bits;
// latinKeyval: what the same physical key types on a Latin layout of the
// user's, or 0 (see latinKeyvalOf). A key held with Control, Alt or Super is
// none of the bar's. Needs no display.
KeyStroke keyPressFromGdk(unsigned keyval, unsigned state, unsigned latinKeyval = 0);

// What the key with this hardware code types at the given Shift level in the
// first of the user's layouts where it types ASCII; 0 if none does. Asks the
// display's key map.
unsigned latinKeyvalOf(unsigned hardwareKeycode, bool shift);

}  // namespace lumerix::gtk
