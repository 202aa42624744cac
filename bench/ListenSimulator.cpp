// Syncing by listening against made-up episodes, before any real sound:
// random subtitles, speech made from their cues (late or early onsets,
// lines never spoken, speech without a line, music the detector takes for
// speech), heard at a known offset and rate through the same session the
// program runs. Prints how often the result lands within 0.1 s, how often
// a wrong one would have been applied, and how long listening took.
//
//   listen_simulator [RUNS] [SEED] [SPREAD] [-v]
// SPREAD: how far, in seconds, speech onsets stray from their cues' starts
// (one standard deviation; 0.05 by default, as in a film's own subtitle;
// a few hundredths less where the lines were spoken to the subtitle).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "app/Controller.h"
#include "listen/ListenSession.h"

using namespace lumerix;
using namespace lumerix::listen;

namespace {

struct Episode {
  std::vector<Span> cues;    // subtitle time
  std::vector<Span> speech;  // the player's clock
  std::vector<Span> music;   // the player's clock: heard as speech
};

Episode makeEpisode(std::mt19937& rng, double rate, double offset, int kind, double spread) {
  std::uniform_real_distribution<double> u(0, 1);
  std::normal_distribution<double> jitter(0.06, spread);  // speech starts a little after its cue
  Episode e;
  double t = 20;
  const double length = 2700;
  while (t < length) {
    if (u(rng) < 0.015) t += 10 + 50 * u(rng);  // a scene without words
    const double d = 0.8 + 4.2 * u(rng);
    e.cues.push_back({t, t + d});
    t += d + 0.1 + 2.5 * u(rng) * u(rng) * 2;
  }
  auto toPlayer = [&](double sub) { return (sub - offset) / rate; };
  const double dropShare = kind == 1 ? 0.3 : 0.1;
  for (const Span& c : e.cues) {
    if (u(rng) < dropShare) continue;  // never spoken, or too quiet to hear
    // Now and then an onset is heard late: a line that opens on a breath
    // or a soft consonant the detector does not take for speech yet.
    const double late = u(rng) < 0.1 ? 0.15 * u(rng) : 0;
    const double start = toPlayer(c.start) + jitter(rng) + late;
    const double spoken = (c.end - c.start) * (0.55 + 0.4 * u(rng)) / rate;
    if (spoken > 2.5 && u(rng) < 0.4) {  // a breath in the middle of the line
      const double cut = spoken * (0.3 + 0.4 * u(rng));
      e.speech.push_back({start, start + cut});
      e.speech.push_back({start + cut + 0.3 + 0.2 * u(rng), start + spoken});
    } else {
      e.speech.push_back({start, start + spoken});
    }
  }
  // Speech nobody subtitled: murmurs, a name called across the street.
  const double extraShare = kind == 2 ? 0.4 : 0.1;
  const std::size_t extra = static_cast<std::size_t>(static_cast<double>(e.speech.size()) * extraShare);
  for (std::size_t i = 0; i < extra; ++i) {
    const double at = toPlayer(20 + length * u(rng));
    e.speech.push_back({at, at + 0.4 + 1.5 * u(rng)});
  }
  // Music the detector mistakes for speech, in pieces.
  const int blocks = kind == 3 ? 25 : 6;
  for (int b = 0; b < blocks; ++b) {
    double at = toPlayer(20 + length * u(rng));
    const double end = at + 5 + 25 * u(rng);
    while (at < end) {
      const double d = 0.3 + 3 * u(rng);
      e.music.push_back({at, at + d});
      at += d + 0.1 + 0.4 * u(rng);
    }
  }
  std::sort(e.speech.begin(), e.speech.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
  std::sort(e.music.begin(), e.music.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
  return e;
}

bool inside(const std::vector<Span>& spans, double p) {
  auto it = std::upper_bound(spans.begin(), spans.end(), p, [](double v, const Span& s) { return v < s.start; });
  if (it == spans.begin()) return false;
  --it;
  // Spans may overlap: look back a few.
  for (int k = 0; k < 4; ++k, --it) {
    if (p >= it->start && p < it->end) return true;
    if (it == spans.begin()) break;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::atoi(argv[1]) : 200;
  const unsigned seed = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1;
  const double spread = argc > 3 ? std::atof(argv[3]) : 0.05;
  const bool verbose = argc > 4;
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<double> rates;
  for (const auto& p : Controller::scalePresets) rates.push_back(p.factor);

  int within01 = 0, within025 = 0, wrong = 0, unsure = 0;
  std::vector<double> times, offsetTimes;
  const char* kinds[] = {"plain", "many lines unspoken", "much speech without lines", "much music"};
  int wrongByKind[4] = {}, runsByKind[4] = {}, syncedByKind[4] = {};
  for (int run = 0; run < runs; ++run) {
    const int kind = run % 4;
    const double rate = rates[static_cast<std::size_t>(run / 4) % rates.size()];
    const double offset = -60 + 120 * u(rng);
    const Episode e = makeEpisode(rng, rate, offset, kind, spread);
    // Somewhere in the episode, where the cues are.
    const double from = (e.cues.front().start - offset) / rate + 30 +
                        u(rng) * ((e.cues.back().end - e.cues.front().start) / rate - 200);
    ListenSession real(e.cues, rates, ListenSession::Purpose::sync);
    std::vector<HeardFrame> frames;
    double uptime = 1000;
    double position = from;
    ListenSession::Phase phase = ListenSession::Phase::listening;
    double offsetSureAt = -1;
    std::string_view lastDoubt = "-";
    while (phase == ListenSession::Phase::listening || phase == ListenSession::Phase::paused) {
      frames.clear();
      for (int f = 0; f < 5; ++f) {
        const double p = position - 0.05 + 0.01 * f;
        const bool speech = inside(e.speech, p) || inside(e.music, p);
        frames.push_back({uptime - 0.05 + 0.01 * f - 0.04, speech, speech ? -20.f : -40.f});
      }
      phase = real.step(uptime, {position, true, false}, frames, CaptureState::running);
      if (verbose && real.latest().doubt != lastDoubt) {
        lastDoubt = real.latest().doubt;
        std::printf("  %.0f s: %s (margin %.2f, onsets %d)\n", real.playedSeconds(), std::string(lastDoubt).c_str(),
                    real.latest().margin, real.latest().onsets);
      }
      if (offsetSureAt < 0 && (real.latest().doubt == kRatesTooClose || real.latest().timing)) {
        offsetSureAt = real.playedSeconds();
      }
      uptime += 0.05;
      position += 0.05;
    }
    ++runsByKind[kind];
    if (phase != ListenSession::Phase::synced) {
      ++unsure;
      if (verbose) {
        std::printf("not sure: kind %s, rate %.5f: %s (margin %.2f, %d onsets, %d lines, from %.0f)\n", kinds[kind],
                    rate, std::string(real.latest().doubt).c_str(), real.latest().margin, real.latest().onsets,
                    real.lines(), from);
      }
      continue;
    }
    ++syncedByKind[kind];
    const Timing got = *real.timing();
    const double error = std::fabs((position * got.rate + got.offset) - (position * rate + offset));
    times.push_back(real.playedSeconds());
    offsetTimes.push_back(offsetSureAt);
    if (std::fabs(got.rate - rate) > 1e-9 || error > 0.5) {
      ++wrong;
      ++wrongByKind[kind];
      std::printf("wrong: kind %s, truth rate %.5f offset %+.2f, got %.5f %+.2f at %.0f s (onsets say %.5f ± %.5f, %d)\n",
                  kinds[kind], rate, offset, got.rate, got.offset, position, real.latest().rateEstimate,
                  real.latest().rateError, real.latest().onsets);
      continue;
    }
    if (error <= 0.1) ++within01;
    if (error <= 0.25) ++within025;
  }
  std::sort(times.begin(), times.end());
  std::sort(offsetTimes.begin(), offsetTimes.end());
  if (!offsetTimes.empty()) std::printf("offset sure after a median %.1f s\n", offsetTimes[offsetTimes.size() / 2]);
  const double median = times.empty() ? 0 : times[times.size() / 2];
  std::printf("runs %d: within 0.1 s %.1f %%, within 0.25 s %.1f %%, wrong applied %d, not sure %d, "
              "median listening %.1f s\n",
              runs, 100.0 * within01 / runs, 100.0 * within025 / runs, wrong, unsure, median);
  for (int k = 0; k < 4; ++k) {
    std::printf("  %-26s runs %3d synced %3d wrong %d\n", kinds[k], runsByKind[k], syncedByKind[k], wrongByKind[k]);
  }
  return wrong == 0 ? 0 : 1;
}
