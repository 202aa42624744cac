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

KeyStroke keyPressFromGdk(unsigned keyval, unsigned state, unsigned latinKeyval) {
  KeyStroke press{keycode::none, (state & GDK_SHIFT_MASK) != 0, ""};
  // The bar's shortcuts are plain keys (Shift aside): Ctrl+, is not ",".
  // Escape quits whatever is held.
  const unsigned held = GDK_CONTROL_MASK | GDK_MOD1_MASK | GDK_SUPER_MASK | GDK_META_MASK | GDK_HYPER_MASK;
  if ((state & held) && keyval != GDK_KEY_Escape) return press;
  // On a Russian or Greek layout the letters are the Latin keys at the same
  // place, as in every GTK application's shortcuts.
  const gunichar typed = gdk_keyval_to_unicode(keyval);
  if (typed > 0x7F && latinKeyval && gdk_keyval_to_unicode(latinKeyval) > 0x20 &&
      gdk_keyval_to_unicode(latinKeyval) < 0x7F) {
    keyval = latinKeyval;
  }
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

unsigned latinKeyvalOf(unsigned hardwareKeycode, bool shift) {
  GdkKeymap* keymap = gdk_keymap_get_for_display(gdk_display_get_default());
  GdkKeymapKey* keys = nullptr;
  guint* keyvals = nullptr;
  gint count = 0;
  if (!keymap || !gdk_keymap_get_entries_for_keycode(keymap, hardwareKeycode, &keys, &keyvals, &count)) return 0;
  unsigned found = 0;
  for (gint i = 0; i < count && !found; ++i) {
    const gunichar c = gdk_keyval_to_unicode(keyvals[i]);
    if (keys[i].level == (shift ? 1 : 0) && c > 0x20 && c < 0x7F) found = keyvals[i];
  }
  g_free(keys);
  g_free(keyvals);
  return found;
}

}  // namespace lumerix::gtk
