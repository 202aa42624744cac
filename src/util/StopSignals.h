#pragma once

namespace lumerix::stopsignals {

// The signals that ask us to stop: scripts and session managers send
// SIGTERM, Ctrl+C sends SIGINT, a closing terminal or a logout SIGHUP.
inline constexpr int kCount = 3;
extern const int kSignals[kCount];

// Holds them back from every thread. The first thing main does, before
// any thread exists (threads inherit the mask), so that none can end the
// process before there is a handler that saves the timing. Children
// started through Subprocess get a clean mask.
void hold() noexcept;

// A stop signal that came while held, taken off so it is never delivered;
// 0 when none came. Asked before anything worth saving exists: the program
// then leaves at once with 128 + the signal.
int takePending() noexcept;

// Lets them reach the calling thread again, once a handler is in place;
// one that came while held is delivered now.
void release() noexcept;

}  // namespace lumerix::stopsignals
