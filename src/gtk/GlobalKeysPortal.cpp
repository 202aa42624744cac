#include <memory>
#include <string>

#include "gtk/GlobalKeys.h"

namespace lumerix::gtk {

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kShortcuts = "org.freedesktop.portal.GlobalShortcuts";

// Every request and session the portal makes for us, over the desktop's own
// dialogs (it may ask the user first), answers later through a signal. Each
// step runs in the main loop; an answer to an earlier apply() is ignored.
class PortalKeys : public GlobalKeys {
 public:
  PortalKeys(GDBusConnection* bus, Fired fired, std::function<void(std::string_view)> note)
      : bus(G_DBUS_CONNECTION(g_object_ref(bus))),
        cancel(g_cancellable_new()),
        fired(std::move(fired)),
        note(std::move(note)) {
    activated = g_dbus_connection_signal_subscribe(this->bus, kPortal, kShortcuts, "Activated", kPortalPath, nullptr,
                                                   G_DBUS_SIGNAL_FLAGS_NONE, &PortalKeys::onActivated, this, nullptr);
  }
  ~PortalKeys() override {
    g_cancellable_cancel(cancel);
    closeSession();
    g_dbus_connection_signal_unsubscribe(bus, activated);
    dropRequest();
    g_object_unref(cancel);
    g_object_unref(bus);
  }

  void apply(const GlobalKeySettings& settings) override {
    ++generation;
    closeSession();
    dropRequest();
    if (!settings.enabled) {
      shown = GlobalKeysState::off;
      return;
    }
    chord = settings.chord;
    shown = GlobalKeysState::waiting;
    // Whether the portal offers the interface at all: it has no backend on
    // GNOME 43 or sway, and no portal runs on bare window managers.
    g_dbus_connection_call(bus, kPortal, kPortalPath, "org.freedesktop.DBus.Properties", "Get",
                           g_variant_new("(ss)", kShortcuts, "version"), G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE,
                           10000, cancel, &PortalKeys::onVersion, step());
  }

  GlobalKeysState state() const override { return shown; }
  const std::vector<const GlobalAction*>& refused() const override { return none; }
  std::vector<BoundKey> bound() const override { return boundKeys; }
  bool choosesKeys() const override { return true; }

 private:
  struct Step {
    PortalKeys* self;
    unsigned generation;
  };
  Step* step() { return new Step{this, generation}; }
  // The step's object when its answer still matters: not cancelled (the
  // object may be gone then), not overtaken by a later apply().
  static PortalKeys* current(Step* s, GError* error) {
    std::unique_ptr<Step> owned(s);
    if (error && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) return nullptr;
    return owned->self->generation == owned->generation ? owned->self : nullptr;
  }

  static void onVersion(GObject* source, GAsyncResult* result, gpointer data) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
    PortalKeys* self = current(static_cast<Step*>(data), error);
    if (reply) g_variant_unref(reply);
    if (self && !reply) {
      self->shown = GlobalKeysState::unavailable;  // said in Preferences, not as a hint
      self->tellChanged();
    }
    if (self && reply) self->createSession();
    if (error) g_error_free(error);
  }

  // The request's answer arrives on a path made of our bus name and a token
  // of ours: listen there before asking.
  std::string requestPath(const std::string& token) const {
    std::string sender = g_dbus_connection_get_unique_name(bus);
    if (!sender.empty() && sender[0] == ':') sender.erase(0, 1);
    for (char& c : sender) c = c == '.' ? '_' : c;
    return std::string(kPortalPath) + "/request/" + sender + "/" + token;
  }

  std::string awaitResponse(GDBusSignalCallback callback) {
    dropRequest();
    const std::string token = "lumerix" + std::to_string(++tokens);
    response = g_dbus_connection_signal_subscribe(bus, kPortal, "org.freedesktop.portal.Request", "Response",
                                                  requestPath(token).c_str(), nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                                  callback, this, nullptr);
    return token;
  }

  void dropRequest() {
    if (response) g_dbus_connection_signal_unsubscribe(bus, response);
    response = 0;
  }

  void createSession() {
    const std::string token = awaitResponse(&PortalKeys::onSessionCreated);
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
    g_variant_builder_add(&options, "{sv}", "session_handle_token", g_variant_new_string(token.c_str()));
    g_dbus_connection_call(bus, kPortal, kPortalPath, kShortcuts, "CreateSession", g_variant_new("(a{sv})", &options),
                           G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, -1, cancel, &PortalKeys::onCalled, step());
  }

