#include "linux/LinuxSystem.h"

#include <gio/gio.h>
#include <unistd.h>
#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "linux/Mpris.h"
#include "util/Path.h"

namespace lumerix {

namespace {

template <class T>
struct FreeDeleter {
  void operator()(T* p) const { std::free(p); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeDeleter<T>>;

// Asks the bus and the display; runs on LinuxSystem's own thread only, so
// its connections need no lock. Each is made again when it breaks, at most
// once a second.
class Prober {
 public:
  explicit Prober(std::string player) : player(std::move(player)) {}
  ~Prober() {
    if (busConnection) g_object_unref(busConnection);
    if (x) xcb_disconnect(x);
  }
  Prober(const Prober&) = delete;
  Prober& operator=(const Prober&) = delete;

  LinuxSystem::View ask() {
    LinuxSystem::View v;
    std::vector<WindowInfo> said;
    v.pids = pids(said);
    v.windows = windows();
    // A native Wayland player has no window we can see: its own word, where
    // it keeps one, is all there is. XWayland players still show in the X list.
    if (!said.empty()) {
      if (!v.windows) v.windows.emplace();
      v.windows->insert(v.windows->end(), said.begin(), said.end());
    }
    v.screens = screens();
    return v;
  }

 private:
  static double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }

  GDBusConnection* bus() {
    if (busConnection && g_dbus_connection_is_closed(busConnection)) {
      g_object_unref(busConnection);  // the bus went away (or restarted)
      busConnection = nullptr;
    }
    if (!busConnection && now() - lastBusTry >= 1.0) {
      lastBusTry = now();
      // A private connection: the shared one ends the whole process when
      // the bus closes it.
      if (gchar* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)) {
        busConnection = g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        g_free(address);
        if (busConnection) g_dbus_connection_set_exit_on_close(busConnection, FALSE);
      }
    }
    return busConnection;
  }

  xcb_connection_t* display() {
    if (x && xcb_connection_has_error(x)) {
      xcb_disconnect(x);  // the display went away
      x = nullptr;
    }
    if (!x && std::getenv("DISPLAY") && now() - lastDisplayTry >= 1.0) {
      lastDisplayTry = now();
      atoms.fill(XCB_ATOM_NONE);  // a new display server numbers them anew
      x = xcb_connect(nullptr, nullptr);
      if (xcb_connection_has_error(x)) {
        xcb_disconnect(x);
        x = nullptr;
      }
    }
    return x;
  }

  // The players' process ids; on Wayland also what each says of its own
  // full screen (the MPRIS Fullscreen property, which not every player has).
  std::vector<int> pids(std::vector<WindowInfo>& said) {
    std::vector<int> pids;
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const bool askFullscreen = wayland && *wayland;
    GDBusConnection* c = bus();
    if (!c) return pids;
    GVariant* names = g_dbus_connection_call_sync(c, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                  "org.freedesktop.DBus", "ListNames", nullptr, G_VARIANT_TYPE("(as)"),
                                                  G_DBUS_CALL_FLAGS_NONE, 500, nullptr, nullptr);
    if (!names) return pids;
    std::vector<std::string> all;
    {
      GVariantIter* iter = nullptr;
      const gchar* name = nullptr;
      g_variant_get(names, "(as)", &iter);
      while (g_variant_iter_loop(iter, "&s", &name)) all.emplace_back(name);
      g_variant_iter_free(iter);
      g_variant_unref(names);
    }
    for (const std::string& busName : mpris::picked(all, player)) {
      const char* name = busName.c_str();
      GVariant* pid = g_dbus_connection_call_sync(
          c, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetConnectionUnixProcessID",
          g_variant_new("(s)", name), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 500, nullptr, nullptr);
      if (!pid) continue;
      guint32 value = 0;
      g_variant_get(pid, "(u)", &value);
      pids.push_back(static_cast<int>(value));
      g_variant_unref(pid);
      if (askFullscreen) {
        if (auto full = fullscreenProperty(c, name)) said.push_back({static_cast<int>(value), 0, 0, *full});
      }
    }
    return pids;
  }

  static std::optional<bool> fullscreenProperty(GDBusConnection* c, const char* name) {
    GVariant* reply = g_dbus_connection_call_sync(
        c, name, "/org/mpris/MediaPlayer2", "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", "org.mpris.MediaPlayer2", "Fullscreen"), G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE,
        500, nullptr, nullptr);
    if (!reply) return std::nullopt;  // a player without the property, or one that did not answer
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    std::optional<bool> full;
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) full = g_variant_get_boolean(value) != FALSE;
    g_variant_unref(value);
    g_variant_unref(reply);
    return full;
  }

