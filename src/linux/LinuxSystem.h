#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/System.h"
#include "util/LatestAnswer.h"

namespace lumerix {

// The machine as seen from Linux, following MPRIS players. Automation needs
// no consent here, so permission is always granted.
//
// The session bus and the X server are asked on a thread of their own:
// either may freeze or vanish, and the tick must not wait long for them. A
// round of questions takes about a millisecond, so the tick waits up to
// kPatience for a fresh one: full screen is then seen as soon as it was
// when asked directly. One that takes longer is not waited for again until
// it returns; the tick goes on with the answers it has. The three questions
// of one full-screen test share one round (kFresh). A bus or display that
// goes away is connected to afresh.
class LinuxSystem : public System {
 public:
  // player: the MPRIS name followed ("mpv"); empty follows any player.
  explicit LinuxSystem(std::string player = "");
  LinuxSystem(const LinuxSystem&) = delete;
  LinuxSystem& operator=(const LinuxSystem&) = delete;

  double uptime() const noexcept override { return clock.uptime(); }
  double wallClock() const noexcept override { return clock.wallClock(); }
  // Process ids of the matching players on the session bus.
  std::vector<int> targetProcessIds() override;
  // Viewable client windows (the window manager's list) that carry a
  // _NET_WM_PID, with their real sizes and full-screen state; on Wayland
  // also a sizeless entry per player that says (MPRIS Fullscreen) whether
  // it is full screen. Empty without either.
  std::optional<std::vector<WindowInfo>> onScreenWindows() override;
  // Each monitor's size (RandR), else the screen's.
  std::vector<ScreenSize> screenSizes() override;
  bool targetRunning() override { return true; }
  std::optional<int> requestAutomationPermission() override { return 0; }

  // Waits up to limit for answers asked after this call. Tests.
  bool waitForFreshAnswers(std::chrono::milliseconds limit) { return view.waitForFresh(limit); }

  // lumerix-mpris beside our own executable, else where it is installed.
  static std::string helperPath();
  // The folders helperPath() looks in, in order.
  static std::vector<std::string> helperPlaces();

  // What one round of questions learns.
  struct View {
    std::vector<int> pids;
    std::optional<std::vector<WindowInfo>> windows;
    std::vector<ScreenSize> screens;
  };

 private:
  static constexpr std::chrono::milliseconds kPatience{20};
  static constexpr std::chrono::milliseconds kFresh{100};
  SystemClock clock;
  LatestAnswer<View> view;
};

}  // namespace lumerix
