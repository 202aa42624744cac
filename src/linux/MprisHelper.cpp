// lumerix-mpris: tells Lumerix where an MPRIS media player is, in the same
// two ways the macOS helpers do.
//
//   lumerix-mpris poll [--player NAME]    one answer line, then exit
//   lumerix-mpris serve [--player NAME]   one answer line a request line on
//                                         stdin, until stdin ends (Lumerix's poll)
//   lumerix-mpris stream [--player NAME]  JSON lines until killed
//
// Players do not signal Position, so the stream samples it on every event
// and every 2 s while playing, stamping each sample with the wall-clock
// moment it was read.

#include <dbus/dbus.h>
#include <gio/gio.h>
#include <glib-unix.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "linux/Mpris.h"

namespace {

using lumerix::mpris::Player;

constexpr int kCallTimeoutMs = 1000;
constexpr const char* kPath = "/org/mpris/MediaPlayer2";
constexpr const char* kPlayerInterface = "org.mpris.MediaPlayer2.Player";

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

struct Error {
  GError* e = nullptr;
  ~Error() {
    if (e) g_error_free(e);
  }
  GError** out() { return &e; }
  explicit operator bool() const { return e != nullptr; }
};

// One reference to a C library's object, dropped with its holder.
template <typename T, void (*unref)(T*)>
struct Owned {
  T* p = nullptr;
  explicit Owned(T* p) : p(p) {}
  ~Owned() {
    if (p) unref(p);
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
};
using Variant = Owned<GVariant, g_variant_unref>;
using Message = Owned<DBusMessage, dbus_message_unref>;

// MPRIS players on the bus, sorted so that "bus order" is the same every time.
std::optional<std::vector<std::string>> listPlayers(GDBusConnection* bus, Error& error) {
  Variant reply(g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                            "org.freedesktop.DBus", "ListNames", nullptr, G_VARIANT_TYPE("(as)"),
                                            G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, error.out()));
  if (!reply.p) return std::nullopt;
  std::vector<std::string> names;
  GVariantIter* iter = nullptr;
  const gchar* name = nullptr;
  g_variant_get(reply.p, "(as)", &iter);
  while (g_variant_iter_loop(iter, "&s", &name)) {
    if (g_str_has_prefix(name, lumerix::mpris::busPrefix)) names.emplace_back(name);
  }
  g_variant_iter_free(iter);
  std::sort(names.begin(), names.end());
  return names;
}

// The player's state, its position sampled at *sampledAt (wall seconds).
std::optional<Player> readPlayer(GDBusConnection* bus, const std::string& name, double* sampledAt, Error& error) {
  const double before = wallNow();
  Variant reply(g_dbus_connection_call_sync(bus, name.c_str(), kPath, "org.freedesktop.DBus.Properties", "GetAll",
                                            g_variant_new("(s)", kPlayerInterface), G_VARIANT_TYPE("(a{sv})"),
                                            G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, error.out()));
  const double after = wallNow();
  if (!reply.p) return std::nullopt;
  if (sampledAt) *sampledAt = (before + after) / 2;
  Player p;
  p.busName = name;
  Variant props(g_variant_get_child_value(reply.p, 0));
  GVariantIter iter;
  g_variant_iter_init(&iter, props.p);
  const gchar* key = nullptr;
  GVariant* value = nullptr;
  while (g_variant_iter_loop(&iter, "{&sv}", &key, &value)) {
    if (!std::strcmp(key, "PlaybackStatus") && g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) {
      p.playbackStatus = g_variant_get_string(value, nullptr);
    } else if (!std::strcmp(key, "Position") && g_variant_is_of_type(value, G_VARIANT_TYPE_INT64)) {
      p.position = static_cast<double>(g_variant_get_int64(value)) / 1e6;  // microseconds
    } else if (!std::strcmp(key, "Rate") && g_variant_is_of_type(value, G_VARIANT_TYPE_DOUBLE)) {
      p.rate = g_variant_get_double(value);
    } else if (!std::strcmp(key, "Metadata") && g_variant_is_of_type(value, G_VARIANT_TYPE_VARDICT)) {
      const gchar* title = nullptr;
      if (g_variant_lookup(value, "xesam:title", "&s", &title)) p.title = title;
      const gchar* url = nullptr;
      if (p.title.empty() && g_variant_lookup(value, "xesam:url", "&s", &url)) {
        p.title = lumerix::mpris::titleFromUrl(url);
      }
    }
  }
  return p;
}

// Every player on the bus that answers; the error is set when the bus
// itself failed or no player answered at all.
std::optional<std::vector<Player>> readPlayers(GDBusConnection* bus, std::vector<double>* sampledAt, Error& error) {
  auto names = listPlayers(bus, error);
  if (!names) return std::nullopt;
  std::vector<Player> players;
  Error last;
  for (const auto& name : *names) {
    double at = 0;
    Error one;
    if (auto p = readPlayer(bus, name, &at, one)) {
      players.push_back(std::move(*p));
      if (sampledAt) sampledAt->push_back(at);
    } else if (!last) {
      std::swap(last.e, one.e);
    }
  }
  if (players.empty() && last) std::swap(error.e, last.e);
  return players;
}

// The poll, asked a few times a second for the whole session, on the bus
// library's plain blocking calls: one thread writes the request and waits
// on the socket for the reply, where GDBus hands every call to a worker
// thread and back, three wake-ups where one does. Between polls it keeps
// the players' names from the bus's word when one comes or goes, and the
// player that played last, read again only when its file changed: a poll
// is one call to the player.
class Poller {
 public:
  Poller() : file(lumerix::mpris::playedLastFile()) {
    DBusError error;
    dbus_error_init(&error);
    bus = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
    if (!bus) {
      dbus_error_free(&error);
      return;
    }
    dbus_connection_set_exit_on_disconnect(bus, FALSE);
    // Before the first listing, so that no change falls between the two.
    dbus_bus_add_match(bus,
                       "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                       "member='NameOwnerChanged',arg0namespace='org.mpris.MediaPlayer2'",
                       &error);
    dbus_error_free(&error);
  }
  ~Poller() {
    if (!bus) return;
    dbus_connection_close(bus);
    dbus_connection_unref(bus);
  }
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  // One poll answer, with its line feed.
  std::string answer(const std::string& name) {
    if (!bus) return lumerix::mpris::pollError(1) + "\n";
    const auto names = playerNames();
    if (!names) return lumerix::mpris::pollError(1) + "\n";
    std::vector<Player> players;
    for (const auto& n : *names) {
      if (auto p = readPlayer(n)) players.push_back(std::move(*p));
    }
    // Players there that none answered: the bus is as good as gone.
    if (players.empty() && !names->empty()) return lumerix::mpris::pollError(1) + "\n";
    const auto chosen = lumerix::mpris::choose(players, name, playedLast());
    std::optional<Player> player;
    for (const auto& p : players) {
      if (chosen == p.busName) player = p;
    }
    return lumerix::mpris::pollAnswer(player) + "\n";
  }

