// Cutting captured sound into stamped 10 ms frames, and the queue the main
// thread drains: shared by every platform's capture.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "platform/SoundFrames.h"

namespace lumerix::sound {
namespace {

// Says speech for frames whose first sample is positive, so a test can see
// that each verdict belongs to the frame it is stamped on.
class SignDetector : public SpeechDetector {
 public:
  int calls = 0;
  bool isSpeech(const float* frame) noexcept override {
    ++calls;
    return frame[0] > 0;
  }
};

std::vector<float> ramp(std::size_t n, std::size_t from = 0) {
  // Odd frames loud and positive, even frames quiet and negative.
  std::vector<float> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = ((from + i) / frameSamples) % 2 ? 0.5f : -0.01f;
  return v;
}

TEST(SoundLevel, SilenceSquareAndSineReadAsExpected) {
  std::vector<float> zero(frameSamples, 0.0f);
  EXPECT_FLOAT_EQ(levelDbfs(zero.data(), zero.size()), -120.0f);
  EXPECT_FLOAT_EQ(levelDbfs(nullptr, 0), -120.0f);
  std::vector<float> square(frameSamples);
  for (int i = 0; i < frameSamples; ++i) square[i] = i % 2 ? 1.0f : -1.0f;
  EXPECT_NEAR(levelDbfs(square.data(), square.size()), 0.0, 1e-4);
  std::vector<float> sine(frameSamples);
  for (int i = 0; i < frameSamples; ++i) sine[i] = 0.1f * float(std::sin(2 * M_PI * 400 * i / sampleRate));
  EXPECT_NEAR(levelDbfs(sine.data(), sine.size()), -23.01, 0.05);  // -20 dB amplitude, -3 dB for a sine
  std::vector<float> nan(frameSamples, std::nanf(""));
  EXPECT_FLOAT_EQ(levelDbfs(nan.data(), nan.size()), -120.0f);
}

TEST(FrameCutter, BlocksOfAnySizeMakeWholeFramesStampedFromTheirFirstSample) {
  FrameCutter cutter;
  SignDetector detector;
  std::vector<HeardFrame> out;
  const double start = 1000.0;
  // Blocks of awkward sizes, each stamped where the stream really is, with
  // up to 8 ms of arrival jitter that must not reach the frames.
  const std::size_t sizes[] = {7, 333, 160, 1, 959, 480, 1600, 100};
  std::size_t done = 0;
  double jitter = 0.008;
  for (std::size_t n : sizes) {
    const auto block = ramp(n, done);
    cutter.push(block.data(), n, start + double(done) / sampleRate + jitter, detector, out);
    done += n;
    jitter = -jitter;
  }
  ASSERT_EQ(out.size(), done / frameSamples);
  EXPECT_EQ(detector.calls, int(out.size()));
  for (std::size_t i = 0; i < out.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_NEAR(out[i].uptime, start + 0.008 + double(i) * frameSeconds, 1e-9);
    EXPECT_EQ(out[i].speech, i % 2 == 1);
    EXPECT_NEAR(out[i].level, 20 * std::log10(i % 2 ? 0.5 : 0.01), 1e-4);
  }
}

TEST(FrameCutter, AJumpInTheStampsOrAResetStartsTheCountAgain) {
  FrameCutter cutter;
  SignDetector detector;
  std::vector<HeardFrame> out;
  auto block = ramp(240);  // a frame and a half
  cutter.push(block.data(), block.size(), 10.0, detector, out);
  ASSERT_EQ(out.size(), 1u);
  // Half a second later by the stamps, not 15 ms: the half frame left over
  // belongs to nothing and is dropped.
  block = ramp(160);
  cutter.push(block.data(), block.size(), 10.5, detector, out);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_NEAR(out[1].uptime, 10.5, 1e-9);
  // After a reset (a hole) the next block's stamp counts, even when close.
  cutter.push(block.data(), 80, 10.51, detector, out);
  cutter.reset();
  cutter.push(block.data(), 160, 10.515, detector, out);
  ASSERT_EQ(out.size(), 3u);
  EXPECT_NEAR(out[2].uptime, 10.515, 1e-9);
  // An empty block changes nothing.
  cutter.push(block.data(), 0, 99.0, detector, out);
  cutter.push(block.data(), 160, 10.525, detector, out);
  ASSERT_EQ(out.size(), 4u);
  EXPECT_NEAR(out[3].uptime, 10.525, 1e-9);
}

TEST(BedGate, SpeechMustStandOutOfASteadyBedButNotOfSilence) {
  BedGate gate;
  // A bed at -30 dBFS for ten seconds: never standing out of itself.
  int out = 0;
  for (int i = 0; i < 1000; ++i) out += gate.standsOut(-30.0f + float(i % 3));
  EXPECT_LT(out, 10);
  // Speech 10 dB over it stands out, and keeps doing so while it lasts
  // less than most of the window; a bump of 2 dB does not.
  for (int i = 0; i < 300; ++i) EXPECT_TRUE(gate.standsOut(-20.0f)) << i;
  for (int i = 0; i < 100; ++i) EXPECT_FALSE(gate.standsOut(-28.5f)) << i;
  // Over silence the floor is silence: quiet speech counts.
  BedGate quiet;
  for (int i = 0; i < 1000; ++i) quiet.standsOut(-120.0f);
  EXPECT_TRUE(quiet.standsOut(-50.0f));
  // A bed that keeps growing louder is followed: after ten seconds at a new
  // level, that level is the floor.
  for (int i = 0; i < 1000; ++i) gate.standsOut(-10.0f);
  EXPECT_FALSE(gate.standsOut(-8.0f));
  EXPECT_TRUE(gate.standsOut(-2.0f));
}

TEST(FrameQueue, KeepsTheNewestWhenNobodyTakesAndHandsOverInOrder) {
  FrameQueue queue(5);
  std::vector<HeardFrame> in;
  for (int i = 0; i < 8; ++i) in.push_back({double(i), i % 2 == 0, -20});
  queue.push(in);
  std::vector<HeardFrame> out{{-1.0, false, -120}};  // taking appends
  queue.takeAll(out);
  ASSERT_EQ(out.size(), 6u);
  EXPECT_EQ(out[0].uptime, -1.0);
  for (int i = 1; i < 6; ++i) EXPECT_EQ(out[std::size_t(i)].uptime, double(i + 2));
  EXPECT_EQ(queue.dropped(), 3u);
  out.clear();
  queue.takeAll(out);
  EXPECT_TRUE(out.empty());
  queue.push(in);
  queue.clear();
  queue.takeAll(out);
  EXPECT_TRUE(out.empty());
}

TEST(FrameQueue, AProducerAndAConsumerLoseNothingBelowCapacity) {
  FrameQueue queue(100000);
  constexpr int total = 20000;
  std::thread producer([&] {
    std::vector<HeardFrame> block(10);
    for (int i = 0; i < total; i += 10) {
      for (int j = 0; j < 10; ++j) block[std::size_t(j)].uptime = i + j;
      queue.push(block);
    }
  });
  std::vector<HeardFrame> got;
  while (got.size() < std::size_t(total)) queue.takeAll(got);
  producer.join();
  for (int i = 0; i < total; ++i) ASSERT_EQ(got[std::size_t(i)].uptime, double(i));
}

}  // namespace
}  // namespace lumerix::sound
