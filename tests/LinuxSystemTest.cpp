#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "ScopedEnv.h"
#include "SyncTestSupport.h"
#include "linux/Autostart.h"
#include "linux/LinuxSystem.h"
#include "sync/FusedSync.h"
#include "sync/Subprocess.h"
#include "util/Files.h"
#include "util/LatestAnswer.h"

namespace lumerix {
namespace {

using namespace std::chrono_literals;

// A window server that froze: the question never returns while it is
// stopped. The asker is never held up, and quitting does not wait on it.
TEST(LatestAnswer, AStuckQuestionNeverHoldsUpTheAsker) {
  auto release = std::make_shared<std::atomic<bool>>(false);
  auto asked = std::make_shared<std::atomic<int>>(0);
  const auto begin = std::chrono::steady_clock::now();
  {
    LatestAnswer<int> answer("test", [release, asked] {
      const int n = ++*asked;
      if (n >= 2) {
        while (!*release) std::this_thread::sleep_for(5ms);  // frozen from the second question on
      }
      return n;
    });
    ASSERT_TRUE(test::waitFor([&] { return answer.latest() == 1; }));  // and asks again: that one sticks
    ASSERT_TRUE(test::waitFor([&] { return *asked >= 2; }));
    for (int i = 0; i < 100; ++i) EXPECT_EQ(answer.latest(), 1);
  }  // gives up waiting on the stuck question after a second
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 4s);
  *release = true;  // the stuck thread may finish now, with what it kept alive
}

// The tick waits briefly for a fresh answer, shares one answer among the
// questions of one test, and waits on a frozen server only once.
TEST(LatestAnswer, WaitsBrieflyForAFreshAnswerButNeverTwiceOnAStuckOne) {
  auto frozen = std::make_shared<std::atomic<bool>>(false);
  auto release = std::make_shared<std::atomic<bool>>(false);
  auto asked = std::make_shared<std::atomic<int>>(0);
  {
    LatestAnswer<int> answer("test", [frozen, release, asked] {
      const int n = ++*asked;
      while (*frozen && !*release) std::this_thread::sleep_for(5ms);
      return n;
    });
    ASSERT_TRUE(answer.waitForFresh(5s));
    // Each call past freshness gets the answer to its own question.
    const int first = answer.latest(5s).value();
    EXPECT_EQ(answer.latest(5s), first + 1);
    // Within freshness nothing new is asked.
    const int shared = answer.latest(5s, 1h).value();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(answer.latest(5s, 1h), shared);
    EXPECT_EQ(*asked, shared);

    *frozen = true;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(answer.latest(300ms), shared);                               // waits its patience, then goes on
    for (int i = 0; i < 50; ++i) EXPECT_EQ(answer.latest(300ms), shared);  // the stuck question is not waited on
    // One wait of 0.3 s; fifty more would take fifteen seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    *release = true;
    EXPECT_TRUE(test::waitFor([&] { return answer.latest() == shared + 1; }));
  }
}

// A private session bus that we can take away and bring back.
class PrivateBus {
 public:
  explicit PrivateBus(std::string socket) : address("unix:path=" + std::move(socket)) {}
  bool start() {
    auto started = Subprocess::start({"dbus-daemon", "--session", "--nofork", "--address=" + address});
    if (!started) return false;
    daemon = std::move(started.value());
    return test::waitFor([&] { return (connection = connect()) != nullptr; }, 5s);
  }
  void stop() {
    stopServing();
    if (connection) g_object_unref(connection);
    connection = nullptr;
    if (daemon) daemon->stop(1s);
    daemon.reset();
  }
  ~PrivateBus() { stop(); }
  // Takes a player's name, as mpv would.
  bool own(const char* name) {
    GVariant* reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", name, 0), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr);
    if (reply) g_variant_unref(reply);
    return reply != nullptr;
  }
  // Answers org.mpris.MediaPlayer2's Fullscreen with *full, on a thread of
  // its own (the asker waits for the answer).
  void serveFullscreen(const std::atomic<bool>* full) {
    static const char* xml =
        "<node><interface name='org.mpris.MediaPlayer2'>"
        "<property name='Fullscreen' type='b' access='read'/></interface></node>";
    info = g_dbus_node_info_new_for_xml(xml, nullptr);
    static const GDBusInterfaceVTable vtable = {
        nullptr,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GError**,
           gpointer data) -> GVariant* {
          return g_variant_new_boolean(static_cast<const std::atomic<bool>*>(data)->load());
        },
        nullptr,
        {}};
    context = g_main_context_new();
    g_main_context_push_thread_default(context);
    g_dbus_connection_register_object(connection, "/org/mpris/MediaPlayer2", info->interfaces[0], &vtable,
                                      const_cast<std::atomic<bool>*>(full), nullptr, nullptr);
    g_main_context_pop_thread_default(context);
    loop = g_main_loop_new(context, FALSE);
    server = std::thread([this] { g_main_loop_run(loop); });
  }
  const std::string address;

