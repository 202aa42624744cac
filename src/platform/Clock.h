#pragma once

namespace lumerix {

// Time as the program sees it. Tests substitute a clock they advance by hand.
// Thread contract: both members are called from any thread at any time (the
// main thread's tick, the poller, the stream's reader), so implementations
// must be safe to call concurrently and must never block. Never throws.
class Clock {
 public:
  virtual ~Clock() = default;
  // Monotonic seconds (the system uptime); every hint, throttle and
  // extrapolation runs on this clock.
  virtual double uptime() const noexcept = 0;
  // Wall-clock seconds since the Unix epoch, UTC. Only for converting the
  // stream's timestamps.
  virtual double wallClock() const noexcept = 0;
};

// The real clocks of this machine.
class SystemClock : public Clock {
 public:
  double uptime() const noexcept override;
  double wallClock() const noexcept override;
};

}  // namespace lumerix