  // The call itself only says the request was made; a refusal here is one.
  static void onCalled(GObject* source, GAsyncResult* result, gpointer data) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
    PortalKeys* self = current(static_cast<Step*>(data), error);
    if (reply) g_variant_unref(reply);
    if (self && !reply) self->fail(shortcutsDeclinedNote);
    if (error) g_error_free(error);
  }

  static void onSessionCreated(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                               GVariant* parameters, gpointer data) {
    auto* self = static_cast<PortalKeys*>(data);
    self->dropRequest();
    guint32 code = 2;
    GVariant* results = nullptr;
    g_variant_get(parameters, "(u@a{sv})", &code, &results);
    const gchar* session = nullptr;
    if (code == 0 && g_variant_lookup(results, "session_handle", "&s", &session) && g_variant_is_object_path(session)) {
      self->openSession(session);
    } else {
      self->fail(shortcutsDeclinedNote);
    }
    g_variant_unref(results);
  }

  void openSession(const std::string& path) {
    session = path;
    closed =
        g_dbus_connection_signal_subscribe(bus, kPortal, "org.freedesktop.portal.Session", "Closed", session.c_str(),
                                           nullptr, G_DBUS_SIGNAL_FLAGS_NONE, &PortalKeys::onClosed, this, nullptr);
    const std::string token = awaitResponse(&PortalKeys::onBound);
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
    g_dbus_connection_call(
        bus, kPortal, kPortalPath, kShortcuts, "BindShortcuts",
        g_variant_new("(o@a(sa{sv})sa{sv})", session.c_str(), portalShortcutList(chord), "", &options),
        G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, -1, cancel, &PortalKeys::onCalled, step());
  }

  static void onBound(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* parameters,
                      gpointer data) {
    auto* self = static_cast<PortalKeys*>(data);
    self->dropRequest();
    guint32 code = 2;
    GVariant* results = nullptr;
    g_variant_get(parameters, "(u@a{sv})", &code, &results);
    if (code != 0) {
      self->fail(shortcutsDeclinedNote);
    } else {
      GVariant* shortcuts = g_variant_lookup_value(results, "shortcuts", G_VARIANT_TYPE("a(sa{sv})"));
      self->boundKeys = shortcuts ? portalBoundKeys(shortcuts) : std::vector<BoundKey>{};
      if (shortcuts) g_variant_unref(shortcuts);
      self->shown = GlobalKeysState::active;
      self->tellChanged();
    }
    g_variant_unref(results);
  }

  static void onActivated(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                          GVariant* parameters, gpointer data) {
    auto* self = static_cast<PortalKeys*>(data);
    const gchar* from = nullptr;
    const gchar* id = nullptr;
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(osta{sv})"))) return;
    g_variant_get(parameters, "(&o&st@a{sv})", &from, &id, nullptr, nullptr);
    if (self->session.empty() || self->session != from) return;
    if (const GlobalAction* action = findGlobalAction(id)) self->fired(*action);
  }

  static void onClosed(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
                       gpointer data) {
    auto* self = static_cast<PortalKeys*>(data);
    self->session.clear();  // closed already: nothing to close
    self->fail(shortcutsEndedNote);
  }

  void fail(std::string_view why) {
    ++generation;  // whatever was still under way no longer matters
    dropRequest();
    closeSession();
    boundKeys.clear();
    shown = GlobalKeysState::unavailable;
    tellChanged();
    if (note) note(why);
  }

  void closeSession() {
    if (closed) g_dbus_connection_signal_unsubscribe(bus, closed);
    closed = 0;
    if (session.empty()) return;
    g_dbus_connection_call(bus, kPortal, session.c_str(), "org.freedesktop.portal.Session", "Close", nullptr, nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    session.clear();
    boundKeys.clear();
  }

  GDBusConnection* bus;
  GCancellable* cancel;
  Fired fired;
  std::function<void(std::string_view)> note;
  Chord chord;
  GlobalKeysState shown = GlobalKeysState::off;
  unsigned generation = 0, tokens = 0;
  guint activated = 0, response = 0, closed = 0;
  std::string session;
  std::vector<BoundKey> boundKeys;
  std::vector<const GlobalAction*> none;
};

}  // namespace

GVariant* portalShortcutList(Chord chord) {
  GVariantBuilder list;
  g_variant_builder_init(&list, G_VARIANT_TYPE("a(sa{sv})"));
  for (const GlobalAction& action : globalActions()) {
    GVariantBuilder info;
    g_variant_builder_init(&info, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&info, "{sv}", "description", g_variant_new_string(std::string(action.description).c_str()));
    g_variant_builder_add(&info, "{sv}", "preferred_trigger",
                          g_variant_new_string(preferredTrigger(chord, action).c_str()));
    g_variant_builder_add(&list, "(sa{sv})", std::string(action.name).c_str(), &info);
  }
  return g_variant_builder_end(&list);
}

std::vector<BoundKey> portalBoundKeys(GVariant* shortcuts) {
  std::vector<BoundKey> bound;
  for (const GlobalAction& action : globalActions()) {
    GVariantIter iter;
    g_variant_iter_init(&iter, shortcuts);
    const gchar* id = nullptr;
    GVariant* info = nullptr;
    while (g_variant_iter_next(&iter, "(&s@a{sv})", &id, &info)) {
      if (action.name == id) {
        const gchar* trigger = nullptr;
        bound.push_back({&action, g_variant_lookup(info, "trigger_description", "&s", &trigger) ? trigger : ""});
      }
      g_variant_unref(info);
    }
  }
  return bound;
}

std::unique_ptr<GlobalKeys> makePortalGlobalKeys(GDBusConnection* bus, GlobalKeys::Fired fired,
                                                 std::function<void(std::string_view)> note) {
  return std::make_unique<PortalKeys>(bus, std::move(fired), std::move(note));
}

}  // namespace lumerix::gtk
