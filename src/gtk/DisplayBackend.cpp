#include "gtk/DisplayBackend.h"

#include <gdk/gdk.h>
#include <gdk/gdkx.h>

#include <cstdlib>
#include <cstring>

#ifdef LUMERIX_LAYER_SHELL
#include <gtk-layer-shell.h>
#include <wayland-client.h>
#endif

namespace lumerix::gtk {

namespace {

bool set(const char* name) {
  const char* v = std::getenv(name);
  return v && *v;
}

#ifdef LUMERIX_LAYER_SHELL
void announce(void* data, wl_registry*, uint32_t, const char* interface, uint32_t) {
  if (std::strcmp(interface, "zwlr_layer_shell_v1") == 0) *static_cast<bool*>(data) = true;
}
void withdraw(void*, wl_registry*, uint32_t) {}

// Whether the compositor offers the layer shell: its registry, asked once.
bool compositorHasLayerShell() {
  wl_display* display = wl_display_connect(nullptr);
  if (!display) return false;
  bool found = false;
  static const wl_registry_listener listener{announce, withdraw};
  wl_registry* registry = wl_display_get_registry(display);
  wl_registry_add_listener(registry, &listener, &found);
  wl_display_roundtrip(display);
  wl_registry_destroy(registry);
  wl_display_disconnect(display);
  return found;
}
#else
bool compositorHasLayerShell() {
  return false;
}
#endif

}  // namespace

BackendChoice chooseBackend() {
  BackendChoice choice;
  if (set("GDK_BACKEND") || !set("WAYLAND_DISPLAY")) return choice;
  if (compositorHasLayerShell()) {
    gdk_set_allowed_backends("wayland,x11");
  } else if (set("DISPLAY")) {
    // Only an X11 window can be kept above a full-screen window here.
    gdk_set_allowed_backends("x11");
    choice.waylandWithoutLayerShell = true;
  }
  return choice;
}

BarKind barKind() {
  GdkDisplay* display = gdk_display_get_default();
  if (display && GDK_IS_X11_DISPLAY(display)) return BarKind::x11Popup;
#ifdef LUMERIX_LAYER_SHELL
  if (gtk_layer_is_supported()) return BarKind::layerShell;
#endif
  return BarKind::toplevel;
}

}  // namespace lumerix::gtk
