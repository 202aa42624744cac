#include "sync/FusedSync.h"

#include <algorithm>
#include <cmath>

namespace lumerix {

bool isFullscreen(const std::vector<int>& targetPids, const std::optional<std::vector<WindowInfo>>& windows,
                  const std::vector<ScreenSize>& screens) {
  if (targetPids.empty() || !windows) return false;
  for (const WindowInfo& w : *windows) {
    if (std::find(targetPids.begin(), targetPids.end(), w.ownerPid) == targetPids.end()) continue;
    // Where the window manager says, its word counts: a maximized window on
    // a screen without panels is the screen's size and still not full screen.
    if (w.fullscreenState) {
      if (*w.fullscreenState) return true;
      continue;
    }
    for (const ScreenSize& s : screens) {
      if (std::fabs(w.width - s.width) < 2.0 && std::fabs(w.height - s.height) < 2.0) return true;
    }
  }
  return false;
}

FusedSync::FusedSync(System& system, std::unique_ptr<SyncSource> tv, std::unique_ptr<SyncSource> mr,
                     bool pollerLeadsInFullscreen)
    : system(system), tv(std::move(tv)), mr(std::move(mr)), pollerLeadsInFullscreen(pollerLeadsInFullscreen) {}

void FusedSync::start() {
  tv->start();
  mr->start();
}

void FusedSync::onChange(std::function<void()> wake) {
  tv->onChange(wake);
  mr->onChange(std::move(wake));
}

void FusedSync::cancel() {
  tv->cancel();
  mr->cancel();
}

bool FusedSync::detectFullscreen() {
  const auto pids = system.targetProcessIds();
  if (pids.empty()) return false;
  return isFullscreen(pids, system.onScreenWindows(), system.screenSizes());
}

void FusedSync::refreshFullscreen() {
  // The window list is the costly part: ask at most twice a second.
  const double now = system.uptime();
  if (now - lastFSCheck >= 0.5) {
    lastFSCheck = now;
    lastFS = detectFullscreen();
  }
}

bool FusedSync::fullscreen() {
  refreshFullscreen();
  return lastFS;
}

void FusedSync::snapshotInto(SyncSnapshot& into) {
  if (!pollerLeadsInFullscreen) refreshFullscreen();
  tv->snapshotInto(t);
  mr->snapshotInto(m);

  if (!lastFS || pollerLeadsInFullscreen) {
    if (t.position) {
      // Learn how far the stream sits from the poller, but not from wild
      // differences or while the poller's clock is frozen.
      if (m.position && !t.holding && std::fabs(*t.position - *m.position) < 2.0) {
        const double d = *t.position - *m.position;
        mrBias = mrBias ? 0.2 * d + 0.8 * *mrBias : d;
      }
      into = t;
      return;
    }
    if (t.idle) {
      into = t;
      return;
    }
  }
  if (m.position) {
    into.position = *m.position + mrBias.value_or(0.0);
    into.playing = m.playing;
    into.track = m.track;
    into.status.clear();
    into.idle = false;
    into.holding = false;
    into.rate = m.rate;
    return;
  }
  if (t.position) {
    into = t;
  } else if (!m.status.empty()) {
    into = m;
  } else {
    into = t;
  }
}

}  // namespace lumerix