  std::optional<std::vector<WindowInfo>> windows() {
    std::vector<WindowInfo> windows;
    xcb_connection_t* c = display();
    if (!c) return windows;  // no display: nothing is full screen
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    // Asked twice a second: each wait for the display is a round trip, so
    // names are asked once and the windows' questions all go out together.
    internAtoms(c);
    const auto [clientList, wmPid, wmState, fullscreenAtom] = atoms;
    Reply<xcb_get_property_reply_t> list(
        xcb_get_property_reply(c, xcb_get_property(c, 0, root, clientList, XCB_ATOM_WINDOW, 0, 4096), nullptr));
    if (!list) return std::nullopt;
    const auto* ids = static_cast<const xcb_window_t*>(xcb_get_property_value(list.get()));
    const int count = xcb_get_property_value_length(list.get()) / static_cast<int>(sizeof(xcb_window_t));
    struct Questions {
      xcb_get_property_cookie_t pid, state;
      xcb_get_window_attributes_cookie_t attr;
      xcb_get_geometry_cookie_t geo;
    };
    std::vector<Questions> asked;
    asked.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i) {
      const xcb_window_t w = ids[i];
      asked.push_back({xcb_get_property(c, 0, w, wmPid, XCB_ATOM_CARDINAL, 0, 1),
                       xcb_get_property(c, 0, w, wmState, XCB_ATOM_ATOM, 0, 32), xcb_get_window_attributes(c, w),
                       xcb_get_geometry(c, w)});
    }
    for (const Questions& q : asked) {
      // A window may vanish between the list and these questions: its
      // replies are then simply missing.
      Reply<xcb_get_property_reply_t> pid(xcb_get_property_reply(c, q.pid, nullptr));
      Reply<xcb_get_property_reply_t> state(xcb_get_property_reply(c, q.state, nullptr));
      Reply<xcb_get_window_attributes_reply_t> attr(xcb_get_window_attributes_reply(c, q.attr, nullptr));
      Reply<xcb_get_geometry_reply_t> geo(xcb_get_geometry_reply(c, q.geo, nullptr));
      if (!pid || xcb_get_property_value_length(pid.get()) < 4 || !attr || !geo) continue;
      if (attr->map_state != XCB_MAP_STATE_VIEWABLE) continue;
      const auto owner = *static_cast<const uint32_t*>(xcb_get_property_value(pid.get()));
      // The window manager's full-screen state: maximized is not full screen.
      bool full = false;
      if (state && fullscreenAtom != XCB_ATOM_NONE) {
        const auto* stateAtoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(state.get()));
        const int n = xcb_get_property_value_length(state.get()) / static_cast<int>(sizeof(xcb_atom_t));
        full = std::find(stateAtoms, stateAtoms + n, fullscreenAtom) != stateAtoms + n;
      }
      windows.push_back(
          {static_cast<int>(owner), static_cast<double>(geo->width), static_cast<double>(geo->height), full});
    }
    return windows;
  }

  // The names' numbers, asked together; one the server does not know yet
  // (no window manager has used it) is asked again next time.
  void internAtoms(xcb_connection_t* c) {
    static constexpr const char* kNames[] = {"_NET_CLIENT_LIST", "_NET_WM_PID", "_NET_WM_STATE",
                                             "_NET_WM_STATE_FULLSCREEN"};
    std::array<std::optional<xcb_intern_atom_cookie_t>, 4> cookies;
    for (std::size_t i = 0; i < atoms.size(); ++i) {
      if (atoms[i] == XCB_ATOM_NONE) {
        cookies[i] = xcb_intern_atom(c, 1, static_cast<uint16_t>(std::strlen(kNames[i])), kNames[i]);
      }
    }
    for (std::size_t i = 0; i < atoms.size(); ++i) {
      if (!cookies[i]) continue;
      Reply<xcb_intern_atom_reply_t> r(xcb_intern_atom_reply(c, *cookies[i], nullptr));
      if (r) atoms[i] = r->atom;
    }
  }

  std::vector<ScreenSize> screens() {
    std::vector<ScreenSize> sizes;
    xcb_connection_t* c = display();
    if (!c) return sizes;
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    Reply<xcb_randr_get_monitors_reply_t> monitors(
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, screen->root, 1), nullptr));
    if (monitors) {
      for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
           xcb_randr_monitor_info_next(&it)) {
        sizes.push_back({static_cast<double>(it.data->width), static_cast<double>(it.data->height)});
      }
    }
    if (sizes.empty()) {
      sizes.push_back({static_cast<double>(screen->width_in_pixels), static_cast<double>(screen->height_in_pixels)});
    }
    return sizes;
  }

  const std::string player;
  GDBusConnection* busConnection = nullptr;
  double lastBusTry = -1e9;
  xcb_connection_t* x = nullptr;
  double lastDisplayTry = -1e9;
  // _NET_CLIENT_LIST, _NET_WM_PID, _NET_WM_STATE, _NET_WM_STATE_FULLSCREEN
  std::array<xcb_atom_t, 4> atoms{};
};

}  // namespace

LinuxSystem::LinuxSystem(std::string player)
    : view("LinuxSystem", [prober = std::make_shared<Prober>(std::move(player))] { return prober->ask(); }) {}

std::vector<int> LinuxSystem::targetProcessIds() {
  auto v = view.latest(kPatience, kFresh);
  return v ? std::move(v->pids) : std::vector<int>{};
}

std::optional<std::vector<WindowInfo>> LinuxSystem::onScreenWindows() {
  auto v = view.latest(kPatience, kFresh);
  return v ? std::move(v->windows) : std::vector<WindowInfo>{};
}

std::vector<ScreenSize> LinuxSystem::screenSizes() {
  auto v = view.latest(kPatience, kFresh);
  return v ? std::move(v->screens) : std::vector<ScreenSize>{};
}

std::vector<std::string> LinuxSystem::helperPlaces() {
  std::vector<std::string> places;
  char self[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (n > 0) {
    const std::string bin = path::parent(std::string(self, static_cast<std::size_t>(n)));
    places.push_back(bin);                                                 // a build tree
    places.push_back(path::append(path::parent(bin), "libexec/lumerix"));  // installed under any prefix
  }
  const std::string configured = path::parent(LUMERIX_HELPER_INSTALL_PATH);
  if (std::find(places.begin(), places.end(), configured) == places.end()) places.push_back(configured);
  return places;
}

std::string LinuxSystem::helperPath() {
  for (const std::string& place : helperPlaces()) {
    const std::string candidate = path::append(place, "lumerix-mpris");
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return LUMERIX_HELPER_INSTALL_PATH;
}

}  // namespace lumerix
