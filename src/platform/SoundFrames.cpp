#include "platform/SoundFrames.h"

#include <algorithm>
#include <cmath>

namespace lumerix::sound {

float levelDbfs(const float* samples, std::size_t count) noexcept {
  if (count == 0) return -120.0f;
  double sum = 0;
  for (std::size_t i = 0; i < count; ++i) sum += double(samples[i]) * samples[i];
  const double mean = sum / double(count);
  if (!(mean > 1e-12)) return -120.0f;  // also catches NaN
  return float(std::max(-120.0, 10.0 * std::log10(mean)));
}

bool BedGate::standsOut(float level) {
  levels_[next_] = level;
  next_ = (next_ + 1) % window;
  ++seen_;
  // The floor moves slowly; finding it every tenth of a second is plenty.
  if (seen_ % 10 == 1) {
    const std::size_t n = std::min(seen_, window);
    scratch_.assign(levels_.begin(), levels_.begin() + std::ptrdiff_t(n));
    auto fifth = scratch_.begin() + std::ptrdiff_t(n / 5);
    std::nth_element(scratch_.begin(), fifth, scratch_.end());
    floor_ = *fifth;
  }
  return level >= floor_ + margin;
}

void FrameCutter::push(const float* samples, std::size_t count, double firstSampleUptime, SpeechDetector& detector,
                       std::vector<HeardFrame>& out) {
  if (count == 0) return;
  const double expected = pendingStart_ + double(pending_.size()) / sampleRate;
  if (!started_ || std::fabs(firstSampleUptime - expected) > resync_) {
    pending_.clear();
    pendingStart_ = firstSampleUptime;
    started_ = true;
  }
  pending_.insert(pending_.end(), samples, samples + count);
  std::size_t used = 0;
  while (pending_.size() - used >= std::size_t(frameSamples)) {
    const float* frame = pending_.data() + used;
    HeardFrame f;
    f.uptime = pendingStart_ + double(used) / sampleRate;
    f.level = levelDbfs(frame, frameSamples);
    // The detector sees every frame: it keeps its own state.
    const bool voice = detector.isSpeech(frame);
    f.speech = gate_.standsOut(f.level) && voice;
    out.push_back(f);
    used += frameSamples;
  }
  pending_.erase(pending_.begin(), pending_.begin() + std::ptrdiff_t(used));
  pendingStart_ += double(used) / sampleRate;
}

void FrameCutter::reset() noexcept {
  pending_.clear();
  started_ = false;
}

void FrameQueue::push(const std::vector<HeardFrame>& frames) {
  std::lock_guard lock(mutex_);
  for (const HeardFrame& f : frames) {
    if (frames_.size() >= capacity_) {
      frames_.pop_front();
      ++dropped_;
    }
    frames_.push_back(f);
  }
}

void FrameQueue::takeAll(std::vector<HeardFrame>& out) noexcept {
  std::lock_guard lock(mutex_);
  try {
    out.insert(out.end(), frames_.begin(), frames_.end());
  } catch (...) {
  }
  frames_.clear();
}

void FrameQueue::clear() {
  std::lock_guard lock(mutex_);
  frames_.clear();
}

std::size_t FrameQueue::dropped() const {
  std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace lumerix::sound
