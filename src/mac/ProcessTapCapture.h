#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/Clock.h"
#include "platform/SoundCapture.h"
#include "platform/SoundFrames.h"

namespace lumerix {

// What the TV app plays, heard through a Core Audio process tap (macOS
// 14.2 and later) read by a private aggregate device. The device's IO
// callback runs on a real-time thread and only copies the sound into a
// ring; a thread of the capture's own sets the tap up, resamples to 16 kHz,
// judges speech and hands frames to the main thread, and tears it all down.
// Where the audio system knows no process of the TV app, the tap takes the
// whole output instead.
class ProcessTapCapture : public SoundCapture {
 public:
  explicit ProcessTapCapture(const Clock& clock);
  ~ProcessTapCapture() override;

  bool start() noexcept override;
  void stop() noexcept override;
  void takeFrames(std::vector<HeardFrame>& out) noexcept override;
  CaptureState state() const noexcept override { return state_.load(); }

  struct Ring;  // between the IO callback and the capture thread

 private:
  void run() noexcept;
  void settle(CaptureState s);

  const Clock& clock_;
  std::thread thread_;
  std::atomic<CaptureState> state_{CaptureState::idle};
  std::atomic<bool> stopping_{false};
  sound::FrameQueue queue_;
  std::unique_ptr<Ring> ring_;

  std::mutex mutex_;
  std::condition_variable settled_;
  bool answered_ = false;
};

}  // namespace lumerix
