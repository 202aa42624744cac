// How closely the fused clock follows a player, in virtual time.
//
// A virtual player plays, pauses and seeks. The poller's helper answers
// after 30-150 ms with a frame-rounded position sampled somewhere inside its
// run; the stream sends a line only on play, pause and seek, stamped with
// whole seconds as the real adapter does. The real TVSync, MediaRemoteSync
// and FusedSync code does the rest. The fused position is sampled at 20 Hz
// against the truth, windowed and full screen.
//
// Run: cmake -DLUMERIX_BENCH=ON, build, then ./bench/sync_simulator [seeds]

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/System.h"
#include "sync/FusedSync.h"
#include "sync/MediaRemoteSync.h"
#include "sync/TVSync.h"

using namespace lumerix;

namespace {

class VirtualSystem : public System {
 public:
  double now = 0;
  double wall = 1.7e9 + 0.37;  // wall seconds are not aligned with anything
  bool fullscreen = false;
  double uptime() const noexcept override { return now; }
  double wallClock() const noexcept override { return wall + now; }
  std::vector<int> targetProcessIds() override { return {1}; }
  std::optional<std::vector<WindowInfo>> onScreenWindows() override {
    return std::vector<WindowInfo>{{1, fullscreen ? 1920.0 : 960.0, fullscreen ? 1080.0 : 540.0, {}}};
  }
  std::vector<ScreenSize> screenSizes() override { return {{1920, 1080}}; }
  bool targetRunning() override { return true; }
  std::optional<int> requestAutomationPermission() override { return 0; }
};

struct Player {
  bool playing = true;
  double base = 0, since = 0;
  double at(double t) const { return base + (playing ? t - since : 0); }
  void seek(double t, double to) { base = to, since = t; }
  void setPlaying(double t, bool on) { base = at(t), since = t, playing = on; }
};

struct Event {
  double time;  // plus up to a second, drawn per run
  enum { seekTo, seekBy, pause, resume } kind;
  double value;
  const char* name;  // seeks only
};

// Measured from 20 s on; the first 20 s are windowed in both modes so the
// stream's bias can be learnt, as it would be before a user goes full screen.
const Event script[] = {
    {40, Event::seekTo, 200, "seek +160 s"},  {60, Event::seekBy, -10, "seek -10 s"},
    {75, Event::pause, 0, nullptr},           {79, Event::resume, 0, nullptr},
    {90, Event::seekBy, -0.5, "seek -0.5 s"}, {105, Event::seekBy, -0.3, "seek -0.3 s"},
};
constexpr double measureFrom = 20, end = 120;

// The adapter on macOS stamps whole seconds; our MPRIS helper stamps milliseconds.
std::string isoStamp(double wall, bool millis) {
  const std::time_t whole = static_cast<std::time_t>(std::floor(wall));
  std::tm tm{};
  gmtime_r(&whole, &tm);
  char b[40];
  std::strftime(b, sizeof b, "%Y-%m-%dT%H:%M:%S", &tm);
  std::string stamp = b;
  if (millis) {
    std::snprintf(b, sizeof b, ".%03d", static_cast<int>((wall - static_cast<double>(whole)) * 1000));
    stamp += b;
  }
  return stamp + "Z";
}

enum class Mode { windowed, fullscreen, fullscreenMillis };

struct RunResult {
  std::vector<double> errors;   // |fused - true|, seconds, every 50 ms
  std::vector<double> steady;   // the same, less the 3 s after each event
  std::vector<double> settles;  // per seek: time until back within 50 ms (NaN: not within 10 s)
};

RunResult simulate(Mode mode, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> delay(0.030, 0.150), inside(0.2, 0.8), streamDelay(0.02, 0.08);
  VirtualSystem sys;
  auto tvOwned = std::make_unique<TVSync>(sys, TVSync::Options{});
  auto mrOwned = std::make_unique<MediaRemoteSync>(sys, [] { return std::nullopt; });
  TVSync& tv = *tvOwned;
  MediaRemoteSync& mr = *mrOwned;
  FusedSync fused(sys, std::move(tvOwned), std::move(mrOwned));
  Player player;

  const double dt = 0.001;
  double pollStart = 0, pollEnd = delay(rng), pollSample = pollStart + (pollEnd - pollStart) * inside(rng);
  std::string pollAnswer;
  std::vector<std::pair<double, std::string>> streamQueue;  // lines in flight
  auto streamEvent = [&](double t) {
    char line[256];
    std::snprintf(line, sizeof line,
                  "{\"type\":\"data\",\"diff\":false,\"payload\":{\"bundleIdentifier\":\"com.apple.TV\","
                  "\"title\":\"Show\",\"playing\":%s,\"playbackRate\":1,\"elapsedTime\":%.6f,\"timestamp\":\"%s\"}}\n",
                  player.playing ? "true" : "false", player.at(t),
                  isoStamp(sys.wallClock(), mode == Mode::fullscreenMillis).c_str());
    streamQueue.emplace_back(t + streamDelay(rng), line);
  };
  streamEvent(0);

  RunResult result;
  std::size_t nextEvent = 0;
  std::vector<double> eventTimes;
  std::uniform_real_distribution<double> offset(0, 1);
  for (const Event& e : script) eventTimes.push_back(e.time + offset(rng));
  double nextSample = 0;
  std::vector<double> seekTimes;
  std::vector<std::pair<double, double>> samples;  // (time, error)

  for (int step = 0; step * dt <= end; ++step) {
    const double t = step * dt;
    sys.now = t;
    if (mode != Mode::windowed) sys.fullscreen = t >= measureFrom;
    while (nextEvent < std::size(script) && eventTimes[nextEvent] <= t) {
      const Event& e = script[nextEvent++];
      if (e.kind == Event::pause) player.setPlaying(t, false);
      if (e.kind == Event::resume) player.setPlaying(t, true);
      if (e.kind == Event::seekTo || e.kind == Event::seekBy) {
        player.seek(t, e.kind == Event::seekTo ? e.value : player.at(t) + e.value);
        seekTimes.push_back(t);
      }
      streamEvent(t);
    }
    // The helper reads the player somewhere inside its run, one frame at a time.
    if (pollAnswer.empty() && t >= pollSample) {
      const double framed = std::floor(player.at(t) * 24) / 24;
      char b[64];
      std::snprintf(b, sizeof b, "%s|%.4f|Show", player.playing ? "true" : "false", framed);
      pollAnswer = b;
      std::replace(pollAnswer.begin(), pollAnswer.end(), '.', ',');  // a German locale, say
    }
    if (t >= pollEnd) {
      tv.applyPoll(pollAnswer, "", pollStart, pollEnd);
      pollAnswer.clear();
      pollStart = pollEnd + 0.35;
      pollEnd = pollStart + delay(rng);
      pollSample = pollStart + (pollEnd - pollStart) * inside(rng);
    }
    for (auto it = streamQueue.begin(); it != streamQueue.end();) {
      if (it->first <= t) {
        mr.consume(it->second);
        it = streamQueue.erase(it);
      } else {
        ++it;
      }
    }
    if (t + 1e-9 >= nextSample) {
      nextSample += 0.05;
      // The controller ticks all along; only the measured phase is recorded.
      const auto snap = fused.snapshot();
      const double err = snap.position ? *snap.position - player.at(t) : INFINITY;
      if (t >= measureFrom) {
        samples.emplace_back(t, err);
        result.errors.push_back(std::fabs(err));
        bool transient = false;
        for (double e : eventTimes) transient |= t >= e && t < e + 3;
        if (!transient) result.steady.push_back(std::fabs(err));
      }
    }
  }
  for (double s : seekTimes) {
    // Back within 50 ms: the first sample after the seek that is (10 s at most).
    double settledAt = NAN;
    for (const auto& [time, err] : samples) {
      if (time >= s && time <= s + 10 && std::fabs(err) <= 0.05) {
        settledAt = time - s;
        break;
      }
    }
    result.settles.push_back(settledAt);
  }
  return result;
}

double percentile(std::vector<double> v, double p) {
  if (v.empty()) return NAN;
  std::sort(v.begin(), v.end());
  return v[static_cast<std::size_t>(std::min<double>(v.size() - 1, std::floor(p * (v.size() - 1) + 0.5)))];
}

}  // namespace

