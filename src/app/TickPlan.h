#pragma once

namespace lumerix::tickplan {

// Timers fire a little late or early; a tick is never wanted before what it
// is for, so every due time here lies this much after it.
inline constexpr double margin = 0.002;  // s
// The nameplate's glint: one sweep every this many seconds.
inline constexpr double glintCycle = 5.0;

// Seconds until subtitle time (position × scale + offset) reaches b, with
// the player's position moving playerRate seconds a second, plus the margin.
// Infinite when it never does: b already passed, a clock that stands.
double untilSubtitleTime(double b, double position, double playerRate, double scale, double offset);

// Seconds until the player's clock, shown in whole seconds, next changes.
double untilNextSecond(double position, double playerRate);

// The glint's phase (0 to 1 over a cycle) at this uptime, in whole frames
// of `frame` seconds: the same all through a frame, so that a tick that
// comes early for some other reason draws nothing new.
double glintPhase(double uptime, double frame);

// Seconds until the glint's next frame while it sweeps (the frame after the
// sweep clears it), else until the next sweep begins.
double untilGlintFrame(double uptime, double frame);

}  // namespace lumerix::tickplan
