#include "app/TickPlan.h"

#include <algorithm>
#include <cmath>

#include "app/Controller.h"
#include "overlay/Nameplate.h"

namespace lumerix {

namespace tickplan {

double untilSubtitleTime(double b, double position, double playerRate, double scale, double offset) {
  if (!(playerRate > 0) || !(scale > 0)) return INFINITY;
  const double in = ((b - offset) / scale - position) / playerRate;
  return in >= 0 ? in + margin : INFINITY;  // also NaN: never
}

double untilNextSecond(double position, double playerRate) {
  if (!(playerRate > 0) || !std::isfinite(position)) return INFINITY;
  return (std::floor(position) + 1 - position) / playerRate + margin;
}

double glintPhase(double uptime, double frame) {
  const double start = std::floor(uptime / frame) * frame;
  return std::fmod(start, glintCycle) / glintCycle;
}

double untilGlintFrame(double uptime, double frame) {
  if (brandGlintShows(glintPhase(uptime, frame))) return (std::floor(uptime / frame) + 1) * frame - uptime + margin;
  return (std::floor(uptime / glintCycle) + 1) * glintCycle - uptime + margin;
}

}  // namespace tickplan

// ---- when the next tick is due ------------------------------------------------------

void Controller::tick() noexcept {
  tickOnce();
  planNextTick();
}

double Controller::nextTickIn() const noexcept {
  return std::max(0.0, s.nextTickAt - now());
}

void Controller::planNextTick() noexcept {
  const double at = now();
  // Nothing due still gets a look now and then: a word from the source
  // lost or a source that gives none (the demo's loop) costs no more.
  double in = longestTickGap;
  const auto within = [&in](double d) {
    if (d < in) in = d;  // NaN and infinities are never sooner
  };
  // Listening takes in sound and counts what it heard each tick.
  if (isListening()) within(tickInterval);
  if (!(at > s.hintUntil)) within(s.hintUntil - at + tickplan::margin);
  if (!snap.position) {
    within(tickplan::untilGlintFrame(at, tickInterval));
  } else if (snap.playing && !snap.holding) {
    // A boundary further off is looked at again a tick before it: every poll
    // since this snapshot corrected the clock a little, unseen.
    within(s.textDueIn > 2 * tickInterval ? s.textDueIn - tickInterval : s.textDueIn);
    within(tickplan::untilNextSecond(*snap.position, snap.rate));  // the status line's clock
  }
  s.nextTickAt = at + in;
}

void Controller::showGlint() noexcept {
  const double phase = tickplan::glintPhase(now(), tickInterval);
  if (phase == s.glintPhase) return;
  s.glintPhase = phase;
  services.host.setBrandPhase(phase);
}

void Controller::textDueIn(double in) noexcept {
  if (in < s.textDueIn) s.textDueIn = in;
  if (in >= 0 && in < tickInterval && (!s.extraTickIn || in < *s.extraTickIn)) s.extraTickIn = in;
}

}  // namespace lumerix
