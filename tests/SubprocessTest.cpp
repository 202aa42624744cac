#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "SyncTestSupport.h"
#include "sync/Subprocess.h"

namespace lumerix {
namespace {

using namespace std::chrono_literals;

std::set<int> inheritableFds() {
  std::set<int> fds;
  DIR* dir = ::opendir("/proc/self/fd");
  const int own = ::dirfd(dir);
  while (dirent* e = ::readdir(dir)) {
    if (e->d_name[0] == '.') continue;
    const int fd = std::atoi(e->d_name);
    if (fd != own && !(::fcntl(fd, F_GETFD) & FD_CLOEXEC)) fds.insert(fd);
  }
  ::closedir(dir);
  return fds;
}

TEST(Subprocess, RunsToCompletionAndReportsLaunchFailures) {
  ProcessSlot slot;
  auto out = slot.run({"/bin/sh", "-c", "printf 'a|b'; printf oops >&2"}, 5.0);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->out, "a|b");
  EXPECT_EQ(out->err, "oops");
  // Output larger than a pipe holds is drained while the child runs, and
  // only its first 64 KiB are kept: a flood costs no memory.
  auto big = slot.run({"/bin/sh", "-c", "head -c 30000000 /dev/zero"}, 5.0);
  ASSERT_TRUE(big);
  EXPECT_EQ(big->out.size(), 65536u);

  auto missing = Subprocess::start({"/no/such/helper"});
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error(), "No such file or directory");
  auto notExecutable = Subprocess::start({test::helper("not-executable.sh")});
  ASSERT_FALSE(notExecutable.ok());
  EXPECT_EQ(notExecutable.error(), "Permission denied");
  EXPECT_FALSE(slot.run({"/no/such/helper"}, 1.0));
}

TEST(Subprocess, ChildrenInheritNoDescriptorsOfOurs) {
  if (!test::haveProc()) GTEST_SKIP() << "needs /proc";
  // A live child holds three pipes of ours; a second child must see none of
  // them, only what this process deliberately leaves inheritable.
  auto holder = Subprocess::start({"/bin/sleep", "5"});
  ASSERT_TRUE(holder.ok());
  std::set<int> expected = inheritableFds();
  expected.insert({0, 1, 2});
  ProcessSlot slot;
  auto out = slot.run({"/bin/sh", "-c", "ls /proc/$$/fd"}, 5.0);
  ASSERT_TRUE(out);
  std::set<int> seen;
  std::istringstream in(out->out);
  for (int fd; in >> fd;) seen.insert(fd);
  EXPECT_EQ(seen, expected);
}

TEST(Subprocess, DeadlineStopsTheChildAndEverythingItStarted) {
  test::TempDir dir;
  const std::string pids = dir.path("pids");
  ProcessSlot slot;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(slot.run({test::helper("record-and-hang.sh"), pids}, 0.3));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
  const pid_t pid = test::firstPid(pids);
  ASSERT_GT(pid, 0);
  EXPECT_TRUE(test::processGroupGone(pid));  // reaped, and its sleep killed with it
}

// Runs the helper in the slot, cancelling the slot from another thread
// once the helper has written its pid; returns what the run returned.
bool runCancelledOnceStarted(ProcessSlot& slot, const std::string& helper, const std::string& pids) {
  std::thread canceller([&] {
    test::waitFor([&] { return test::firstPid(pids) > 0; });
    slot.cancel();
  });
  const bool ran = slot.run({test::helper(helper), pids}, std::nullopt).has_value();
  canceller.join();
  return ran;
}

TEST(Subprocess, CancellingStopsTheRunInFlightAndRefusesNewOnes) {
  test::TempDir dir;
  const std::string pids = dir.path("pids");
  ProcessSlot slot;
  EXPECT_FALSE(runCancelledOnceStarted(slot, "record-and-hang.sh", pids));
  EXPECT_TRUE(test::processGroupGone(test::firstPid(pids)));
  slot.cancel();  // twice is harmless
  EXPECT_FALSE(slot.run({"/bin/echo", "hi"}, 1.0));
}

// A helper that ignores SIGTERM must not keep anyone waiting: a cancelled
// run is killed after a second's grace, whoever is pumping it.
TEST(Subprocess, ChildrenThatIgnoreTheStopRequestAreKilled) {
  test::TempDir dir;
  const std::string pids = dir.path("pids");
  ProcessSlot slot;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(runCancelledOnceStarted(slot, "ignore-term.sh", pids));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
  EXPECT_TRUE(test::processGroupGone(test::firstPid(pids)));
}

// Where the reaper cannot wait without reaping, it still never blocks
// others from signalling the child.
TEST(Subprocess, TheReaperNeverBlocksSignallingWhileItWaits) {
  testhooks::failWaitForExit(true);
  auto child = Subprocess::start({"/bin/sleep", "30"});
  ASSERT_TRUE(child.ok());
  std::atomic<bool> signalled{false};
  std::thread stopper([&] {
    std::this_thread::sleep_for(100ms);  // the reaper is waiting by now
    child.value()->terminate();
    signalled = true;
  });
  EXPECT_TRUE(test::waitFor([&] { return signalled.load(); }, 3s));
  EXPECT_TRUE(test::waitFor([&] { return child.value()->exited(); }, 3s));
  stopper.join();
  testhooks::failWaitForExit(false);
  EXPECT_EQ(child.value()->exitStatus(), 128 + SIGTERM);
  EXPECT_TRUE(child.value()->killedBySignal());
  // The same status by its own hand is no signal.
  auto exits = Subprocess::start({"/bin/sh", "-c", "exit 143"});
  ASSERT_TRUE(exits.ok());
  exits.value()->pump(nullptr, nullptr);
  EXPECT_EQ(exits.value()->exitStatus(), 128 + SIGTERM);
  EXPECT_FALSE(exits.value()->killedBySignal());
}

TEST(Subprocess, ChildrenGetDefaultSignalHandling) {
  if (!test::haveProc()) GTEST_SKIP() << "needs /proc";
  // We ignore SIGPIPE in this process; a child must not inherit that, or a
  // helper writing to a closed pipe would spin instead of dying.
  struct sigaction old {};
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &old);
  ProcessSlot slot;
  auto out = slot.run({"/bin/sh", "-c", "grep SigIgn /proc/self/status"}, 5.0);
  ::sigaction(SIGPIPE, &old, nullptr);
  ASSERT_TRUE(out);
  const unsigned long mask = std::stoul(out->out.substr(out->out.find(':') + 1), nullptr, 16);
  EXPECT_EQ(mask & (1UL << (SIGPIPE - 1)), 0u) << out->out;
}

}  // namespace
}  // namespace lumerix
