#include "gtk/SessionBus.h"

#include <gio/gio.h>

namespace lumerix::gtk {

namespace {

GVariant* askBus(GDBusConnection* bus, const char* method, GVariant* args) {
  return g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                     method, args, nullptr, G_DBUS_CALL_FLAGS_NONE, 1000, nullptr, nullptr);
}

// Whether NAME has an owner on the bus or the bus can start one.
bool nameAvailable(GDBusConnection* bus, const char* name) {
  bool found = false;
  if (GVariant* reply = askBus(bus, "NameHasOwner", g_variant_new("(s)", name))) {
    gboolean has = FALSE;
    g_variant_get(reply, "(b)", &has);
    found = has;
    g_variant_unref(reply);
  }
  if (found) return true;
  if (GVariant* reply = askBus(bus, "ListActivatableNames", nullptr)) {
    GVariantIter* names = nullptr;
    g_variant_get(reply, "(as)", &names);
    const gchar* each = nullptr;
    while (!found && g_variant_iter_next(names, "&s", &each)) found = g_strcmp0(each, name) == 0;
    g_variant_iter_free(names);
    g_variant_unref(reply);
  }
  return found;
}

}  // namespace

BusFacts probeBuses() {
  BusFacts facts;
  GError* error = nullptr;
  // The shared connection: GTK, GApplication and the tray use this one too.
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!bus) {
    g_clear_error(&error);
    return facts;
  }
  facts.session = true;
  facts.accessibility = nameAvailable(bus, "org.a11y.Bus");
  facts.trayHost = nameAvailable(bus, "org.kde.StatusNotifierWatcher");
  g_object_unref(bus);
  return facts;
}

}  // namespace lumerix::gtk