 private:
  Message call(DBusMessage* request) {
    Message asked(request);
    if (!request) return Message(nullptr);
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(bus, request, kCallTimeoutMs, &error);
    dbus_error_free(&error);
    return Message(reply);
  }

  // The players' names, sorted; absent when the bus could not list them.
  std::optional<std::vector<std::string>> playerNames() {
    // The word of players that came or went since the last poll, without
    // waiting for more; a call's wait leaves such words queued for here.
    dbus_connection_read_write(bus, 0);
    while (DBusMessage* raw = dbus_connection_pop_message(bus)) {
      Message m(raw);
      const char *name = nullptr, *oldOwner = nullptr, *newOwner = nullptr;
      if (!listed || !dbus_message_is_signal(m.p, "org.freedesktop.DBus", "NameOwnerChanged") ||
          !dbus_message_get_args(m.p, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &oldOwner, DBUS_TYPE_STRING,
                                 &newOwner, DBUS_TYPE_INVALID) ||
          !g_str_has_prefix(name, lumerix::mpris::busPrefix)) {
        continue;
      }
      if (*newOwner) {
        known.insert(name);
      } else {
        known.erase(name);
      }
    }
    if (!listed) {
      // A change heard while the list is made comes again on top of it at
      // the next poll: adding or removing a name twice changes nothing.
      Message reply = call(dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                        "org.freedesktop.DBus", "ListNames"));
      char** all = nullptr;
      int count = 0;
      if (!reply.p || !dbus_message_get_args(reply.p, nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &all, &count,
                                             DBUS_TYPE_INVALID)) {
        return std::nullopt;
      }
      known.clear();
      for (int i = 0; i < count; ++i) {
        if (g_str_has_prefix(all[i], lumerix::mpris::busPrefix)) known.insert(all[i]);
      }
      dbus_free_string_array(all);
      listed = true;
    }
    return std::vector<std::string>(known.begin(), known.end());
  }

