#include "gtk/TrayMenu.h"

#include <libayatana-appindicator/app-indicator.h>

#include "ui/Texts.h"

namespace lumerix::gtk {

unsigned keyvalForEquivalent(const std::string& equivalent) {
  if (equivalent.empty()) return 0;
  // The bar's arrow keys, not the arrow characters' own key values.
  if (equivalent == "←") return GDK_KEY_Left;
  if (equivalent == "→") return GDK_KEY_Right;
  const gunichar c = g_utf8_get_char_validated(equivalent.c_str(), static_cast<gssize>(equivalent.size()));
  if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return 0;
  return gdk_unicode_to_keyval(c);
}

namespace {

void fill(Gtk::Menu& menu, const std::vector<MenuItem>& items, const std::function<void(MenuAction)>& perform,
          const Glib::RefPtr<Gtk::AccelGroup>& accelerators) {
  for (const MenuItem& item : items) {
    if (item.separator()) {
      menu.append(*Gtk::make_managed<Gtk::SeparatorMenuItem>());
      continue;
    }
    auto* entry = Gtk::make_managed<Gtk::MenuItem>(item.title);
    if (!item.submenu.empty()) {
      auto* sub = Gtk::make_managed<Gtk::Menu>();
      sub->set_accel_group(accelerators);
      fill(*sub, item.submenu, perform, accelerators);
      entry->set_submenu(*sub);
    } else {
      const MenuAction action = item.action;
      entry->signal_activate().connect([perform, action] { perform(action); });
    }
    if (const unsigned key = keyvalForEquivalent(item.keyEquivalent)) {
      entry->add_accelerator("activate", accelerators, key, item.plainKey ? Gdk::ModifierType(0) : Gdk::CONTROL_MASK,
                             Gtk::ACCEL_VISIBLE);
    }
    menu.append(*entry);
  }
}

}  // namespace

BuiltMenu buildMenu(const std::vector<MenuItem>& items, std::function<void(MenuAction)> perform) {
  BuiltMenu built{Gtk::AccelGroup::create(), std::make_unique<Gtk::Menu>()};
  built.menu->set_accel_group(built.accelerators);
  fill(*built.menu, items, perform, built.accelerators);
  built.menu->show_all();
  return built;
}

Tray::Tray(const std::string& iconDir, const std::string& iconName, BuiltMenu m) : menu(std::move(m)) {
  indicator = app_indicator_new_with_path("lumerix", iconName.c_str(), APP_INDICATOR_CATEGORY_APPLICATION_STATUS,
                                          iconDir.c_str());
  app_indicator_set_title(indicator, std::string(texts::brandName).c_str());
  app_indicator_set_menu(indicator, menu.menu->gobj());
  g_signal_connect(indicator, "connection-changed", G_CALLBACK(connectionChanged), this);
  app_indicator_set_status(indicator, APP_INDICATOR_STATUS_ACTIVE);
}

void Tray::setMenu(BuiltMenu replacement) {
  app_indicator_set_menu(indicator, replacement.menu->gobj());
  menu = std::move(replacement);  // the old one goes only once the indicator let go of it
}

Tray::~Tray() {
  g_signal_handlers_disconnect_by_data(indicator, this);
  app_indicator_set_status(indicator, APP_INDICATOR_STATUS_PASSIVE);
  g_object_unref(indicator);
}

void Tray::connectionChanged(_AppIndicator*, gboolean isConnected, gpointer self) {
  static_cast<Tray*>(self)->connected = isConnected;
}

}  // namespace lumerix::gtk
