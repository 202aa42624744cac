// Speech verdicts for a sound file, frame by frame, from the detector each
// platform uses: for measuring a detector against clips whose speech is
// known (bench/listen-accuracy). Reads raw 16 kHz mono signed 16-bit
// samples on stdin; prints one line of 0s and 1s, a character per 10 ms,
// and on stderr the CPU seconds the detector took.
//   speech_frames webrtc|portable [--raw]   (--raw: the detector alone, without the bed gate)
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "linux/WebRtcSpeech.h"
#include "platform/PortableSpeech.h"
#include "platform/SoundFrames.h"

using namespace lumerix;

int main(int argc, char** argv) {
  if (argc < 2 || (std::strcmp(argv[1], "webrtc") != 0 && std::strcmp(argv[1], "portable") != 0)) {
    std::fprintf(stderr, "usage: speech_frames webrtc|portable [--raw] < SAMPLES\n");
    return 2;
  }
  const bool raw = argc > 2 && std::strcmp(argv[2], "--raw") == 0;
  std::unique_ptr<sound::SpeechDetector> detector;
  if (std::strcmp(argv[1], "webrtc") == 0)
    detector = std::make_unique<WebRtcSpeech>();
  else
    detector = std::make_unique<sound::PortableSpeech>();
  std::vector<float> samples;
  int16_t buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, sizeof(int16_t), 4096, stdin)) > 0)
    for (std::size_t i = 0; i < n; ++i) samples.push_back(float(buf[i]) / 32768.0f);
  const std::clock_t t0 = std::clock();
  std::string line;
  if (raw) {
    for (std::size_t i = 0; i + sound::frameSamples <= samples.size(); i += sound::frameSamples)
      line += detector->isSpeech(samples.data() + i) ? '1' : '0';
  } else {
    sound::FrameCutter cutter;
    std::vector<HeardFrame> frames;
    cutter.push(samples.data(), samples.size(), 0.0, *detector, frames);
    for (const HeardFrame& f : frames) line += f.speech ? '1' : '0';
  }
  const double cpu = double(std::clock() - t0) / CLOCKS_PER_SEC;
  std::printf("%s\n", line.c_str());
  std::fprintf(stderr, "cpu %.3f s for %.1f s of sound\n", cpu, double(samples.size()) / sound::sampleRate);
}
