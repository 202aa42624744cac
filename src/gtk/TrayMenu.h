#pragma once

#include <gtkmm.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ui/Menu.h"

struct _AppIndicator;

namespace lumerix::gtk {

// The GDK key value of a menu item's key equivalent ("o", "+", ","); 0
// when there is none.
unsigned keyvalForEquivalent(const std::string& equivalent);

// A GTK menu made from the core's menu: titles as they are, separators,
// the timing submenu, key equivalents shown with Control (the key that
// plays Command's part here). Choosing an item calls perform.
struct BuiltMenu {
  Glib::RefPtr<Gtk::AccelGroup> accelerators;  // first: the items' labels need it until they go
  std::unique_ptr<Gtk::Menu> menu;
};
BuiltMenu buildMenu(const std::vector<MenuItem>& items, std::function<void(MenuAction)> perform);

// The status item: an indicator in the desktop's tray, where there is a
// tray to show it (there is none under many desktops, and none at all
// without a session bus: then nothing shows and nothing breaks).
class Tray {
 public:
  // iconDir: holds iconName.png.
  Tray(const std::string& iconDir, const std::string& iconName, BuiltMenu menu);
  ~Tray();
  Tray(const Tray&) = delete;
  Tray& operator=(const Tray&) = delete;
  // Whether a tray host shows the indicator now.
  bool shown() const { return connected; }
  // Swaps the menu for a new one (items come and go while it runs).
  void setMenu(BuiltMenu replacement);

 private:
  static void connectionChanged(_AppIndicator*, gboolean connected, gpointer self);
  BuiltMenu menu;
  _AppIndicator* indicator = nullptr;
  bool connected = false;
};

}  // namespace lumerix::gtk
