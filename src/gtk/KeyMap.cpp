#include "gtk/KeyMap.h"

#include <gdk/gdk.h>

#include "platform/KeyCodes.h"

namespace lumerix::gtk {

namespace {

struct CodeRow {
  unsigned keyval;
  int code;
};

// The keys the controller knows by code. The keypad's arrows (Num Lock off)
// count as arrows.
constexpr CodeRow kCodes[] = {
    {GDK_KEY_Escape, keycode::escape}, {GDK_KEY_Left, keycode::left},      {GDK_KEY_KP_Left, keycode::left},
    {GDK_KEY_Right, keycode::right},   {GDK_KEY_KP_Right, keycode::right}, {GDK_KEY_Down, keycode::down},
    {GDK_KEY_KP_Down, keycode::down},  {GDK_KEY_Up, keycode::up},          {GDK_KEY_KP_Up, keycode::up},
};

}  // namespace

KeyStroke keyPressFromGdk(unsigned keyval, unsigned state) {
  KeyStroke press{keycode::none, (state & GDK_SHIFT_MASK) != 0, ""};
  for (const CodeRow& row : kCodes) {
    if (row.keyval == keyval) press.code = row.code;
  }
  const gunichar c = gdk_keyval_to_unicode(keyval);
  // Control characters (Escape, Return, Tab) type nothing a shortcut reads.
  if (c >= 0x20 && c != 0x7F) {
    char utf8[8];
    press.characters.assign(utf8, static_cast<std::size_t>(g_unichar_to_utf8(c, utf8)));
  }
  return press;
}

}  // namespace lumerix::gtk
