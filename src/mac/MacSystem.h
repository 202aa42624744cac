#pragma once

#include "platform/System.h"

namespace lumerix {

// The machine as seen from macOS, following the TV app: running
// applications, the window server's list, the screens and the Apple-event
// consent. It keeps no state, so its main-thread and poller-thread members
// share nothing that would need a lock.
class MacSystem : public System {
 public:
  double uptime() const noexcept override { return clock.uptime(); }
  double wallClock() const noexcept override { return clock.wallClock(); }
  std::vector<int> targetProcessIds() override;
  std::optional<std::vector<WindowInfo>> onScreenWindows() override;
  std::vector<ScreenSize> screenSizes() override;
  bool targetRunning() override;
  // May block while the system asks the user; the poller's thread only.
  std::optional<int> requestAutomationPermission() override;

 private:
  SystemClock clock;
};

}  // namespace lumerix
