#include "util/StopSignals.h"

#include <pthread.h>
#include <signal.h>

namespace lumerix::stopsignals {

const int kSignals[kCount] = {SIGTERM, SIGINT, SIGHUP};

namespace {

sigset_t stopSet() noexcept {
  sigset_t set;
  sigemptyset(&set);
  for (int s : kSignals) sigaddset(&set, s);
  return set;
}

}  // namespace

void hold() noexcept {
  const sigset_t set = stopSet();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int takePending() noexcept {
  sigset_t pending;
  sigemptyset(&pending);
  if (sigpending(&pending) != 0) return 0;
  for (int s : kSignals) {
    if (!sigismember(&pending, s)) continue;
    // It is pending and held: sigwait returns at once, and takes it off.
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, s);
    int taken = 0;
    if (sigwait(&one, &taken) == 0) return taken;
  }
  return 0;
}

void release() noexcept {
  const sigset_t set = stopSet();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace lumerix::stopsignals
