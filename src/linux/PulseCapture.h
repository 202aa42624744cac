#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "platform/Clock.h"
#include "platform/SoundCapture.h"
#include "platform/SoundFrames.h"

struct pa_mainloop;

namespace lumerix {

// What the default output plays, heard through its monitor on the sound
// server (PulseAudio, or PipeWire's pulse server: both resolve the monitor's
// name). Everything that talks to the server runs on the capture's own
// thread with a main loop of its own, so stop() can wake it at any moment:
// a blocking read would sit forever on a suspended sink.
class PulseCapture : public SoundCapture {
 public:
  struct Options {
    std::string source = "@DEFAULT_MONITOR@";
    // How long start() waits for the server's first answer before it lets
    // the thread go on alone: a local server answers in milliseconds, and
    // no server at all is known as fast; only a server that hangs is left
    // to report later.
    double startWait = 0.2;
    // Giving up on a server that does not answer.
    double connectTimeout = 3.0;
  };
  explicit PulseCapture(const Clock& clock) : PulseCapture(clock, Options{}) {}
  PulseCapture(const Clock& clock, Options options);
  ~PulseCapture() override;

  bool start() noexcept override;
  void stop() noexcept override;
  void takeFrames(std::vector<HeardFrame>& out) noexcept override;
  CaptureState state() const noexcept override { return state_.load(); }

  // What the server reported when it refused, for a log line; empty otherwise.
  std::string lastError() const;

 private:
  friend struct PulseSession;
  void run() noexcept;
  void settle(CaptureState s, const std::string& error = {});

  const Clock& clock_;
  Options options_;
  std::thread thread_;
  std::atomic<CaptureState> state_{CaptureState::idle};
  std::atomic<bool> stopping_{false};
  sound::FrameQueue queue_;

  mutable std::mutex mutex_;
  std::condition_variable settled_;
  bool answered_ = false;    // the thread knows whether the server is there
  pa_mainloop* loop_ = nullptr;  // for waking the thread; guarded by mutex_
  std::string error_;
};

}  // namespace lumerix
