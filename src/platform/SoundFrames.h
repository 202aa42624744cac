#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

#include "platform/SoundCapture.h"

// The pieces every capture shares, whatever delivers the sound: cutting it
// into 10 ms frames with a stamp each, judging how loud a frame is, and the
// queue between the capture thread and the main thread.
namespace lumerix::sound {

constexpr int sampleRate = 16000;
constexpr int frameSamples = sampleRate / 100;  // 10 ms
constexpr double frameSeconds = 0.01;

// Loudness of samples in [-1, 1] as RMS in dBFS: a full-scale square wave is
// 0, a full-scale sine about -3; digital silence is floored at -120 so it
// stays a number.
float levelDbfs(const float* samples, std::size_t count) noexcept;

// Judges one 10 ms frame of 16 kHz mono: speech or not.
class SpeechDetector {
 public:
  virtual ~SpeechDetector() = default;
  virtual bool isSpeech(const float* frame) noexcept = 0;
};

// Speech in a film is said over music and noise, and a voice detector
// that judges frames one by one takes a steady music bed for speech (WebRTC's
// heard 93 % of the pauses in a test clip with music 10 dB under the voice
// as speech). Dialogue is mixed to stand out of its bed, so a frame counts
// as speech only when it is also a few dB louder than the quieter part of
// the last ten seconds; with that, 2 % of the pauses and 70 % of the speech
// in the same clip. Over silence the floor is silence, and nothing changes.
class BedGate {
 public:
  static constexpr std::size_t window = 1000;  // frames: ten seconds
  static constexpr float margin = 4;           // dB over the floor
  // Whether a frame of this level stands out of its bed; records the level.
  bool standsOut(float level);

 private:
  std::vector<float> levels_ = std::vector<float>(window, -120.0f);
  std::vector<float> scratch_;
  std::size_t next_ = 0;
  std::size_t seen_ = 0;
  float floor_ = -120;
};

// Turns blocks of any length into whole 10 ms frames. The sound server
// hands over what it has, and a block's stamp says when its first sample
// played; frames are stamped from the block's own stamp while blocks follow
// one another without a gap, so a jittery arrival time does not make the
// frames jitter. A block whose stamp strays more than `resyncSeconds` from
// where the frames had got to (a hole, a server that caught up, a moved
// stream) starts the count again from its own stamp.
class FrameCutter {
 public:
  explicit FrameCutter(double resyncSeconds = 0.03) : resync_(resyncSeconds) {}
  // Appends the frames completed by `samples` to `out`, each with its level
  // and its verdict: `detector`'s, and loud enough to stand out of its bed.
  void push(const float* samples, std::size_t count, double firstSampleUptime, SpeechDetector& detector,
            std::vector<HeardFrame>& out);
  // Forgets a partial frame, as after a hole in the sound.
  void reset() noexcept;

 private:
  double resync_;
  BedGate gate_;
  std::vector<float> pending_;
  double pendingStart_ = 0;  // the stamp of pending_[0]
  bool started_ = false;
};

// The hand-over from the capture thread to the main thread: bounded, so a
// main thread that stops taking does not let memory grow; the oldest frames
// go first because the newest are the ones still worth aligning.
class FrameQueue {
 public:
  explicit FrameQueue(std::size_t capacity = 500) : capacity_(capacity) {}
  void push(const std::vector<HeardFrame>& frames);
  // Out of memory, the frames waiting are lost; the next ones are not.
  void takeAll(std::vector<HeardFrame>& out) noexcept;
  void clear();
  std::size_t dropped() const;

 private:
  mutable std::mutex mutex_;
  std::deque<HeardFrame> frames_;
  std::size_t capacity_;
  std::size_t dropped_ = 0;
};

}  // namespace lumerix::sound
