#pragma once

#include <optional>
#include <vector>

#include "platform/Clock.h"

namespace lumerix {

struct WindowInfo {
  int ownerPid = 0;
  double width = 0;
  double height = 0;
  // The window manager's own word on full screen, where it keeps one (X11's
  // _NET_WM_STATE_FULLSCREEN); absent where only the size tells (macOS).
  std::optional<bool> fullscreenState = std::nullopt;
};

struct ScreenSize {
  double width = 0;
  double height = 0;
};

// What the sync sources need to know about the machine and the player they
// follow (the TV app on macOS, an MPRIS player on Linux). Implemented once
// per platform; tests use scripted fakes. No member throws.
//
// Thread contract:
// - targetProcessIds, onScreenWindows and screenSizes: the main thread only
//   (the full-screen test inside the tick, at most twice a second). They
//   should answer quickly; the tick waits for them.
// - targetRunning and requestAutomationPermission: the poller's thread only.
//   The permission request may block for as long as the user takes.
// - the clock members: any thread (see Clock).
// So an implementation sees at most one call from each of the two groups at
// a time, and must keep state the two groups share under a lock.
class System : public Clock {
 public:
  // Process ids of the running target player; empty when it is not running.
  virtual std::vector<int> targetProcessIds() = 0;
  // On-screen windows, desktop elements excluded, in the window server's
  // order; absent when the list cannot be had.
  virtual std::optional<std::vector<WindowInfo>> onScreenWindows() = 0;
  // Sizes of all screens' frames, in the platform's screen order.
  virtual std::vector<ScreenSize> screenSizes() = 0;

  // Whether any running application is the target player.
  virtual bool targetRunning() = 0;
  // Asks the system whether we may automate the target, letting it ask the
  // user when needed (may block for as long as the user takes). The result
  // is the system's status code: 0 granted, -1743 refused, -600 target not
  // running. Absent when the target cannot even be addressed.
  virtual std::optional<int> requestAutomationPermission() = 0;
};

}  // namespace lumerix
