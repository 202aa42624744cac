#include "linux/ActionDelivery.h"

#include <gio/gio.h>

#include "app/PlatformServices.h"

namespace lumerix::platform {

Delivery deliverAction(const std::string& action, std::string& why) {
  GError* error = nullptr;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!bus) {
    // No session bus: no bar of this session could be listening.
    g_clear_error(&error);
    return Delivery::notRunning;
  }
  // The bar is a GApplication: its actions are on the bus under its id.
  // Never started by the bus for this: a key press must not launch a bar.
  GVariant* parameter = g_variant_new_variant(g_variant_new_string(action.c_str()));
  GVariant* args =
      g_variant_new("(s@av@a{sv})", barbus::kDoActionName, g_variant_new_array(G_VARIANT_TYPE_VARIANT, &parameter, 1),
                    g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0));
  GVariant* reply = g_dbus_connection_call_sync(bus, barbus::kBarBusName, barbus::kBarObjectPath,
                                                "org.freedesktop.Application", "ActivateAction", args, nullptr,
                                                G_DBUS_CALL_FLAGS_NO_AUTO_START, 5000, nullptr, &error);
  g_object_unref(bus);
  if (reply) {
    g_variant_unref(reply);
    return Delivery::delivered;
  }
  const bool absent = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                      g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
  if (!absent) {
    g_dbus_error_strip_remote_error(error);
    why = error->message;
  }
  g_error_free(error);
  return absent ? Delivery::notRunning : Delivery::failed;
}

}  // namespace lumerix::platform
