#include "platform/PortableSpeech.h"

#include <algorithm>
#include <cmath>

namespace lumerix::sound {

namespace {

constexpr double pi = 3.14159265358979323846;

enum class Pass { low, high };

// A second-order Butterworth section (the audio cookbook's formulas).
template <class Section>
void design(Section& s, Pass pass, double cutoff, double rate) {
  const double w0 = 2 * pi * cutoff / rate;
  const double c = std::cos(w0);
  const double alpha = std::sin(w0) / (2 * std::sqrt(0.5));
  const double a0 = 1 + alpha;
  const double b = pass == Pass::low ? (1 - c) / 2 : (1 + c) / 2;
  s.b0 = b / a0;
  s.b1 = (pass == Pass::low ? 2 * b : -2 * b) / a0;
  s.b2 = b / a0;
  s.a1 = -2 * c / a0;
  s.a2 = (1 - alpha) / a0;
}

double db(double energy) {
  return 10 * std::log10(energy + 1e-12);
}

}  // namespace

PortableSpeech::PortableSpeech() {
  design(highPass_, Pass::high, 300, sampleRate);
  design(lowPass_, Pass::low, 3400, sampleRate);
  bandDb_.fill(-120);
}

bool PortableSpeech::isSpeech(const float* frame) noexcept {
  double all = 0, band = 0;
  for (int i = 0; i < frameSamples; ++i) {
    const double x = frame[i];
    const double y = lowPass_.step(highPass_.step(x));
    all += x * x;
    band += y * y;
  }
  const double bandLevel = db(band / frameSamples);
  bandDb_[next_] = float(bandLevel);
  next_ = (next_ + 1) % bandDb_.size();
  const auto [lo, hi] = std::minmax_element(bandDb_.begin(), bandDb_.end());
  // Voice-band energy, a level that speech reaches, and syllables: in the
  // last 400 ms the band's loudness has swung by more than a steady sound's.
  const bool voiced = all > 0 && band / all > 0.5 && bandLevel > -60 && *hi - *lo > 12;
  if (voiced) {
    hangover_ = 8;  // the quiet ends of words, between two syllables
    return true;
  }
  if (hangover_ > 0 && bandLevel > -60) {
    --hangover_;
    return true;
  }
  hangover_ = 0;
  return false;
}

Resampler::Resampler(double inputRate) : rate_(inputRate), step_(inputRate / sampleRate) {
  if (!(inputRate > sampleRate * 1.001)) {  // 16 kHz (or less) passes as it is
    taps_ = {1.0f};
  } else {
    // A windowed sinc at 7 kHz: under 8 kHz, the new Nyquist frequency.
    constexpr int count = 63;
    const double fc = 7000.0 / inputRate;
    double sum = 0;
    for (int i = 0; i < count; ++i) {
      const double m = i - (count - 1) / 2.0;
      const double sinc = m == 0 ? 2 * fc : std::sin(2 * pi * fc * m) / (pi * m);
      const double hamming = 0.54 - 0.46 * std::cos(2 * pi * i / (count - 1));
      taps_.push_back(float(sinc * hamming));
      sum += sinc * hamming;
    }
    for (float& t : taps_) t = float(t / sum);
  }
  history_.assign(taps_.size() - 1, 0.0f);
}

void Resampler::push(const float* samples, std::size_t count, std::vector<float>& out) {
  if (count == 0) return;
  const std::size_t keep = taps_.size() - 1;
  history_.insert(history_.end(), samples, samples + count);
  std::vector<float> y(count);
  for (std::size_t n = 0; n < count; ++n) {
    double acc = 0;
    const float* x = history_.data() + n;  // x[keep] is the current sample
    for (std::size_t k = 0; k < taps_.size(); ++k) acc += double(taps_[k]) * x[keep - k];
    y[n] = float(acc);
  }
  history_.erase(history_.begin(), history_.end() - std::ptrdiff_t(keep));
  // position_ counts from y[0]; from -1 it lies between the previous
  // block's last sample and this block's first.
  const double last = double(count - 1);
  while (position_ < last) {
    const double floor = std::floor(position_);
    const double frac = position_ - floor;
    const auto i = static_cast<std::ptrdiff_t>(floor);
    const float a = i < 0 ? previous_ : y[std::size_t(i)];
    const float b = y[std::size_t(i + 1)];
    out.push_back(a + float(frac) * (b - a));
    position_ += step_;
  }
  position_ -= double(count);
  previous_ = y[count - 1];
}

}  // namespace lumerix::sound
