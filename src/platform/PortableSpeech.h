#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "platform/SoundFrames.h"

namespace lumerix::sound {

// A speech detector in plain C++, for systems without a voice detector of
// their own (macOS: WebRTC's current releases dropped theirs, and the
// system's sound classifier is not in the SDK we build with). It hears
// what speech has and steady sound lacks: most of the energy between 300
// and 3400 Hz, and a loudness that rises and falls with the syllables
// several times a second.
class PortableSpeech : public SpeechDetector {
 public:
  PortableSpeech();
  bool isSpeech(const float* frame) noexcept override;

 private:
  struct Biquad {
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    double z1 = 0, z2 = 0;
    double step(double x) noexcept {
      const double y = b0 * x + z1;
      z1 = b1 * x - a1 * y + z2;
      z2 = b2 * x - a2 * y;
      return y;
    }
  };
  Biquad highPass_, lowPass_;
  std::array<float, 40> bandDb_{};  // the last 400 ms, for the syllables' rise and fall
  std::size_t next_ = 0;
  int hangover_ = 0;
};

// Sound at the device's rate (44.1 or 48 kHz, say) to 16 kHz: a low-pass
// below the new Nyquist frequency, then linear interpolation, which is
// plenty for judging speech. Keeps its state between blocks.
class Resampler {
 public:
  explicit Resampler(double inputRate);
  void push(const float* samples, std::size_t count, std::vector<float>& out);
  double inputRate() const noexcept { return rate_; }

 private:
  double rate_;
  double step_;
  std::vector<float> taps_;
  std::vector<float> history_;  // the filter's input, newest last
  double position_ = 0;        // of the next output, in filtered samples since the last one kept
  float previous_ = 0;         // the last filtered sample of the previous block
};

}  // namespace lumerix::sound
