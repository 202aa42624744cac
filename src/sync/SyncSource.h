#pragma once

#include <optional>
#include <string>

namespace lumerix {

// Beyond these, a player's numbers are broken, not long: a position of
// more than 31 years, a rate of more than a thousand. A source reports no
// position rather than pass them on (the clock's arithmetic would run
// into infinities).
inline constexpr double maxPlausiblePosition = 1e9;
inline constexpr double maxPlausibleRate = 1e3;

// What a position source reports at one moment.
// Invariants: a position means an empty status and idle == false; idle or a
// status means no position; holding only ever comes with a position.
struct SyncSnapshot {
  std::optional<double> position;  // seconds, already extrapolated to now
  bool playing = false;
  std::string track;
  std::string status;  // why there is no position
  bool idle = false;   // nothing is being played by the followed player
  bool holding = false;

  bool operator==(const SyncSnapshot&) const = default;
};

// Every source of the playback position. Thread contract: start, cancel,
// snapshot and permissionIssue are called from the main thread; snapshot
// only takes a short lock.
class SyncSource {
 public:
  virtual ~SyncSource() = default;
  virtual void start() = 0;   // once
  virtual void cancel() = 0;  // for good; calling it again is harmless
  // The state now, written into `into` so that its strings keep their
  // storage: the 20 Hz tick then allocates nothing.
  virtual void snapshotInto(SyncSnapshot& into) = 0;
  SyncSnapshot snapshot() {
    SyncSnapshot s;
    snapshotInto(s);
    return s;
  }
  // True while the system refuses us permission to automate the player.
  virtual bool permissionIssue() = 0;
};

}  // namespace lumerix