 private:
  void stopServing() {
    if (!loop) return;
    g_main_loop_quit(loop);
    server.join();
    g_main_loop_unref(loop);
    g_main_context_unref(context);
    g_dbus_node_info_unref(info);
    loop = nullptr;
  }
  GDBusConnection* connect() {
    GDBusConnection* c = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    if (c) g_dbus_connection_set_exit_on_close(c, FALSE);
    return c;
  }
  std::unique_ptr<Subprocess> daemon;
  GDBusConnection* connection = nullptr;
  GDBusNodeInfo* info = nullptr;
  GMainContext* context = nullptr;
  GMainLoop* loop = nullptr;
  std::thread server;
};

// After the session bus restarts, the players on it are found again.
#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
#else
constexpr bool kThreadSanitizer = false;
#endif

TEST(LinuxSystem, FindsPlayersAgainAfterTheBusRestarts) {
  if (::access("/usr/bin/dbus-daemon", X_OK) != 0) GTEST_SKIP() << "needs dbus-daemon";
  // GLib's own locking is invisible to an uninstrumented library's checker.
  if (kThreadSanitizer) GTEST_SKIP() << "GDBus under ThreadSanitizer reports its own locking as races";
  test::TempDir dir;
  PrivateBus bus(dir.path("bus"));
  ASSERT_TRUE(bus.start());
  ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.address.c_str(), 1);
  ::unsetenv("DISPLAY");
  ASSERT_TRUE(bus.own("org.mpris.MediaPlayer2.fake"));
  LinuxSystem system("fake");
  auto found = [&] {
    system.waitForFreshAnswers(3s);
    return system.targetProcessIds() == std::vector<int>{::getpid()};
  };
  EXPECT_TRUE(test::waitFor(found, 10s));

  bus.stop();
  ASSERT_TRUE(bus.start());
  ASSERT_TRUE(bus.own("org.mpris.MediaPlayer2.fake"));
  EXPECT_TRUE(test::waitFor(found, 10s));
}

// On Wayland a native player's window is out of the X list's sight: the
// player's own MPRIS word on full screen is what counts there, and only there.
// The player's name is a part of its bus name, as Celluloid's is: found all
// the same, as the poll finds it.
TEST(LinuxSystem, OnWaylandThePlayersOwnFullscreenWordCounts) {
  if (::access("/usr/bin/dbus-daemon", X_OK) != 0) GTEST_SKIP() << "needs dbus-daemon";
  if (kThreadSanitizer) GTEST_SKIP() << "GDBus under ThreadSanitizer reports its own locking as races";
  test::TempDir dir;
  PrivateBus bus(dir.path("bus"));
  ASSERT_TRUE(bus.start());
  test::ScopedEnv address("DBUS_SESSION_BUS_ADDRESS", bus.address);
  ::unsetenv("DISPLAY");
  ASSERT_TRUE(bus.own("org.mpris.MediaPlayer2.io.github.fake_player.Fake.instance-1"));
  std::atomic<bool> full{false};
  bus.serveFullscreen(&full);
  auto fullscreen = [](LinuxSystem& system) {
    system.waitForFreshAnswers(3s);
    const auto windows = system.onScreenWindows();
    return isFullscreen(system.targetProcessIds(), windows, system.screenSizes());
  };
  {
    test::ScopedEnv wayland("WAYLAND_DISPLAY", "wayland-1");
    LinuxSystem system("fake");
    ASSERT_TRUE(test::waitFor([&] { return system.targetProcessIds() == std::vector<int>{::getpid()}; }));
    EXPECT_FALSE(fullscreen(system));
    full = true;
    EXPECT_TRUE(test::waitFor([&] { return fullscreen(system); }));
    full = false;
    EXPECT_TRUE(test::waitFor([&] { return !fullscreen(system); }));
    full = true;
    EXPECT_TRUE(test::waitFor([&] { return fullscreen(system); }));
  }
  test::ScopedEnv wayland("WAYLAND_DISPLAY", "");
  LinuxSystem x11("fake");
  ASSERT_TRUE(test::waitFor([&] { return x11.targetProcessIds() == std::vector<int>{::getpid()}; }));
  EXPECT_FALSE(fullscreen(x11)) << "on X11 the window manager's word is the one";
}

