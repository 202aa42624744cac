#pragma once

#include <string>

#include "platform/System.h"

struct _GDBusConnection;
struct xcb_connection_t;

namespace lumerix {

// The machine as seen from Linux, following MPRIS players. Automation needs
// no consent here, so permission is always granted. The bus and display
// members are called from the main thread only (see System).
class LinuxSystem : public System {
 public:
  // player: the MPRIS name followed ("mpv"); empty follows any player.
  explicit LinuxSystem(std::string player = "");
  ~LinuxSystem() override;
  LinuxSystem(const LinuxSystem&) = delete;
  LinuxSystem& operator=(const LinuxSystem&) = delete;

  double uptime() const noexcept override { return clock.uptime(); }
  double wallClock() const noexcept override { return clock.wallClock(); }
  // Process ids of the matching players on the session bus.
  std::vector<int> targetProcessIds() override;
  // Viewable client windows (the window manager's list) that carry a
  // _NET_WM_PID, with their real sizes; empty without an X display.
  std::optional<std::vector<WindowInfo>> onScreenWindows() override;
  // Each monitor's size (RandR), else the screen's.
  std::vector<ScreenSize> screenSizes() override;
  bool targetRunning() override { return true; }
  std::optional<int> requestAutomationPermission() override { return 0; }

  // lumerix-mpris beside our own executable, else where it is installed.
  static std::string helperPath();
  // The folders helperPath() looks in, in order.
  static std::vector<std::string> helperPlaces();

 private:
  _GDBusConnection* bus();
  xcb_connection_t* display();

  SystemClock clock;
  const std::string player;
  _GDBusConnection* busConnection = nullptr;
  bool busTried = false;
  xcb_connection_t* x = nullptr;
  bool displayTried = false;
};

}  // namespace lumerix
