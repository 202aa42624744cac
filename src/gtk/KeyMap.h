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
// ignoring modifiers do elsewhere; state: the GDK modifier bits. Needs no
// display.
KeyStroke keyPressFromGdk(unsigned keyval, unsigned state);

}  // namespace lumerix::gtk
