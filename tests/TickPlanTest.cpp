#include <gtest/gtest.h>

#include <memory>

#include "ControllerFakes.h"
#include "ControllerRig.h"
#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "app/Controller.h"
#include "app/TickPlan.h"

namespace lumerix {
namespace {

// Cues between whole seconds, so that a boundary and the status line's
// clock (whole seconds of the player's position) are told apart.
const char* const kCues =
    "1\n00:00:01,250 --> 00:00:02,750\nFirst\n\n"
    "2\n00:00:20,400 --> 00:00:20,600\nSecond\n";

struct Rig : test::ControllerRig {

  explicit Rig(const char* cues = kCues) {
    dir.write("a.srt", cues);
    c = std::make_unique<Controller>(services(), std::move(owned),
                                     dir.path("a.srt"));
    clock.advance(3.01);  // past the start hint
  }
  // Ticks with the source saying this and returns when the next tick is due.
  double dueAt(std::optional<double> position, bool playing = true, double rate = 1.0, bool holding = false) {
    source->next = {position, playing, "Show", position ? "" : "Nothing is playing", false, holding, rate};
    c->tick();
    return c->nextTickIn();
  }
};

constexpr double m = tickplan::margin;

constexpr double tick = Controller::tickInterval;

TEST(TickPlan, WakesAtTheNextCueBoundaryOrTheNextSecondOfTheClock) {
  Rig r;
  EXPECT_NEAR(r.dueAt(1.2), 0.05 + m, 1e-9);    // First starts
  EXPECT_NEAR(r.dueAt(1.5), 0.5 + m, 1e-9);     // the clock shows 2 s before First ends
  EXPECT_NEAR(r.dueAt(2.67), 0.08 + m, 1e-9);   // First ends (shown up to 2.750 itself)
  EXPECT_NEAR(r.dueAt(20.35), 0.05 + m, 1e-9);  // Second starts
  EXPECT_NEAR(r.dueAt(20.52), 0.08 + m, 1e-9);  // and ends
  EXPECT_NEAR(r.dueAt(30.2), 0.8 + m, 1e-9);    // past the last cue: only the clock
  // A boundary further off gets a look a tick before it, and the boundary
  // itself is planned from that look's clock.
  EXPECT_NEAR(r.dueAt(1.0), 0.25 + m - tick, 1e-9);
  EXPECT_NEAR(r.dueAt(1.0 + 0.25 + m - tick + 0.001), tick - 0.001, 1e-9);
  // Nothing moves while paused or held: nothing is due before the longest gap.
  EXPECT_DOUBLE_EQ(r.dueAt(1.0, false), Controller::longestTickGap);
  EXPECT_DOUBLE_EQ(r.dueAt(1.0, true, 1.0, /*holding=*/true), Controller::longestTickGap);
  EXPECT_DOUBLE_EQ(r.dueAt(1.0, true, 0.0), Controller::longestTickGap);  // a player at speed 0
  // Due times count from the tick: later they are nearer.
  r.dueAt(1.17);
  r.clock.advance(0.05);
  EXPECT_NEAR(r.c->nextTickIn(), 0.03 + m, 1e-9);
  r.clock.advance(1.0);
  EXPECT_EQ(r.c->nextTickIn(), 0.0);  // overdue: at once
}

TEST(TickPlan, FollowsThePlayersSpeedTheRateAndTheOffset) {
  Rig r;
  // The player at double speed reaches 1.25 from 1.1 in 0.075 s.
  EXPECT_NEAR(r.dueAt(1.1, true, 2.0), 0.075 + m, 1e-9);
  EXPECT_NEAR(r.dueAt(1.9, true, 2.0), 0.05 + m, 1e-9);  // the clock's next second first
  // Subtitles 0.5 s later: First starts at position 0.75.
  r.c->bumpOffset(+0.5);
  r.clock.advance(3.01);
  EXPECT_NEAR(r.dueAt(0.7), 0.05 + m, 1e-9);
  // A frame-rate rate: subtitle time = position × rate + offset.
  r.c->cycleFPS();
  r.clock.advance(3.01);
  const double rate = Controller::scalePresets[1].factor;
  const double start = (1.25 - 0.5) / rate;  // the position First starts at
  EXPECT_NEAR(r.dueAt(start - 0.08), 0.08 + m, 1e-9);
  // Both at once: the player at 1.5x.
  EXPECT_NEAR(r.dueAt(start - 0.12, true, 1.5), 0.12 / 1.5 + m, 1e-9);
}

TEST(TickPlan, AHintEndsOnTimeWhateverElseIsDue) {
  Rig r;
  r.dueAt(5.0, false);  // paused, nothing on screen changes by itself
  r.c->bumpFont(+2);    // a hint for three seconds
  EXPECT_DOUBLE_EQ(r.dueAt(5.0, false), Controller::longestTickGap);
  r.clock.advance(2.5);
  EXPECT_NEAR(r.dueAt(5.0, false), 0.5 + m, 1e-9);
  r.clock.advance(0.5 + m);
  r.dueAt(5.0, false);
  EXPECT_EQ(r.host.status.substr(0, 3), "⏸");  // the hint is gone, the tick's line is back
  // While playing, whichever comes first.
  r.c->bumpFont(+2);
  r.clock.advance(2.95);
  EXPECT_NEAR(r.dueAt(5.0), 0.05 + m, 1e-9);
}

TEST(TickPlan, TheGlintGetsFramesOnlyWhileItSweeps) {
  Rig r;
  // The uptime clock stands at 1003.01: the sweep (the first 45 % of five
  // seconds) is over; the next begins at 1005.
  r.clock.now = 1004.5;
  EXPECT_NEAR(r.dueAt(std::nullopt), 0.5 + m, 1e-9);
  r.clock.now = 1003.2;
  EXPECT_DOUBLE_EQ(r.dueAt(std::nullopt), Controller::longestTickGap);
  // Sweeping: a frame every tickInterval, on a fixed grid.
  r.clock.now = 1005.01;
  EXPECT_NEAR(r.dueAt(std::nullopt), 0.04 + m, 1e-9);
  EXPECT_DOUBLE_EQ(r.host.brandPhase, 0.0);
  // A tick within the same frame (something else woke the loop) gives the
  // panel nothing new to draw.
  r.host.brandPhase = -1;
  r.clock.now = 1005.03;
  r.dueAt(std::nullopt);
  EXPECT_EQ(r.host.brandPhase, -1);
  r.clock.now = 1005.06;
  r.dueAt(std::nullopt);
  EXPECT_NEAR(r.host.brandPhase, 0.01, 1e-9);
  // The last frame of the sweep still asks for the next, which clears it.
  r.clock.now = 1007.21;
  EXPECT_NEAR(r.dueAt(std::nullopt), 0.04 + m, 1e-9);
  r.clock.now = 1007.26;
  EXPECT_NEAR(r.dueAt(std::nullopt), Controller::longestTickGap, 1e-9);
  EXPECT_NEAR(r.host.brandPhase, 0.45, 1e-9);
  // With a position there is no nameplate and no frame.
  r.clock.now = 1010.01;
  EXPECT_NEAR(r.dueAt(30.2, false), Controller::longestTickGap, 1e-9);
}

TEST(TickPlan, TheSecondSubtitlesBoundariesCountToo) {
  Rig r;
  r.dir.write("b.srt", "1\n00:00:05,100 --> 00:00:05,300\nZweite\n");
  r.c->loadSecondSubtitle(r.dir.path("b.srt"));
  r.clock.advance(3.01);
  r.dueAt(4.0);  // the second's times are read from the tick before
  EXPECT_NEAR(r.dueAt(5.03), 0.07 + m, 1e-9);
  EXPECT_NEAR(r.dueAt(5.22), 0.08 + m, 1e-9);
}

TEST(TickPlan, ArithmeticAtTheEdges) {
  using namespace tickplan;
  EXPECT_EQ(untilSubtitleTime(1.0, 2.0, 1.0, 1.0, 0.0), INFINITY);    // behind
  EXPECT_NEAR(untilSubtitleTime(2.0, 2.0, 1.0, 1.0, 0.0), m, 1e-12);  // at it: shown up to it, gone after
  EXPECT_EQ(untilSubtitleTime(3.0, 2.0, 0.0, 1.0, 0.0), INFINITY);    // a clock that stands
  EXPECT_EQ(untilSubtitleTime(3.0, 2.0, 1.0, 0.0, 0.0), INFINITY);    // a rate of 0 from a side file
  EXPECT_EQ(untilSubtitleTime(3.0, NAN, 1.0, 1.0, 0.0), INFINITY);
  EXPECT_EQ(untilNextSecond(INFINITY, 1.0), INFINITY);
  EXPECT_NEAR(untilNextSecond(-0.25, 1.0), 0.25 + m, 1e-12);
  EXPECT_DOUBLE_EQ(glintPhase(1002.5, 0.05), 0.5);
}

// Sources say when a snapshot reads differently beyond the clock running
// on; a correction too small to see wakes nobody.
TEST(TickPlan, WhatWakesTheLoopFromASource) {
  const SyncSnapshot a{10.0, true, "Show", "", false, false, 1.0};
  SyncSnapshot b = a;
  EXPECT_FALSE(differsBeyondClock(a, b));
  b.position = 10.002;  // the smoothing of a precise player
  EXPECT_FALSE(differsBeyondClock(a, b));
  b.position = 10.2;  // a seek
  EXPECT_TRUE(differsBeyondClock(a, b));
  for (auto change : std::initializer_list<void (*)(SyncSnapshot&)>{
           [](SyncSnapshot& s) { s.playing = false; }, [](SyncSnapshot& s) { s.rate = 1.5; },
           [](SyncSnapshot& s) { s.track = "Next"; }, [](SyncSnapshot& s) { s.holding = true; },
           [](SyncSnapshot& s) { s.position.reset(), s.status = "Nothing is playing"; }}) {
    SyncSnapshot c = a;
    change(c);
    EXPECT_TRUE(differsBeyondClock(a, c));
  }
}

}  // namespace
}  // namespace lumerix
