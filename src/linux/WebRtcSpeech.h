#pragma once

#include <memory>

#include "platform/SoundFrames.h"

namespace webrtc {
class AudioProcessing;
}

namespace lumerix {

// The voice detector of WebRTC's audio processing (0.3), which judges
// 10 ms frames at 16 kHz. It keeps state from frame to frame, so one
// detector serves one stream of sound.
class WebRtcSpeech : public sound::SpeechDetector {
 public:
  WebRtcSpeech();
  ~WebRtcSpeech() override;
  WebRtcSpeech(const WebRtcSpeech&) = delete;
  WebRtcSpeech& operator=(const WebRtcSpeech&) = delete;
  // False when the library would not set itself up; every frame is then
  // judged silent, which the core takes as nothing heard.
  bool ready() const noexcept { return ready_; }
  bool isSpeech(const float* frame) noexcept override;

 private:
  std::unique_ptr<webrtc::AudioProcessing> apm_;
  bool ready_ = false;
  float scratch_[sound::frameSamples] = {};
};

}  // namespace lumerix
