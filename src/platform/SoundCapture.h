#pragma once

#include <vector>

namespace lumerix {

// One 10 ms frame of what the machine's output played, as the platform's
// speech detector judged it. The sound itself never leaves the capture: the
// core sees only these verdicts.
struct HeardFrame {
  // When the frame's first sample was played, on Clock::uptime's clock:
  // its arrival less the latency the sound server reports.
  double uptime = 0;
  bool speech = false;  // the detector's verdict for this frame
  float level = -120;   // loudness in dBFS (RMS), for telling silence apart
};

// Why a capture is not delivering frames.
enum class CaptureState {
  idle,         // never started, or stopped
  running,      // frames arrive
  noServer,     // no sound server to record from (Linux) or no tap (macOS)
  lost,         // the server went away, or the device failed, while running
  unsupported,  // this system cannot capture the output (macOS before 14.2)
};

// Listening to the sound that plays. Capture and speech detection run on a
// thread of the capture's own; start, stop, takeFrames and state are called
// from the main thread only and never wait on the sound server beyond
// start's connection attempt. Frames that pile up while nobody takes them
// are kept for a few seconds at most, then the oldest are dropped.
class SoundCapture {
 public:
  virtual ~SoundCapture() = default;
  // Starts capturing; false (with state() saying why) when it cannot.
  // Starting a running capture is harmless.
  virtual bool start() noexcept = 0;
  // Stops and joins the capture thread; harmless when not running. No frame
  // is kept: what was heard is gone.
  virtual void stop() noexcept = 0;
  // Appends the frames heard since the last call to out, oldest first.
  virtual void takeFrames(std::vector<HeardFrame>& out) noexcept = 0;
  virtual CaptureState state() const noexcept = 0;
};

}  // namespace lumerix