  // The player's state, as the stream's readPlayer reads it.
  std::optional<Player> readPlayer(const std::string& name) {
    DBusMessage* request =
        dbus_message_new_method_call(name.c_str(), kPath, "org.freedesktop.DBus.Properties", "GetAll");
    const char* interface = kPlayerInterface;
    if (request) dbus_message_append_args(request, DBUS_TYPE_STRING, &interface, DBUS_TYPE_INVALID);
    Message reply = call(request);
    if (!reply.p || !dbus_message_has_signature(reply.p, "a{sv}")) return std::nullopt;
    Player p;
    p.busName = name;
    DBusMessageIter top;
    dbus_message_iter_init(reply.p, &top);
    forEachEntry(top, [&](const char* key, DBusMessageIter& value) {
      const int type = dbus_message_iter_get_arg_type(&value);
      if (!std::strcmp(key, "PlaybackStatus") && type == DBUS_TYPE_STRING) {
        p.playbackStatus = basicString(value);
      } else if (!std::strcmp(key, "Position") && type == DBUS_TYPE_INT64) {
        dbus_int64_t micros = 0;
        dbus_message_iter_get_basic(&value, &micros);
        p.position = static_cast<double>(micros) / 1e6;
      } else if (!std::strcmp(key, "Rate") && type == DBUS_TYPE_DOUBLE) {
        dbus_message_iter_get_basic(&value, &p.rate);
      } else if (!std::strcmp(key, "Metadata") && signatureOf(value) == "a{sv}") {
        std::string title, url;
        forEachEntry(value, [&](const char* field, DBusMessageIter& text) {
          if (dbus_message_iter_get_arg_type(&text) != DBUS_TYPE_STRING) return;
          if (!std::strcmp(field, "xesam:title")) title = basicString(text);
          if (!std::strcmp(field, "xesam:url")) url = basicString(text);
        });
        p.title = !title.empty() ? title : !url.empty() ? lumerix::mpris::titleFromUrl(url) : "";
      }
    });
    return p;
  }

  // Each entry of the a{sv} dictionary `dict` points at, with its value's
  // variant opened.
  template <typename F>
  static void forEachEntry(DBusMessageIter& dict, F&& f) {
    DBusMessageIter entries;
    dbus_message_iter_recurse(&dict, &entries);
    for (; dbus_message_iter_get_arg_type(&entries) == DBUS_TYPE_DICT_ENTRY; dbus_message_iter_next(&entries)) {
      DBusMessageIter entry, value;
      const char* key = nullptr;
      dbus_message_iter_recurse(&entries, &entry);
      dbus_message_iter_get_basic(&entry, &key);
      dbus_message_iter_next(&entry);
      dbus_message_iter_recurse(&entry, &value);
      f(key, value);
    }
  }

  static std::string basicString(DBusMessageIter& it) {
    const char* text = nullptr;
    dbus_message_iter_get_basic(&it, &text);
    return text ? text : "";
  }

