#pragma once

namespace lumerix {

// Time as the sync code sees it. Tests substitute a clock they advance by hand.
class Clock {
 public:
  virtual ~Clock() = default;
  // Monotonic seconds (the system uptime); every hint, throttle and
  // extrapolation runs on this clock.
  virtual double uptime() const = 0;
  // Wall-clock seconds since the Unix epoch, UTC. Only for converting the
  // stream's timestamps.
  virtual double wallClock() const = 0;
};

// The real clocks of this machine.
class SystemClock : public Clock {
 public:
  double uptime() const override;
  double wallClock() const override;
};

}  // namespace lumerix
