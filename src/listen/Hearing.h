#pragma once

#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "listen/Aligner.h"
#include "platform/SoundCapture.h"

namespace lumerix::listen {

// Frames of speech verdicts on the uptime clock, turned into speech on the
// player's clock. The ticks say where the player was and when; a frame is
// placed between the two ticks around it. Frames in a stretch with a seek,
// a pause or no position are dropped: there is no telling where they were.
class Hearing {
 public:
  // What the player reported at one tick. position: already extrapolated
  // to `uptime`; absent when there is none.
  void tick(double uptime, std::optional<double> position, bool playing);
  // Frames since the last call. Those newer than the last tick wait for
  // the next one.
  void hear(std::span<const HeardFrame> frames);

  // Speech so far (spans under `shortest` left out; a span still growing
  // is left out until a pause ends it) and what was listened to.
  Heard heard() const;
  int lines() const { return static_cast<int>(closed.size()); }
  // Frames placed on the player's clock, in seconds, and of those the ones
  // with any sound at all.
  double placedSeconds() const { return placed; }
  double loudSeconds() const { return loud; }

  static constexpr double frameSeconds = 0.01;
  static constexpr double bridge = 0.2;     // a pause this short is a breath inside one line
  static constexpr double shortest = 0.3;   // shorter speech is clicks and coughs
  static constexpr double quietLevel = -55; // dBFS; below it, nothing plays

 private:
  struct Sample {
    double uptime;
    std::optional<double> position;
    bool playing;
  };
  void place(const HeardFrame& frame, double position);
  void closeSpeech();
  static bool continuous(const Sample& a, const Sample& b);

  std::deque<Sample> ticks;
  std::deque<HeardFrame> waiting;
  std::vector<Span> closed;
  std::vector<Span> listened;
  std::optional<Span> open;            // speech still growing
  std::optional<double> lastPosition;  // the last placed frame's
  double placed = 0;
  double loud = 0;
};

}  // namespace lumerix::listen