  static std::string signatureOf(DBusMessageIter& it) {
    char* sig = dbus_message_iter_get_signature(&it);
    std::string out = sig ? sig : "";
    dbus_free(sig);
    return out;
  }

  std::optional<std::string> playedLast() {
    if (!file) return std::nullopt;
    struct stat st {};
    const bool there = ::stat(file->c_str(), &st) == 0;
    const Stamp now{there, st.st_ino, st.st_mtim.tv_sec, st.st_mtim.tv_nsec, st.st_size};
    if (!read || !(now == stamp)) {
      last = there ? lumerix::mpris::readPlayedLast(*file) : std::nullopt;
      stamp = now;
      read = true;
    }
    return last;
  }

  struct Stamp {
    bool there = false;
    ino_t inode = 0;
    time_t seconds = 0;
    long nanos = 0;
    off_t size = 0;
    bool operator==(const Stamp&) const = default;
  };

  DBusConnection* bus = nullptr;
  bool listed = false;
  std::set<std::string> known;
  const std::optional<std::string> file;
  bool read = false;
  Stamp stamp;
  std::optional<std::string> last;
};

// Resident: one answer a request line, until stdin ends. Without a bus,
// every request gets the error.
int serve(const std::string& name) {
  Poller poller;
  char request[4096];
  while (std::fgets(request, sizeof request, stdin)) {
    if (!std::strchr(request, '\n') && !std::feof(stdin)) continue;  // the rest of an overlong line
    if (std::fputs(poller.answer(name).c_str(), stdout) < 0 || std::fflush(stdout) != 0)
      return 0;  // the reader went away
  }
  return 0;
}

class Stream {
 public:
  Stream(GDBusConnection* bus, std::string name, GMainLoop* loop)
      : bus(bus), name(std::move(name)), loop(loop), memory(lumerix::mpris::playedLastFile()) {
    if (memory) playedLast = lumerix::mpris::readPlayedLast(*memory);
  }

  void run() {
    subscribe("org.freedesktop.DBus", "NameOwnerChanged", nullptr, nullptr);
    subscribe("org.freedesktop.DBus.Properties", "PropertiesChanged", kPath, kPlayerInterface);
    subscribe(kPlayerInterface, "Seeked", kPath, nullptr);
    g_timeout_add_seconds(2, &Stream::onTimer, this);
    refresh(true);
    g_main_loop_run(loop);
  }

 private:
  void subscribe(const char* interface, const char* member, const char* path, const char* arg0) {
    g_dbus_connection_signal_subscribe(bus, nullptr, interface, member, path, arg0, G_DBUS_SIGNAL_FLAGS_NONE,
                                       &Stream::onSignal, this, nullptr);
  }