int main(int argc, char** argv) {
  const int seeds = argc > 1 ? std::atoi(argv[1]) : 50;
  const char* seekNames[] = {"seek +160 s", "seek -10 s", "seek -0.5 s", "seek -0.3 s"};
  std::printf("Fused position error against the true position, %d runs of %g s each, sampled at 20 Hz\n", seeds,
              end - measureFrom);
  std::printf("%-11s %-26s %-26s| settle within 50 ms after a seek,\n", "", "all samples: p50/p95/max ms",
              "steady: p50/p95/max ms");
  std::printf("%-11s %-26s %-26s| median / worst (s)\n%-11s %-53s|", "", "", "", "", "");
  for (const char* n : seekNames) std::printf(" %15s", n);
  std::printf("\n");
  for (Mode mode : {Mode::windowed, Mode::fullscreen, Mode::fullscreenMillis}) {
    std::vector<double> errors, steady;
    std::vector<std::vector<double>> settles(std::size(seekNames));
    int unsettled[std::size(seekNames)] = {};
    for (int s = 0; s < seeds; ++s) {
      auto r = simulate(mode, 1000 + s);
      errors.insert(errors.end(), r.errors.begin(), r.errors.end());
      steady.insert(steady.end(), r.steady.begin(), r.steady.end());
      for (std::size_t k = 0; k < r.settles.size(); ++k) {
        if (std::isnan(r.settles[k])) {
          ++unsettled[k];
        } else {
          settles[k].push_back(r.settles[k]);
        }
      }
    }
    char all[64], calm[64];
    std::snprintf(all, sizeof all, "%.1f / %.1f / %.1f", percentile(errors, 0.5) * 1000,
                  percentile(errors, 0.95) * 1000, percentile(errors, 1.0) * 1000);
    std::snprintf(calm, sizeof calm, "%.1f / %.1f / %.1f", percentile(steady, 0.5) * 1000,
                  percentile(steady, 0.95) * 1000, percentile(steady, 1.0) * 1000);
    const char* label = mode == Mode::windowed ? "windowed" : mode == Mode::fullscreen ? "full, 1 s" : "full, 1 ms";
    std::printf("%-11s %-26s %-26s|", label, all, calm);
    for (std::size_t k = 0; k < settles.size(); ++k) {
      char cell[40];
      if (settles[k].empty()) {
        std::snprintf(cell, sizeof cell, "never");
      } else {
        std::snprintf(cell, sizeof cell, "%.2f/%.2f%s", percentile(settles[k], 0.5), percentile(settles[k], 1.0),
                      unsettled[k] ? "*" : "");
      }
      std::printf(" %15s", cell);
    }
    std::printf("\n");
  }
  std::printf(
      "full, 1 s: full screen, stream stamped in whole seconds (the macOS adapter)\n"
      "full, 1 ms: full screen, stream stamped in milliseconds (our MPRIS helper)\n"
      "* some runs were not back within 50 ms in the 10 s after the seek\n");
  return 0;
}
