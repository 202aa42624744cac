#include <gio/gio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "SyncTestSupport.h"
#include "linux/LinuxSystem.h"
#include "sync/Subprocess.h"
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
    EXPECT_EQ(answer.latest(300ms), shared);  // waits its patience, then goes on
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
  const std::string address;

 private:
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

}  // namespace
}  // namespace lumerix
