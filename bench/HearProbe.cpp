// What the capture hears of the default output, as it would hand it to the
// core: one JSON line a frame ({"uptime", "speech", "level"}) for SECONDS,
// then the CPU the whole program used. For checking the stamps against a
// player's own clock (bench/listen-stamps.py) and the capture's cost.
//   hear_probe SECONDS
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

#include "app/PlatformServices.h"
#include "platform/Clock.h"

using namespace lumerix;

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 10;
  SystemClock clock;
  auto capture = platform::makeSoundCapture(clock);
  if (!capture->start()) {
    std::fprintf(stderr, "hear_probe: cannot listen (state %d)\n", int(capture->state()));
    return 1;
  }
  const double end = clock.uptime() + seconds;
  std::vector<HeardFrame> frames;
  while (clock.uptime() < end && capture->state() == CaptureState::running) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the tick's pace
    frames.clear();
    capture->takeFrames(frames);
    for (const HeardFrame& f : frames)
      std::printf("{\"uptime\": %.4f, \"speech\": %s, \"level\": %.1f}\n", f.uptime, f.speech ? "true" : "false",
                  double(f.level));
  }
  capture->stop();
  std::fprintf(stderr, "hear_probe: CPU %.3f s over %.1f s\n", double(std::clock()) / CLOCKS_PER_SEC, seconds);
}
