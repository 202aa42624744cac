#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "listen/Aligner.h"
#include "platform/SoundCapture.h"

namespace lumerix::test {

// A made-up subtitle: lines of 1 to 4 s with pauses of 0.2 to 2.5 s between
// them, from 10 s to `until`, always the same for the same seed.
inline std::vector<listen::Span> dialogue(double until, unsigned seed = 3) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<listen::Span> cues;
  for (double t = 10; t < until;) {
    const double d = 1 + 3 * u(rng);
    cues.push_back({t, t + d});
    t += d + 0.2 + 2.3 * u(rng);
  }
  return cues;
}

// The speech of those lines as heard on the player's clock, between `from`
// and `to` there: subtitle time t = position × rate + offset, each onset up
// to `jitter` late, each line spoken for 60 to 90 % of its cue.
inline listen::Heard speechOf(const std::vector<listen::Span>& cues, double rate, double offset, double from,
                              double to, double jitter = 0.03, unsigned seed = 5) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(0, 1);
  listen::Heard heard;
  heard.listened.push_back({from, to});
  for (const listen::Span& c : cues) {
    const double start = (c.start - offset) / rate + jitter * u(rng);
    const double end = start + (c.end - c.start) * (0.6 + 0.3 * u(rng)) / rate;
    if (start >= from && end <= to) heard.speech.push_back({start, end});
  }
  return heard;
}

// A capture that plays back what the test scripted.
class ScriptedCapture : public SoundCapture {
 public:
  std::vector<HeardFrame> pending;
  CaptureState current = CaptureState::idle;
  CaptureState failWith = CaptureState::running;  // what start() ends in
  int starts = 0, stops = 0;

  bool start() noexcept override {
    ++starts;
    current = failWith;
    return current == CaptureState::running;
  }
  void stop() noexcept override {
    ++stops;
    current = CaptureState::idle;
    pending.clear();
  }
  void takeFrames(std::vector<HeardFrame>& out) noexcept override {
    out.insert(out.end(), pending.begin(), pending.end());
    pending.clear();
  }
  CaptureState state() const noexcept override { return current; }
};

}  // namespace lumerix::test