// Start at login: the check box shows what the autostart folder holds,
// and turning it off by the desktop's own switch counts as off.
TEST(Autostart, TheEntryIsWrittenReadBackAndRemoved) {
  test::TempDir home;
  std::optional<std::string> entry;
  {
    test::ScopedEnv config("XDG_CONFIG_HOME", home.path("config"));
    entry = autostart::entryPath();
  }
  ASSERT_EQ(entry, home.path("config/autostart/io.lumerix.Lumerix.desktop"));

  EXPECT_FALSE(autostart::enabled(*entry));
  ASSERT_TRUE(autostart::setEnabled(*entry, true, "/opt/My Apps/lumerix"));  // no config folder yet
  EXPECT_TRUE(autostart::enabled(*entry));
  std::string text;
  ASSERT_TRUE(readWholeFile(*entry, text));
  EXPECT_NE(text.find("\nExec=\"/opt/My Apps/lumerix\"\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\nX-GNOME-Autostart-enabled=true\n"), std::string::npos) << text;
  if (::system("command -v desktop-file-validate >/dev/null") == 0) {  // installed by setup --ci
    EXPECT_EQ(::system(("desktop-file-validate '" + *entry + "'").c_str()), 0);
  }

  home.write("config/autostart/io.lumerix.Lumerix.desktop",
             "[Desktop Entry]\nType=Application\nExec=lumerix\nX-GNOME-Autostart-enabled = false\n");
  EXPECT_FALSE(autostart::enabled(*entry)) << "switched off by GNOME";
  home.write("config/autostart/io.lumerix.Lumerix.desktop", "[Desktop Entry]\nExec=lumerix\nHidden=true\n");
  EXPECT_FALSE(autostart::enabled(*entry)) << "hidden by the user";
  home.write("config/autostart/io.lumerix.Lumerix.desktop",
             "[Desktop Entry]\nExec=lumerix\n[Desktop Action x]\nHidden=true\n");
  EXPECT_TRUE(autostart::enabled(*entry)) << "another group's key";

  EXPECT_TRUE(autostart::setEnabled(*entry, false, "lumerix"));
  EXPECT_FALSE(autostart::enabled(*entry));
  EXPECT_TRUE(autostart::setEnabled(*entry, false, "lumerix")) << "already off";
}

// What the desktop reads back from Exec is the path, whatever it holds.
TEST(Autostart, ExecQuotesWhatThePathHolds) {
  test::TempDir dir;
  // GLib refuses an entry whose program is not there: real files.
  for (const std::string name : {"lumerix", "a \"b\"/$x/`y`/back\\slash/lumerix"}) {
    dir.write(name, "#!/bin/sh\n");
    const std::string path = dir.path(name);
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    dir.write("io.lumerix.Lumerix.desktop", autostart::entryText(path));
    GDesktopAppInfo* info = g_desktop_app_info_new_from_filename(dir.path("io.lumerix.Lumerix.desktop").c_str());
    ASSERT_NE(info, nullptr) << autostart::entryText(path);
    gchar** argv = nullptr;
    ASSERT_TRUE(g_shell_parse_argv(g_app_info_get_commandline(G_APP_INFO(info)), nullptr, &argv, nullptr));
    EXPECT_EQ(std::string(argv[0]), path) << g_app_info_get_commandline(G_APP_INFO(info));
    EXPECT_EQ(argv[1], nullptr);
    g_strfreev(argv);
    g_object_unref(info);
  }
}

}  // namespace
}  // namespace lumerix
