// Hearing the default output on Linux: WebRTC's verdicts on real speech and
// on what is not speech, and the capture against no server, a private
// PulseAudio server with a null sink, and that server going away.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "ScopedEnv.h"
#include "linux/PulseCapture.h"
#include "linux/WebRtcSpeech.h"
#include "platform/SoundFrames.h"

namespace lumerix {
namespace {

namespace fs = std::filesystem;
using sound::frameSamples;
using sound::sampleRate;

bool have(const char* tool) {
  return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

// 16 kHz mono floats from a command that writes raw signed 16-bit samples.
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

double speechShare(WebRtcSpeech& vad, const std::vector<float>& s, std::size_t from = 0, std::size_t to = SIZE_MAX) {
  int speech = 0, frames = 0;
  for (std::size_t i = from; i + frameSamples <= std::min(to, s.size()); i += frameSamples, ++frames)
    speech += vad.isSpeech(s.data() + i);
  return frames ? double(speech) / frames : 0;
}

TEST(WebRtcSpeech, HearsSpokenWordsAndNotSilenceOrSteadyNoise) {
  WebRtcSpeech vad;
  ASSERT_TRUE(vad.ready());
  std::vector<float> silence(sampleRate * 2, 0.0f);
  EXPECT_EQ(speechShare(vad, silence), 0.0);
  // Quiet steady hiss: loudness alone must not count as speech.
  std::mt19937 rng(7);
  std::normal_distribution<float> noise(0.0f, 0.01f);
  std::vector<float> hiss(sampleRate * 3);
  for (float& x : hiss) x = noise(rng);
  EXPECT_LT(speechShare(vad, hiss, sampleRate), 0.2);  // after the detector has learnt the noise
  if (!have("espeak-ng") || !have("sox")) GTEST_SKIP() << "espeak-ng and sox make the speech";
  for (const char* voice : {"en-us+f3", "en-gb+m4"}) {
    SCOPED_TRACE(voice);
    const auto words = rawFrom(std::string("espeak-ng -v ") + voice +
                               " --stdout 'The weather is turning, so bring the boat in before dark.' | "
                               "sox -t wav - -t raw -r 16000 -e signed -b 16 -c 1 - 2>/dev/null");
    ASSERT_GT(words.size(), std::size_t(sampleRate));
    WebRtcSpeech fresh;
    EXPECT_GT(speechShare(fresh, words), 0.6);
  }
}

// A private PulseAudio server playing into a null sink, in a folder of its
// own; gone when the test ends.
class PrivateServer {
 public:
  PrivateServer() {
    dir_ = fs::temp_directory_path() / ("lumerix-pulse-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
    fs::permissions(dir_, fs::perms::owner_all);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::setenv("XDG_RUNTIME_DIR", dir_.c_str(), 1);
      if (!std::freopen("/dev/null", "w", stderr)) ::_exit(127);
      ::execlp("pulseaudio", "pulseaudio", "--daemonize=no", "--exit-idle-time=-1", "-n",
               "--load=module-null-sink sink_name=null", "--load=module-native-protocol-unix", nullptr);
      ::_exit(127);
    }
    for (int i = 0; i < 100 && !fs::exists(socket()); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ~PrivateServer() {
    kill();
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  std::string socket() const { return (dir_ / "pulse" / "native").string(); }
  bool up() const { return fs::exists(socket()); }
  void kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  // Plays raw 16 kHz mono into the default sink, in the background.
  void play(const std::string& rawCommand) {
    const std::string cmd = "(" + rawCommand + ") | PULSE_SERVER=unix:" + socket() +
                            " pacat --raw --rate=16000 --channels=1 --format=s16le >/dev/null 2>&1 &";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
  }

 private:
  fs::path dir_;
  pid_t pid_ = -1;
};

template <class Pred>
bool waitFor(Pred pred, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    if (pred()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return pred();
}

TEST(PulseCapture, NoServerIsReportedAtOnceAndStopIsHarmless) {
  test::ScopedEnv server("PULSE_SERVER", "unix:/nonexistent/lumerix/native");
  SystemClock clock;
  PulseCapture capture(clock);
  EXPECT_EQ(capture.state(), CaptureState::idle);
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_FALSE(capture.start());
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
  EXPECT_EQ(capture.state(), CaptureState::noServer);
  EXPECT_FALSE(capture.lastError().empty());
  std::vector<HeardFrame> frames;
  capture.takeFrames(frames);
  EXPECT_TRUE(frames.empty());
  capture.stop();
  capture.stop();
  EXPECT_EQ(capture.state(), CaptureState::idle);
}

TEST(PulseCapture, HearsTheNullSinkStampedNowThenReportsTheServerLost) {
  if (!have("pulseaudio") || !have("pacat") || !have("sox")) GTEST_SKIP() << "needs pulseaudio, pacat and sox";
  PrivateServer server;
  ASSERT_TRUE(server.up());
  test::ScopedEnv env("PULSE_SERVER", "unix:" + server.socket());
  SystemClock clock;
  PulseCapture capture(clock);
  ASSERT_TRUE(capture.start()) << capture.lastError();
  EXPECT_TRUE(capture.start());  // starting again is harmless
  EXPECT_EQ(capture.state(), CaptureState::running);
  // A loud tone for a second: the frames must carry it, stamped close to now.
  server.play("sox -n -t raw -r 16000 -e signed -b 16 -c 1 - synth 1.5 sine 440 vol 0.5");
  std::vector<HeardFrame> frames;
  ASSERT_TRUE(waitFor(
      [&] {
        capture.takeFrames(frames);
        return frames.size() >= 150;
      },
      5));
  const double now = clock.uptime();
  int loud = 0;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_LT(frames[i].uptime, now + 0.5);
    EXPECT_GT(frames[i].uptime, now - 5);
    if (i > 0) {
      EXPECT_GT(frames[i].uptime, frames[i - 1].uptime);
    }
    loud += frames[i].level > -12;
  }
  EXPECT_GT(loud, 20);
  // Ten seconds of sound in one second of waiting would mean the stamps or
  // the frames are wrong: about a hundred frames a second.
  frames.clear();
  const double t0 = clock.uptime();
  capture.takeFrames(frames);
  frames.clear();
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  capture.takeFrames(frames);
  const double rate = double(frames.size()) / (clock.uptime() - t0);
  EXPECT_GT(rate, 70);
  EXPECT_LT(rate, 130);

  server.kill();
  EXPECT_TRUE(waitFor([&] { return capture.state() == CaptureState::lost; }, 3));
  capture.stop();
  EXPECT_EQ(capture.state(), CaptureState::idle);
  EXPECT_FALSE(capture.start());
  EXPECT_EQ(capture.state(), CaptureState::noServer);
}

TEST(PulseCapture, StopsAtOnceWhileListeningAndStartsAgain) {
  if (!have("pulseaudio")) GTEST_SKIP() << "needs pulseaudio";
  PrivateServer server;
  ASSERT_TRUE(server.up());
  test::ScopedEnv env("PULSE_SERVER", "unix:" + server.socket());
  SystemClock clock;
  PulseCapture capture(clock);
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    ASSERT_TRUE(capture.start()) << capture.lastError();
    std::vector<HeardFrame> frames;
    EXPECT_TRUE(waitFor(
        [&] {
          capture.takeFrames(frames);
          return !frames.empty();
        },
        3));
    const auto t0 = std::chrono::steady_clock::now();
    capture.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(300));
    frames.clear();
    capture.takeFrames(frames);
    EXPECT_TRUE(frames.empty());  // nothing heard is kept past a stop
  }
}

}  // namespace
}  // namespace lumerix
