// The detector and resampler that serve where the system has no voice
// detector of its own (macOS), checked on Linux.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "platform/PortableSpeech.h"

namespace lumerix::sound {
namespace {

std::vector<float> tone(double hz, double rate, double seconds, float amplitude = 0.5f) {
  std::vector<float> v(std::size_t(rate * seconds));
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = amplitude * float(std::sin(2 * M_PI * hz * double(i) / rate));
  return v;
}

std::vector<float> resample(double rate, const std::vector<float>& in) {
  Resampler r(rate);
  std::vector<float> out;
  // Blocks of the odd sizes a device hands over.
  std::size_t at = 0, size = 1;
  while (at < in.size()) {
    const std::size_t n = std::min(size, in.size() - at);
    r.push(in.data() + at, n, out);
    at += n;
    size = size * 7 % 1013 + 1;
  }
  return out;
}

double rms(const std::vector<float>& v, std::size_t from) {
  double s = 0;
  for (std::size_t i = from; i < v.size(); ++i) s += double(v[i]) * v[i];
  return std::sqrt(s / double(v.size() - from));
}

int crossings(const std::vector<float>& v, std::size_t from) {
  int n = 0;
  for (std::size_t i = from + 1; i < v.size(); ++i) n += (v[i - 1] < 0) != (v[i] < 0);
  return n;
}

TEST(Resampler, KeepsSpeechFrequenciesDropsWhatWouldFoldBackAndKeepsTime) {
  for (double rate : {48000.0, 44100.0, 96000.0, 16000.0}) {
    SCOPED_TRACE(rate);
    const auto out = resample(rate, tone(1000, rate, 2.0));
    EXPECT_NEAR(double(out.size()), 2.0 * sampleRate, 2);  // two seconds stay two seconds
    EXPECT_NEAR(rms(out, 200), 0.5 / std::sqrt(2.0), 0.01);
    EXPECT_NEAR(crossings(out, 200), 2 * 1000 * (2.0 - 200.0 / sampleRate), 4);
    if (rate > sampleRate) {
      // 11 kHz would fold back to 5 kHz, right in the voice band.
      const auto high = resample(rate, tone(11000, rate, 1.0));
      EXPECT_LT(rms(high, 200), 0.5 / std::sqrt(2.0) * 0.03);  // 30 dB down at least
    }
  }
}

std::vector<float> rawFrom(const std::string& command) {
  std::vector<float> out;
  FILE* p = ::popen(command.c_str(), "r");
  if (!p) return out;
  int16_t buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, sizeof(int16_t), 4096, p)) > 0)
    for (std::size_t i = 0; i < n; ++i) out.push_back(float(buf[i]) / 32768.0f);
  ::pclose(p);
  return out;
}

// The share of frames judged speech, from frame `from` on: any sound that
// starts out of silence swings like a syllable for a moment.
double share(const std::vector<float>& s, std::size_t from = 0) {
  PortableSpeech d;
  int yes = 0, n = 0;
  for (std::size_t i = 0; i + frameSamples <= s.size(); i += frameSamples) {
    const bool v = d.isSpeech(s.data() + i);
    if (i / frameSamples < from) continue;
    yes += v;
    ++n;
  }
  return n ? double(yes) / n : 0;
}

TEST(PortableSpeech, HearsSpeechButNotSilenceTonesOrNoise) {
  EXPECT_EQ(share(std::vector<float>(sampleRate * 2, 0.0f)), 0.0);
  // Steady sounds, once they have played for half a second.
  EXPECT_EQ(share(tone(440, sampleRate, 3), 50), 0.0);  // in the voice band
  EXPECT_EQ(share(tone(120, sampleRate, 3), 50), 0.0);  // a bass line
  std::mt19937 rng(3);
  std::normal_distribution<float> noise(0.0f, 0.05f);
  std::vector<float> hiss(sampleRate * 3);
  for (float& x : hiss) x = noise(rng);
  EXPECT_LT(share(hiss, 50), 0.02);
  if (std::system("command -v espeak-ng >/dev/null && command -v sox >/dev/null") != 0)
    GTEST_SKIP() << "espeak-ng and sox make the speech";
  for (const char* voice : {"en-us+f3", "en-gb+m4"}) {
    SCOPED_TRACE(voice);
    const auto words = rawFrom(std::string("espeak-ng -v ") + voice +
                               " --stdout 'The weather is turning, so bring the boat in before dark.' | "
                               "sox -t wav - -t raw -r 16000 -e signed -b 16 -c 1 - 2>/dev/null");
    ASSERT_GT(words.size(), std::size_t(sampleRate));
    EXPECT_GT(share(words), 0.6);
  }
}

}  // namespace
}  // namespace lumerix::sound
