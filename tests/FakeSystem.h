#pragma once

#include <atomic>
#include <optional>
#include <vector>

#include "platform/System.h"

namespace lumerix::test {

// A machine whose clocks move only when told to (or follow the real clocks
// when `realTime` is set, for tests that run real threads).
class FakeSystem : public System {
 public:
  std::atomic<double> now{1000.0};
  std::atomic<double> wall{1.7e9};
  bool realTime = false;

  std::vector<int> pids{4242};
  std::optional<std::vector<WindowInfo>> windows = std::vector<WindowInfo>{};
  std::vector<ScreenSize> screens{{1920, 1080}};
  int windowQueries = 0;

  bool running = true;
  std::optional<int> permission = 0;
  int permissionRequests = 0;

  void advance(double seconds) {
    now = now + seconds;
    wall = wall + seconds;
  }

  double uptime() const noexcept override { return realTime ? real.uptime() : now.load(); }
  double wallClock() const noexcept override { return realTime ? real.wallClock() : wall.load(); }
  std::vector<int> targetProcessIds() override { return pids; }
  std::optional<std::vector<WindowInfo>> onScreenWindows() override {
    ++windowQueries;
    return windows;
  }
  std::vector<ScreenSize> screenSizes() override { return screens; }
  bool targetRunning() override { return running; }
  std::optional<int> requestAutomationPermission() override {
    ++permissionRequests;
    return permission;
  }

 private:
  SystemClock real;
};

}  // namespace lumerix::test
