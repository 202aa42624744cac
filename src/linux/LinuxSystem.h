#pragma once

#include <string>

#include "platform/System.h"

namespace lumerix {

// The machine as seen from Linux, following MPRIS players. Automation needs
// no consent here, so permission is always granted.
class LinuxSystem : public System {
 public:
  double uptime() const override { return clock.uptime(); }
  double wallClock() const override { return clock.wallClock(); }
  std::vector<int> targetProcessIds() override { return {}; }
  std::optional<std::vector<WindowInfo>> onScreenWindows() override { return std::nullopt; }
  std::vector<ScreenSize> screenSizes() override { return {}; }
  bool targetRunning() override { return true; }
  std::optional<int> requestAutomationPermission() override { return 0; }

  // lumerix-mpris beside our own executable.
  std::string helperPath() const;

 private:
  SystemClock clock;
};

}  // namespace lumerix