  static void onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* member, GVariant* args,
                       gpointer self) {
    if (!std::strcmp(member, "NameOwnerChanged")) {
      const gchar* changed = nullptr;
      g_variant_get_child(args, 0, "&s", &changed);
      if (!g_str_has_prefix(changed, lumerix::mpris::busPrefix)) return;
    }
    static_cast<Stream*>(self)->refresh(false);
  }

  static gboolean onTimer(gpointer self) {
    auto* s = static_cast<Stream*>(self);
    if (s->current && s->current->playbackStatus == "Playing") s->refresh(false);
    return G_SOURCE_CONTINUE;
  }

  // Re-reads every player, and tells what changed for the one we follow.
  void refresh(bool first) {
    Error error;
    std::vector<double> stamps;
    auto players = readPlayers(bus, &stamps, error);
    if (!players) return;  // the bus hiccuped; the next event or tick tries again
    const std::vector<std::string> wanted = lumerix::mpris::picked(*players, name);
    for (const auto& p : *players) {
      if (p.playbackStatus == "Playing" && std::find(wanted.begin(), wanted.end(), p.busName) != wanted.end()) {
        if (playedLast != p.busName && memory) lumerix::mpris::writePlayedLast(*memory, p.busName);
        playedLast = p.busName;
        break;
      }
    }
    const auto chosen = lumerix::mpris::choose(*players, name, playedLast);
    const Player* now = nullptr;
    double sampledAt = 0;
    for (std::size_t i = 0; i < players->size(); ++i) {
      if (chosen == (*players)[i].busName) {
        now = &(*players)[i];
        sampledAt = stamps[i];
      }
    }
    if (!now) {
      if (first || current) emit(lumerix::mpris::Payload{}, false);  // nothing to follow
      current.reset();
      return;
    }
    if (first || !current || current->busName != now->busName) {
      emit(lumerix::mpris::fullPayload(*now, sampledAt), false);
    } else if (const auto diff = lumerix::mpris::diffPayload(*current, *now, sampledAt); !diff.empty()) {
      emit(diff, true);  // a player playing without a position changes nothing every 2 s
    }
    current = *now;
  }

  void emit(const lumerix::mpris::Payload& payload, bool diff) {
    const std::string line = lumerix::mpris::streamLine(payload, diff) + "\n";
    // A reader that went away ends the stream.
    if (std::fputs(line.c_str(), stdout) < 0 || std::fflush(stdout) != 0) g_main_loop_quit(loop);
  }

  GDBusConnection* bus;
  const std::string name;
  GMainLoop* loop;
  std::optional<Player> current;
  std::optional<std::string> playedLast;
  const std::optional<std::string> memory;  // shared with the one-shot poll
};

gboolean onStop(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

constexpr const char* kUsage =
    "usage: lumerix-mpris poll|serve|stream [--player NAME]\n"
    "\n"
    "Tells Lumerix where an MPRIS media player is; Lumerix runs it, not you.\n"
    "  poll    print one line and exit: \"true|12.5|1|Title\" (playing, position in\n"
    "          seconds, rate, title), \"false|missing value|1|Title\", \"off\" (no\n"
    "          player) or \"err|N\"\n"
    "  serve   answer each line read on stdin with one such line, until stdin\n"
    "          ends: the way Lumerix polls, with one process for the session\n"
    "  stream  print one JSON object a line whenever the player changes, and\n"
    "          every 2 s while it plays, until killed; exits when Lumerix does\n"
    "  --player NAME  follow org.mpris.MediaPlayer2.NAME (and NAME.*) only, or,\n"
    "          when no player is named so, those with NAME as a part of their\n"
    "          bus name in any case (celluloid, chromium, firefox); without it,\n"
    "          the player that is playing, else the one that played last, else\n"
    "          the first paused one\n";

int usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h"))) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (argc < 2) return usage();
  // Never outlive Lumerix, however it ends: the kernel signals us when the
  // thread that started us goes, and a parent gone already shows as a new one.
  const pid_t parent = ::getppid();
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != parent) return 0;
  const std::string mode = argv[1];
  std::string name;
  for (int i = 2; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--player" && i + 1 < argc) {
      name = argv[++i];
    } else if (a.starts_with("--player=")) {
      name = a.substr(9);
    } else {
      return usage();
    }
  }
  if (mode != "poll" && mode != "serve" && mode != "stream") return usage();
  ::signal(SIGPIPE, SIG_IGN);

  // The poll, once or resident, on the bus library's blocking calls; the
  // stream, which waits on events, on GDBus's main loop.
  if (mode == "poll") {
    Poller poller;
    std::fputs(poller.answer(name).c_str(), stdout);
    return 0;
  }
  if (mode == "serve") return serve(name);
  Error error;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, error.out());
  if (!bus) {
    std::fprintf(stderr, "lumerix-mpris: no D-Bus session bus: %s\n", error.e->message);
    return 1;
  }
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  g_unix_signal_add(SIGTERM, onStop, loop);
  g_unix_signal_add(SIGINT, onStop, loop);
  Stream(bus, name, loop).run();
  g_main_loop_unref(loop);
  g_object_unref(bus);
  return 0;
}
