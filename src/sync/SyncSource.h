#pragma once

#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <utility>

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
  // How fast the position moves while playing: the player's speed where it
  // says, else 1.
  double rate = 1.0;

  bool operator==(const SyncSnapshot&) const = default;
};

// Whether b says something a tick must see that a says otherwise, beyond
// the clock having run on between them: anything but the position, or a
// position moved by more than a correction too small to change any cue
// boundary the user could tell.
inline bool differsBeyondClock(const SyncSnapshot& a, const SyncSnapshot& b) {
  constexpr double unnoticed = 0.003;  // s
  if (a.position.has_value() != b.position.has_value() || a.playing != b.playing || a.holding != b.holding ||
      a.idle != b.idle || a.rate != b.rate || a.track != b.track || a.status != b.status) {
    return true;
  }
  return a.position && !(std::fabs(*a.position - *b.position) <= unnoticed);
}

// Every source of the playback position. Thread contract: start, cancel,
// snapshot and permissionIssue are called from the main thread; snapshot
// only takes a short lock.
class SyncSource {
 public:
  virtual ~SyncSource() = default;
  virtual void start() = 0;   // once
  virtual void cancel() = 0;  // for good; calling it again is harmless
  // The state now, written into `into` so that its strings keep their
  // storage: a steady tick then allocates nothing.
  virtual void snapshotInto(SyncSnapshot& into) = 0;
  SyncSnapshot snapshot() {
    SyncSnapshot s;
    snapshotInto(s);
    return s;
  }
  // True while the system refuses us permission to automate the player.
  virtual bool permissionIssue() = 0;

  // Called, from any of the source's threads, when what a snapshot says
  // changes other than by the clock running on: a seek, a pause, a new
  // speed or track, a new status. Between such words the main thread need
  // not look. Set once, before start().
  virtual void onChange(std::function<void()> wake) { changed = std::move(wake); }

 protected:
  // Runs an update of the source's state (on its own thread) and wakes the
  // listener when a snapshot now reads differently beyond the clock.
  template <class Update>
  void updating(Update&& update) {
    if (!changed) {
      update();
      return;
    }
    const SyncSnapshot before = snapshot();
    update();
    if (differsBeyondClock(before, snapshot())) changed();
  }

 private:
  std::function<void()> changed;
};

}  // namespace lumerix
